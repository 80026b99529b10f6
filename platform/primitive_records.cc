// Type records of the primitive field types: module "kvt", number 1. They are constant data; registering them only
// tells the runtime where they are.
#include <string_view>

#include "kvt/primitives.h"
#include "kvt/type_record.h"

namespace {

constexpr std::uint32_t kModule = 1;
enum Index : std::uint32_t { kU8, kU16, kU32, kU64, kBoolean, kVstring, kAesVstring, kBytestr, kCount };

constexpr std::uint32_t static_number(std::uint32_t index) { return 0xF0000000u | kModule << 20 | index; }

template <std::size_t N>
constexpr void put_text(char (&to)[N], std::string_view text) {
  for (std::size_t i = 0; i < text.size() && i + 1 < N; ++i) to[i] = text[i];
}

// The identities are in stored registries, so an index keeps its type for good: new types go to the end.
constexpr kvt_type_record make_record(Index index, std::string_view name) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr std::string_view kLuidHead = "kvt.primitive.";
  kvt_type_record record{};
  record.magic = KVT_TYPE_MAGIC;
  for (std::size_t i = 0; i < kLuidHead.size(); ++i) record.luid[i] = static_cast<std::uint8_t>(kLuidHead[i]);
  record.luid[14] = static_cast<std::uint8_t>('0' + index / 10);
  record.luid[15] = static_cast<std::uint8_t>('0' + index % 10);
  for (std::size_t i = 0; i < sizeof record.luid; ++i) {
    record.luid_text[2 * i] = kDigits[record.luid[i] >> 4];
    record.luid_text[2 * i + 1] = kDigits[record.luid[i] & 15];
  }
  put_text(record.name, name);
  put_text(record.module, "kvt");
  put_text(record.kind, "primitive");
  record.slot = -1;
  record.varinfo = static_number(index);
  return record;
}

constexpr kvt_variant_data make_varinfo(Index index) { return {1, {}, static_number(index)}; }
constexpr kvt_variant_entry make_entry(std::uint32_t size) { return {0, size, 0, 0, 0, 0, 0}; }

constinit const kvt_variant_data g_varinfo[kCount] = {
    make_varinfo(kU8),      make_varinfo(kU16),     make_varinfo(kU32),        make_varinfo(kU64),
    make_varinfo(kBoolean), make_varinfo(kVstring), make_varinfo(kAesVstring), make_varinfo(kBytestr)};

constinit kvt_variant_entry g_entries[kCount] = {make_entry(sizeof(std::uint8_t)),    make_entry(sizeof(std::uint16_t)),
                                                 make_entry(sizeof(std::uint32_t)),   make_entry(sizeof(std::uint64_t)),
                                                 make_entry(sizeof(kvt_boolean)),     make_entry(sizeof(kvt_vstring)),
                                                 make_entry(sizeof(kvt_aes_vstring)), make_entry(sizeof(qep_bytestr))};

}  // namespace

extern "C" {
constinit const kvt_type_record _u_int8_type_info_internal = make_record(kU8, "u_int8");
constinit const kvt_type_record _u_int16_type_info_internal = make_record(kU16, "u_int16");
constinit const kvt_type_record _u_int32_type_info_internal = make_record(kU32, "u_int32");
constinit const kvt_type_record _u_int64_type_info_internal = make_record(kU64, "u_int64");
constinit const kvt_type_record _kvt_boolean_type_info_internal = make_record(kBoolean, "kvt_boolean");
constinit const kvt_type_record _kvt_vstring_type_info_internal = make_record(kVstring, "kvt_vstring");
constinit const kvt_type_record _kvt_aes_vstring_type_info_internal = make_record(kAesVstring, "kvt_aes_vstring");
constinit const kvt_type_record _qep_bytestr_type_info_internal = make_record(kBytestr, "qep_bytestr");
}

namespace {

constinit const kvt_static_type g_types[kCount] = {
    {&_u_int8_type_info_internal, &g_varinfo[kU8], &g_entries[kU8], nullptr, nullptr},
    {&_u_int16_type_info_internal, &g_varinfo[kU16], &g_entries[kU16], nullptr, nullptr},
    {&_u_int32_type_info_internal, &g_varinfo[kU32], &g_entries[kU32], nullptr, nullptr},
    {&_u_int64_type_info_internal, &g_varinfo[kU64], &g_entries[kU64], nullptr, nullptr},
    {&_kvt_boolean_type_info_internal, &g_varinfo[kBoolean], &g_entries[kBoolean], nullptr, nullptr},
    {&_kvt_vstring_type_info_internal, &g_varinfo[kVstring], &g_entries[kVstring], nullptr, nullptr},
    {&_kvt_aes_vstring_type_info_internal, &g_varinfo[kAesVstring], &g_entries[kAesVstring], nullptr, nullptr},
    {&_qep_bytestr_type_info_internal, &g_varinfo[kBytestr], &g_entries[kBytestr], nullptr, nullptr}};

[[gnu::constructor]] void register_types() { kvt_static_types_set(kModule, g_types, kCount); }

}  // namespace

// Flag types: objects of 12 bytes with the bits in the byte behind the header. Create, initialise and destroy are those
// of objects/enumerated.h.
#pragma once

#include "frame/call_frame.h"
#include "platform/super_fast_hash.h"

namespace kvt {

void flag_set(kvt_handle* h, std::uint32_t txn, void* object, const void* source, int* err);
std::uint32_t flag_get_value(const EnumDesc& type, kvt_handle* h, const void* object, std::uint32_t bit, int* err);
void flag_set_value(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t bit,
                    std::uint32_t on, int* err);
inline bool flag_in_range(const EnumDesc& type, std::uint32_t bit) { return bit < type.count; }
bool flag_is_valid(const EnumDesc& type, kvt_handle* h, std::uint32_t bit);
inline std::int32_t flag_compare(const void* a, const void* b) {
  if (!a || !b) return a ? 1 : b ? -1 : 0;
  return load<std::uint8_t>(at_offset(a, kFlagBitsOffset)) - load<std::uint8_t>(at_offset(b, kFlagBitsOffset));
}
inline std::uint32_t flag_hash(const void* object, std::uint32_t seed) {
  return object ? hash_bytes<1>(at_offset(object, kFlagBitsOffset), seed) : seed;
}

}  // namespace kvt

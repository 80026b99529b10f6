// The one list of the tables.
#include "tools/tables.h"

#include <zarn_tag_common/zarn_tag_common.h>
#include <zarn_wlan/zarn_wlan.h>

#include <cstring>

namespace wlanctl {
namespace {

#define KEY(table, st, key, kind)                                                                                   \
  Key {                                                                                                             \
#key, KeyKind::kind,                                                                                              \
        [](kvt_handle* h, std::uint32_t t, void* o, int* e) -> void* { return st##_##key##_get(h, t, o, e); },        \
        [](kvt_handle* h, std::uint32_t t, void* in, const void* k, int* e) -> void* {                                \
          return table##_##st##_##key##_search(h, t, in, k, e);                                                       \
        } \
  }

constexpr Key kRadioPolicyKeys[] = {KEY(tbl_internal_wlan_radio_policy, st_internal_wlan_radio_policy, band, kEnum)};
constexpr Key kTagKeys[] = {KEY(tbl_wlan_profile_assoicated_tag, st_profile_assoicated_tag, tag_name, kText)};
constexpr Key kMpskKeys[] = {KEY(tbl_mpsk_keys_int, st_mpsk_key_info, priority, kByte)};
constexpr Key kWlanKeys[] = {KEY(tbl_wlan, st_wlan, wlan_id, kWord), KEY(tbl_wlan, st_wlan, profile_name, kText)};
constexpr Key kGroupKeys[] = {KEY(tbl_apgroup_wlan, st_wlan, wlan_id, kWord),
                              KEY(tbl_apgroup_wlan, st_wlan, profile_name, kText),
                              KEY(tbl_apgroup_wlan, st_wlan, ssid, kText)};
constexpr Key kIfidKeys[] = {KEY(tbl_wlan_ifid, st_wlan_ifid, wlan_id, kWord)};
constexpr Key kAaaPolicyKeys[] = {KEY(tbl_wireless_aaa_policy, st_wireless_aaa_policy, policy_name, kText)};
#undef KEY

#define REFERENCE(st, field, table)                                                                        \
  Reference {                                                                                              \
#field, #table,                                                                                          \
        [](kvt_handle* h, std::uint32_t t, void* o, int* e) -> void* { return st##_##field##_get_by_ref(h, t, o, e); }, \
        [](kvt_handle* h, std::uint32_t t, void* o, void* to, int* e) { st##_##field##_set_by_ref(h, t, o, to, e); } \
  }

constexpr Reference kWlanReferences[] = {
    REFERENCE(st_wlan, profile_assoicated_tag_oid, tbl_wlan_profile_assoicated_tag),
    REFERENCE(st_wlan, int_mpsk_keys_oid, tbl_mpsk_keys_int),
    REFERENCE(st_wlan, internal_radio_policy_oid, tbl_internal_wlan_radio_policy)};
constexpr Reference kRadioPolicyReferences[] = {REFERENCE(st_internal_wlan_radio_policy, parent_wlan_oid, tbl_wlan)};
constexpr Reference kMpskReferences[] = {REFERENCE(st_mpsk_key_info, parent_wlan_oid, tbl_wlan)};
constexpr std::span<const Reference> kNoReferences;
#undef REFERENCE

void* parent_of_radio_policy(kvt_handle* h, std::uint32_t t, void* o, int* e) {
  return st_internal_wlan_radio_policy_parent_apfvap_profilename_key_get(h, t, o, e);
}
void* parent_of_mpsk_key(kvt_handle* h, std::uint32_t t, void* o, int* e) {
  return st_mpsk_key_info_parent_apfvap_profilename_key_get(h, t, o, e);
}

// Lambdas rather than the functions themselves: results that nobody reads fall away here.
#define TABLE(table, st, key, instance, keys, references, parent)                                                                                                                     \
  Table {                                                                                                                                                                             \
#table, #st, instance, table_##table##_luid, &_##table##_table_record_type_info_internal, keys, references, parent,                                                                 \
        [](kvt_handle* h, std::uint32_t t, const char* name, std::uint32_t type, int* e) -> void* {                    \
          return table##_table_open(h, t, name, type, e);                                                              \
        },                                                                                                             \
        [](kvt_handle* h, std::uint32_t t, void* in) -> std::uint32_t { return table##_table_get_count(h, t, in); },   \
        [](kvt_handle* h, std::uint32_t t, void* in, int* e) -> void* {                                                \
          return table##_##st##_##key##_get_first(h, t, in, e);                                                        \
        },                                                                                                             \
        [](kvt_handle* h, std::uint32_t t, void* in, void* r, int* e) -> void* {                                       \
          return table##_##st##_##key##_get_next(h, t, in, r, e);                                                      \
        },                                                                                                             \
        [](kvt_handle* h, std::uint32_t t, void* r, int* e) { (void)table##_destroy_record(h, t, r, e); },             \
        [](kvt_handle* h, std::uint32_t t, void* in, void* r, int* e) { (void)table##_insert(h, t, in, r, e); },       \
        [](kvt_handle* h, std::uint32_t t, void* in, void* r, int* e) { (void)table##_delete(h, t, in, r, e); },       \
        [](kvt_handle* h, std::uint32_t t, void* r) -> void* { return table##_##st##_get_field(h, t, r); },            \
        [](kvt_handle* h, std::uint32_t t, void* r) -> std::uint32_t { return table##_table_record_len(h, t, r); },    \
        [](kvt_handle* h, std::uint32_t t, std::uint8_t* b, void* r, std::int32_t n, int* e) -> std::uint32_t {        \
          return table##_table_record_marshal(h, t, b, r, n, e);                                                       \
        },                                                                                                             \
        [](kvt_handle* h, std::uint32_t t, void** r, const std::uint8_t* b, std::int32_t n, std::uint32_t u, int* e)   \
            -> std::uint32_t { return table##_table_record_unmarshal(h, t, r, b, n, u, e); },                          \
        [](kvt_handle* h, std::uint32_t t, char* b, void* r, std::int32_t n, int* e) -> std::uint32_t {                \
          return table##_table_record_to_xml(h, t, b, r, n, e);                                                        \
        },                                                                                                             \
        [](kvt_handle* h, std::uint32_t t, kvt_xml_document* d, int* e, char* m, std::size_t n) -> void* {             \
          return table##_table_record_from_xml(h, t, d, e, m, n);                                                      \
        },                                                                                                             \
        [](kvt_handle* h, std::uint32_t t) -> void* { return table##_pkey_create(h, t); },                             \
        [](kvt_handle* h, std::uint32_t t, void* o) { (void)table##_pkey_destroy(h, t, o); },                          \
        [](kvt_handle* h, std::uint32_t t, const char* l, char* b, void* o, std::int32_t n, std::uint32_t s, int* e)   \
            -> std::uint32_t { return st##_to_xml(h, t, l, b, o, n, s, e); },                                          \
        [](kvt_handle* h, std::uint32_t t, const char* p, kvt_xml_document* d, void* o, int* e, char* m,               \
           std::size_t n) { (void)st##_from_xml(h, t, p, d, o, e, m, n); },                                            \
        [](kvt_handle* h, std::uint32_t t, void** p, const std::uint8_t* b, std::int32_t n, int* e) -> std::uint32_t { \
          return table##_table_pkey_unmarshal(h, t, p, b, n, e);                                                       \
        },                                                                                                             \
        [](const void* a, const void* b) -> std::int32_t { return st##_compare(a, b); } \
  }

const Table kTables[] = {
    TABLE(tbl_wlan, st_wlan, wlan_id, "campus", kWlanKeys, kWlanReferences, nullptr),
    TABLE(tbl_apgroup_wlan, st_wlan, wlan_id, "default-group", kGroupKeys, kWlanReferences, nullptr),
    TABLE(tbl_wlan_ifid, st_wlan_ifid, wlan_id, "campus", kIfidKeys, kNoReferences, nullptr),
    TABLE(tbl_internal_wlan_radio_policy, st_internal_wlan_radio_policy, band, "campus", kRadioPolicyKeys,
          kRadioPolicyReferences, parent_of_radio_policy),
    TABLE(tbl_mpsk_keys_int, st_mpsk_key_info, priority, "campus", kMpskKeys, kMpskReferences, parent_of_mpsk_key),
    TABLE(tbl_wlan_profile_assoicated_tag, st_profile_assoicated_tag, tag_name, "campus", kTagKeys, kNoReferences,
          nullptr),
    TABLE(tbl_wireless_aaa_policy, st_wireless_aaa_policy, policy_name, "campus", kAaaPolicyKeys, kNoReferences,
          nullptr),
};
#undef TABLE

// Where the value of an enumerated object lies behind its header.
constexpr std::size_t kEnumValueOffset = 8;

}  // namespace

const void* Key::argument(kvt_handle* handle, std::uint32_t txn, void* payload) const {
  int err = 0;
  void* field = field_of(handle, txn, payload, &err);
  if (field == nullptr || kind != KeyKind::kEnum) return field;
  return static_cast<const std::uint8_t*>(field) + kEnumValueOffset;
}

std::span<const Table> tables() { return kTables; }

const Table* table_named(std::string_view name) {
  for (const Table& table : kTables) {
    if (name == table.name) return &table;
  }
  return nullptr;
}

const Table* table_with_luid(const std::uint8_t* luid) {
  for (const Table& table : kTables) {
    if (std::memcmp(luid, table.luid, 16) == 0) return &table;
  }
  return nullptr;
}

const Table& profiles() { return kTables[0]; }
const Table& group_profiles() { return kTables[1]; }

}  // namespace wlanctl

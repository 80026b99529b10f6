// What the tests of tables share: the operations of each table under one roof, and handles whose store is watched.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <unordered_set>
#include <vector>

#include "kvt/kvt.h"
#include "zarn_tag_common/zarn_tag_common.h"
#include "zarn_wlan/zarn_wlan.h"

namespace table_test {

enum class KeyKind { kWord, kByte, kText, kBand };

using Find = void* (*)(kvt_handle*, std::uint32_t, void*, const void*, int*);
using Edge = void* (*)(kvt_handle*, std::uint32_t, void*, int*);
using Next = void* (*)(kvt_handle*, std::uint32_t, void*, void*, int*);
using Step = void* (*)(kvt_handle*, std::uint32_t, void*, void*, std::uint32_t, std::uint32_t, std::uint32_t,
                       std::uint32_t, int*);

using Sources = void* (*)(kvt_handle*, std::uint32_t, void*, const void*, std::uint32_t, std::uint32_t, int*);
using FindSource = void* (*)(kvt_handle*, std::uint32_t, void*, const void*, std::uint32_t, int*);
using EdgeSource = void* (*)(kvt_handle*, std::uint32_t, void*, std::uint32_t, int*);
using NextSource = void* (*)(kvt_handle*, std::uint32_t, void*, void*, std::uint32_t, int*);

struct KeyOps {
  const char* name;
  KeyKind kind;
  void* (*field)(kvt_handle*, std::uint32_t, void*, int*);
  e_avl_compare compare;
  void (*walk)(void*, int (*)(void*, void*), void*, int*);
  void* (*search_internal)(kvt_handle*, std::uint32_t, void*, const void*, std::uint32_t, std::uint32_t, std::uint32_t,
                           std::uint32_t, std::uint32_t, std::uint32_t, int*);
  Find search, search_nearest;
  void* (*search_cr)(kvt_handle*, void*, const void*, std::uint32_t, std::uint32_t);
  Edge first, last;
  Next next, prev;
  Find next_by_key, prev_by_key;
  Next sub_next;
  Step next_internal, prev_internal;
  FindSource search_w_src, next_by_key_w_src;
  Sources search_not_pending, next_by_key_not_pending, prev_by_key_not_pending;
  EdgeSource first_by_src, first_not_pending, last_not_pending;
  Edge first_ignore_src;
  NextSource next_by_src, next_not_pending, prev_not_pending;
  Next next_ignore_src, shadow;
  void* (*get_cr)(kvt_handle*, void*, std::uint32_t, void*, std::uint32_t, std::uint32_t);
};

struct TableOps {
  const char* name;
  const char* payload;
  std::uint32_t size, record_size;
  std::vector<KeyOps> keys;
  const std::uint8_t* luid;
  const char* luid_text;
  const char* full_name;
  const kvt_type_record *record, *row;
  void* (*open)(kvt_handle*, std::uint32_t, const char*, std::uint32_t, int*);
  void (*close)(kvt_handle*, std::uint32_t, void*, int*);
  const std::uint8_t* (*get_luid)(kvt_handle*, std::uint32_t, const void*, int*);
  void* (*create)(kvt_handle*, std::uint32_t, int*);
  void* (*create_w_src)(kvt_handle*, std::uint32_t, std::uint32_t, int*);
  void* (*create_cr)(kvt_handle*, std::uint32_t);
  std::uint32_t (*add_ref)(kvt_handle*, std::uint32_t, void*, int*);
  std::uint32_t (*destroy)(kvt_handle*, std::uint32_t, void*, int*);
  std::uint32_t (*destroy_cr)(kvt_handle*, void*);
  void* (*get_field)(kvt_handle*, std::uint32_t, void*);
  void* (*detach)(kvt_handle*, std::uint32_t, void*);
  void (*set_field)(kvt_handle*, std::uint32_t, void*, void*);
  void (*replace_field)(kvt_handle*, std::uint32_t, void*, void*);
  void (*walk_cr)(kvt_handle*, void*, std::uint32_t, int (*)(void*, void*), void*);
  std::uint32_t (*count)(kvt_handle*, std::uint32_t, void*);
  std::uint32_t (*count_by_src)(kvt_handle*, std::uint32_t, void*, std::uint32_t);
  std::uint32_t (*count_cr)(kvt_handle*, void*);
  void (*insert)(kvt_handle*, std::uint32_t, void*, void*, int*);
  void (*pkey_insert)(kvt_handle*, std::uint32_t, void*, void*, int*);
  std::int32_t (*insert_cr)(kvt_handle*, void*, void*, std::uint32_t);
  void (*remove)(kvt_handle*, std::uint32_t, void*, void*, int*);
  void (*pkey_remove)(kvt_handle*, std::uint32_t, void*, void*, int*);
  std::int32_t (*remove_cr)(kvt_handle*, void*, void*, std::uint32_t);
  std::uint32_t (*marshal)(kvt_handle*, std::uint32_t, std::uint8_t*, void*, std::int32_t, int*);
  std::int32_t (*marshal_cr)(kvt_handle*, void*, std::uint8_t*, std::int32_t);
  std::uint32_t (*unmarshal)(kvt_handle*, std::uint32_t, void**, const std::uint8_t*, std::int32_t, std::uint32_t,
                             int*);
  std::uint32_t (*len)(kvt_handle*, std::uint32_t, void*);
  std::uint32_t (*len_cr)(kvt_handle*, void*);
  std::uint32_t (*to_xml)(kvt_handle*, std::uint32_t, char*, void*, std::int32_t, int*);
  std::int32_t (*to_xml_cr)(kvt_handle*, void*, char*, std::int32_t);
  void* (*from_xml)(kvt_handle*, std::uint32_t, kvt_xml_document*, int*, char*, std::size_t);
  void* (*search)(kvt_handle*, std::uint32_t, void*, const void*, std::uint32_t, int*);
  Find next_by_key, prev_by_key;
  Edge pkey_first, pkey_last;
  Next pkey_next, pkey_prev, pkey_sub_next;
  void* (*pkey_create)(kvt_handle*, std::uint32_t);
  void (*pkey_destroy)(kvt_handle*, std::uint32_t, void*);
  void* (*payload_create)(kvt_handle*, std::uint32_t);
  void (*payload_destroy)(kvt_handle*, std::uint32_t, void*);
  std::uint32_t (*payload_marshal)(kvt_handle*, std::uint32_t, std::uint8_t*, const void*, std::int32_t, int*);
  std::int32_t (*payload_compare)(const void*, const void*);
  Sources search_w_src;
  FindSource next_by_key_w_src;
  EdgeSource pkey_first_by_src;
  NextSource pkey_next_by_src;
  Edge pkey_first_ignore_src;
  Next pkey_next_ignore_src, pkey_shadow;
  void* (*open_by_id)(kvt_handle*, std::uint32_t, std::uint64_t, std::uint32_t, int*);
  void* (*open_auto_id)(kvt_handle*, std::uint32_t, std::uint32_t, int*);
  void* (*open_ior_name)(kvt_handle*, std::uint32_t, const char*, std::uint32_t, std::uint32_t, std::uint32_t, int*);
  void* (*open_ior_id)(kvt_handle*, std::uint32_t, std::uint64_t, std::uint32_t, std::uint32_t, std::uint32_t, int*);
  void* (*open_cr)(kvt_handle*, std::uint32_t, std::uint32_t, const char*, std::uint64_t);
  void (*close_cr)(kvt_handle*, void*, std::uint32_t);
  void (*free)(kvt_handle*, std::uint32_t, void*, int*);
  void (*request_free)(kvt_handle*, std::uint32_t, void*, int*);
  void (*request_destroy)(kvt_handle*, std::uint32_t, void*, void*, int*);
  std::int32_t (*request_destroy_cr)(kvt_handle*, void*, void*);
  std::uint32_t (*print)(kvt_handle*, std::uint32_t, char*, void*, std::int32_t, int*);
  std::int32_t (*print_cr)(kvt_handle*, void*, char*, std::int32_t);
  std::uint32_t (*pkey_len)(kvt_handle*, std::uint32_t, void*, int*);
  std::uint32_t (*pkey_marshal)(kvt_handle*, std::uint32_t, std::uint8_t*, void*, std::int32_t, int*);
  std::uint32_t (*pkey_unmarshal)(kvt_handle*, std::uint32_t, void**, const std::uint8_t*, std::int32_t, int*);
  std::uint32_t (*pkey_print)(kvt_handle*, std::uint32_t, void*, void*, char*, std::int32_t, int*);
  std::uint32_t (*payload_print)(kvt_handle*, std::uint32_t, char*, std::uint32_t, const char*, const void*,
                                 std::int32_t, int*);
  std::uint32_t (*payload_len)(kvt_handle*, std::uint32_t, const void*);
};

#define TABLE_TEST_KEY(P, S, K, kind)                                                                                 \
  KeyOps {                                                                                                            \
#K, KeyKind::kind, S##_##K##_get, P##_##K##_avl_compare, P##_##K##_walk, P##_##K##_search_internal,               \
        P##_##K##_search, P##_##K##_search_nearest, P##_##K##_search_cr, P##_##K##_get_first, P##_##K##_get_last,     \
        P##_##K##_get_next, P##_##K##_get_prev, P##_##K##_get_next_by_key, P##_##K##_get_prev_by_key,                 \
        P##_##K##_get_sub_next, P##_##K##_get_next_internal, P##_##K##_get_prev_internal, P##_##K##_search_w_src,     \
        P##_##K##_get_next_by_key_w_src, P##_##K##_search_not_pending_destroy,                                        \
        P##_##K##_get_next_by_key_not_pending_destroy, P##_##K##_get_prev_by_key_not_pending_destroy,                 \
        P##_##K##_get_first_by_src, P##_##K##_get_first_not_pending_destroy, P##_##K##_get_last_not_pending_destroy,  \
        P##_##K##_get_first_ignore_src, P##_##K##_get_next_by_src, P##_##K##_get_next_not_pending_destroy,            \
        P##_##K##_get_prev_not_pending_destroy, P##_##K##_get_next_ignore_src, P##_##K##_get_shadow, P##_##K##_get_cr \
  }
#define TABLE_TEST_TABLE(T, S, size, record_size, ...)                                                                 \
  TableOps {                                                                                                           \
#T, #S, size, record_size,                                                                                         \
        {__VA_ARGS__ }, table_##T##_luid, table_##T##_luid_text, table_##T##_name, &_##T##_table_type_info_internal,   \
         &_##T##_table_record_type_info_internal, T##_table_open, T##_table_close, T##_get_luid, T##_create_record,    \
         T##_create_record_w_src, T##_record_create_cr, T##_record_add_ref, T##_destroy_record, T##_record_destroy_cr, \
         T##_##S##_get_field, T##_##S##_get_field_detach, T##_##S##_set_field, T##_##S##_free_and_set_field,           \
         T##_record_walk_cr, T##_table_get_count, T##_table_get_count_by_src, T##_table_get_count_cr, T##_insert,      \
         T##_pkey_insert, T##_insert_cr, T##_delete, T##_pkey_delete, T##_delete_cr, T##_table_record_marshal,         \
         T##_record_marshal_cr, T##_table_record_unmarshal, T##_table_record_len, T##_record_len_cr,                   \
         T##_table_record_to_xml, T##_record_toxml_cr, T##_table_record_from_xml, T##_search, T##_get_next_by_key,     \
         T##_get_prev_by_key, T##_pkey_get_first, T##_pkey_get_last, T##_pkey_get_next, T##_pkey_get_prev,             \
         T##_pkey_get_sub_next, T##_pkey_create, T##_pkey_destroy, S##_create, S##_destroy, S##_marshal, S##_compare,  \
         T##_search_w_src, T##_get_next_by_key_w_src, T##_pkey_get_first_by_src, T##_pkey_get_next_by_src,             \
         T##_pkey_get_first_ignore_src, T##_pkey_get_next_ignore_src, T##_pkey_get_shadow, T##_table_open_by_id,       \
         T##_table_open_auto_id, T##_table_open_by_ior_with_name, T##_table_open_by_ior_with_id, T##_table_open_cr,    \
         T##_table_close_cr, T##_table_free, T##_request_table_free, T##_request_record_destroy,                       \
         T##_request_record_destroy_cr, T##_table_record_print, T##_record_print_cr, T##_table_pkey_len,               \
         T##_table_pkey_marshal, T##_table_pkey_unmarshal, T##_pkey_print, S##_print, S##_len                          \
  }

inline const std::vector<TableOps> kTables = {
    TABLE_TEST_TABLE(tbl_internal_wlan_radio_policy, st_internal_wlan_radio_policy, 376, 72,
                     TABLE_TEST_KEY(tbl_internal_wlan_radio_policy_st_internal_wlan_radio_policy,
                                    st_internal_wlan_radio_policy, band, kBand)),
    TABLE_TEST_TABLE(tbl_wlan_profile_assoicated_tag, st_profile_assoicated_tag, 376, 72,
                     TABLE_TEST_KEY(tbl_wlan_profile_assoicated_tag_st_profile_assoicated_tag,
                                    st_profile_assoicated_tag, tag_name, kText)),
    TABLE_TEST_TABLE(tbl_mpsk_keys_int, st_mpsk_key_info, 376, 72,
                     TABLE_TEST_KEY(tbl_mpsk_keys_int_st_mpsk_key_info, st_mpsk_key_info, priority, kByte)),
    TABLE_TEST_TABLE(tbl_wlan, st_wlan, 384, 88, TABLE_TEST_KEY(tbl_wlan_st_wlan, st_wlan, wlan_id, kWord),
                     TABLE_TEST_KEY(tbl_wlan_st_wlan, st_wlan, profile_name, kText)),
    TABLE_TEST_TABLE(tbl_apgroup_wlan, st_wlan, 392, 96,
                     TABLE_TEST_KEY(tbl_apgroup_wlan_st_wlan, st_wlan, wlan_id, kWord),
                     TABLE_TEST_KEY(tbl_apgroup_wlan_st_wlan, st_wlan, profile_name, kText),
                     TABLE_TEST_KEY(tbl_apgroup_wlan_st_wlan, st_wlan, ssid, kText)),
    TABLE_TEST_TABLE(tbl_wlan_ifid, st_wlan_ifid, 376, 72,
                     TABLE_TEST_KEY(tbl_wlan_ifid_st_wlan_ifid, st_wlan_ifid, wlan_id, kWord)),
    TABLE_TEST_TABLE(
        tbl_wireless_aaa_policy, st_wireless_aaa_policy, 376, 72,
        TABLE_TEST_KEY(tbl_wireless_aaa_policy_st_wireless_aaa_policy, st_wireless_aaa_policy, policy_name, kText)),
};

inline const TableOps& table_named(const std::string& name) {
  for (const TableOps& table : kTables) {
    if (name == table.name) return table;
  }
  std::abort();
}

// Stored formats, at the places where other programs find them.
template <class T>
T at(const void* block, std::size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const char*>(block) + offset, sizeof value);
  return value;
}
inline std::uint32_t record_count(const void* table) { return at<std::uint32_t>(table, 244); }
inline std::uint32_t pending_count(const void* table) { return at<std::uint32_t>(table, 248); }
inline std::uint32_t shadow_count(const void* table) { return at<std::uint32_t>(table, 364); }
inline std::uint32_t record_table(const void* record) { return at<std::uint32_t>(record, 8); }
inline std::uint32_t record_refs(const void* record) { return at<std::uint32_t>(record, 28); }
inline std::uint16_t record_tenant(const void* record) { return at<std::uint16_t>(record, 32); }
inline std::uint32_t record_flags(const void* record) { return at<std::uint32_t>(record, 36); }
inline std::uint8_t record_source(const void* record) { return at<std::uint8_t>(record, 40); }
inline void* record_payload(const TableOps& table, const void* record) {
  return kvt_ref_at(at<std::uint32_t>(record, 56 + 12 * table.keys.size()));
}

enum class Kind { kPrivate, kDatabase };

// A handle over a store of its own whose allocations are counted and can be made to fail. One at a time.
class Rig {
 public:
  explicit Rig(Kind kind = Kind::kPrivate, int tracking = 0, std::uint32_t containment = 0) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.tracking = tracking;
    options.containment = containment;
    options.create = 1;
    if (kind == Kind::kPrivate) {
      handle_ = kvt_handle_open_private(&options, &err);
    } else {
      char name[] = "/tmp/zarn_tables_XXXXXX";
      directory_ = mkdtemp(name);
      handle_ = kvt_handle_open_database(path().c_str(), &options, &err);
    }
    if (!handle_) std::abort();
    current_ = this;
    alloc_ = handle_->store_alloc;
    free_ = handle_->store_free;
    handle_->store_alloc = [](void* store, std::uint32_t txn, std::uint32_t size) -> void* {
      ++current_->allocations;
      current_->last_size = size;
      current_->asked += size;
      if (current_->fail_after >= 0 && current_->fail_after-- == 0) return nullptr;
      void* block = current_->alloc_(store, txn, size);
      if (block) current_->blocks_.insert(block);
      return block;
    };
    handle_->store_free = [](void* store, std::uint32_t txn, void* block) {
      current_->blocks_.erase(block);
      current_->free_(store, txn, block);
    };
    fenlog_set_sink(
        [](void*, std::uint32_t level, const char* line) {
          current_->lines.push_back({level, line});
        },
        nullptr);
  }
  ~Rig() {
    fenlog_set_sink(nullptr, nullptr);
    mt_set_tenant_id(0);
    kvt_handle_close(handle_);
    if (!directory_.empty()) std::filesystem::remove_all(directory_);
  }
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  operator kvt_handle*() const { return handle_; }
  kvt_handle* operator->() const { return handle_; }
  std::uint32_t txn() const { return handle_->default_txn; }
  void begin() { kvtdb_txn_begin(handle_, &err); }
  void commit() { kvtdb_txn_commit(handle_, handle_->default_txn, &err); }
  void abort() { kvtdb_txn_abort(handle_, handle_->default_txn, &err); }
  std::string path() const { return directory_ + "/db"; }  // of a database
  std::size_t live_blocks() const { return blocks_.size(); }
  // The error slot's content, which is taken out.
  int take_error() {
    const int taken = err;
    err = 0;
    return taken;
  }
  std::string take_line() {
    const std::string line = lines.empty() ? "" : lines.back().text;
    lines.clear();
    return line;
  }

  struct Line {
    std::uint32_t level;
    std::string text;
  };
  std::vector<Line> lines;
  int err = 0;
  int fail_after = -1;  // allocations to let pass before one fails; -1: none fails
  unsigned allocations = 0;
  std::uint64_t asked = 0;      // bytes of all allocations
  std::uint32_t last_size = 0;  // of the latest one

 private:
  static inline Rig* current_;
  kvt_handle* handle_ = nullptr;
  std::string directory_;
  std::unordered_set<void*> blocks_;
  decltype(kvt_handle::store_alloc) alloc_;
  decltype(kvt_handle::store_free) free_;
};

// Key values are numbered; the numbers don't rise with the keys, and among the texts are one that is empty, prefixes,
// and bytes above 127.
inline std::string key_text(unsigned n) {
  static const char* const kTexts[] = {"staff",  "guest", "",  "gues", "\xC3\xA9tage", "Staff", "staff ", "lab-2",
                                       "lab-10", "lab",   "z", "a"};
  constexpr unsigned kCount = sizeof kTexts / sizeof *kTexts;
  return n < kCount ? kTexts[n] : "site-" + std::to_string(n);
}
inline std::uint32_t key_number(KeyKind kind, unsigned n) {
  if (kind == KeyKind::kBand) return n % 3;
  return kind == KeyKind::kByte ? (n * 37 + 200) & 0xFF : n * 0x2F3A91C5u + 0x7FFFFFF0u;
}
inline unsigned key_values(KeyKind kind) { return kind == KeyKind::kBand ? 3 : 12; }
// The key as bytes whose order is the index's.
inline std::string key_order(KeyKind kind, unsigned n) {
  if (kind == KeyKind::kText) return key_text(n);
  const std::uint32_t value = key_number(kind, n);
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xFF);
  return bytes;
}
// Where the key lies in a payload, in the form that a search takes.
inline void* key_place(const Rig& rig, const KeyOps& key, void* payload) {
  int err = 0;
  char* field = static_cast<char*>(key.field(rig, rig.txn(), payload, &err));
  return key.kind == KeyKind::kBand ? field + 8 : field;
}
inline void set_key(Rig& rig, const KeyOps& key, void* payload, unsigned n) {
  void* place = key_place(rig, key, payload);
  if (key.kind == KeyKind::kText) {
    const std::string text = key_text(n);
    kvt_vstring_assign(rig, rig.txn(), place, text.data(), text.size(), &rig.err);
  } else if (key.kind == KeyKind::kByte) {
    u_int8_set_value(rig, rig.txn(), place, static_cast<std::uint8_t>(key_number(key.kind, n)), &rig.err);
  } else {
    u_int32_set_value(rig, rig.txn(), place, key_number(key.kind, n), &rig.err);
  }
}
// A record with a payload that has these keys, one number for each.
inline void* make_record(Rig& rig, const TableOps& table, std::uint32_t source, const std::vector<unsigned>& keys) {
  void* record = table.create_w_src(rig, rig.txn(), source, &rig.err);
  void* payload = table.payload_create(rig, rig.txn());
  for (std::size_t k = 0; k < table.keys.size(); ++k) set_key(rig, table.keys[k], payload, keys[k]);
  table.set_field(rig, rig.txn(), record, payload);
  return record;
}
inline void* make_record(Rig& rig, const TableOps& table, std::uint32_t source = 1, unsigned n = 0) {
  return make_record(rig, table, source, {n, n, n});
}
inline void* open_table(Rig& rig, const TableOps& table, const char* name = "t") {
  return table.open(rig, rig.txn(), name, 0, &rig.err);
}
inline int check_index(const TableOps& table, void* block, std::size_t key) {
  const char* root = static_cast<char*>(block) + 368 + 8 * key;
  return e_avl_check(at<std::uint32_t>(root, 0), reinterpret_cast<const std::uint32_t*>(root + 4),
                     table.keys[key].compare);
}

inline void PrintTo(const TableOps& table, std::ostream* out) { *out << table.name; }
inline std::string table_name(const testing::TestParamInfo<TableOps>& info) { return info.param.name; }

class EveryTable : public testing::TestWithParam<TableOps> {};

}  // namespace table_test

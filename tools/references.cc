#include "tools/references.h"

#include <zarn_wlan/zarn_wlan.h>

#include "tools/text.h"

namespace wlanctl {
namespace {

constexpr std::string_view kParentField = "parent_apfvap_profilename_key";

void refer(const Table& table, const Reference& reference, kvt_handle* handle, std::uint32_t txn, void* payload,
           void* target) {
  int err = 0;
  if (reference.get(handle, txn, payload, &err) == target) return;
  err = 0;
  reference.set(handle, txn, payload, target, &err);
  if (err != 0) throw Failure(std::string(table.payload) + " " + reference.field + " cannot be set" + reason(err));
}

std::string profile_name_of(kvt_handle* handle, void* profile) {
  int err = 0;
  const void* name = st_wlan_profile_name_get(handle, KVT_NO_TXN, profile, &err);
  return name != nullptr ? std::string(kvt_vstring_text(name), kvt_vstring_length(name)) : std::string();
}

std::string parent_name_of(kvt_handle* handle, const Table& table, void* payload) {
  int err = 0;
  const void* name = table.parent_name(handle, KVT_NO_TXN, payload, &err);
  return name != nullptr ? std::string(kvt_vstring_text(name), kvt_vstring_length(name)) : std::string();
}

void* profile_named(const Store& store, const Table& table, void* in, const void* name) {
  for (const Key& key : table.keys) {
    if (std::string_view(key.field) != "profile_name") continue;
    int err = 0;
    void* record = key.search(store.handle(), KVT_NO_TXN, in, name, &err);
    if (err != 0) throw Failure(std::string(table.name) + " cannot be searched" + reason(err));
    return record;
  }
  return nullptr;
}

// Ties one record to its profiles; `own` is the table that holds it.
void tie(const Store& store, std::uint32_t txn, const Table& table, void* own, void* payload) {
  kvt_handle* handle = store.handle();
  int err = 0;
  const void* name = table.parent_name(handle, txn, payload, &err);
  void* profiles_in = store.table(profiles());
  if (name == nullptr || kvt_vstring_length(name) == 0 || profiles_in == nullptr ||
      profile_named(store, profiles(), profiles_in, name) == nullptr) {
    return;
  }
  for (const Reference& up : table.references) {
    if (up.target == profiles().name) refer(table, up, handle, txn, payload, profiles_in);
  }
  for (const Table* holder : {&profiles(), &group_profiles()}) {
    void* in = store.table(*holder);
    void* record = in != nullptr ? profile_named(store, *holder, in, name) : nullptr;
    if (record == nullptr) continue;
    for (const Reference& down : holder->references) {
      if (down.target == table.name) {
        refer(*holder, down, handle, txn, holder->payload_of(handle, txn, record), own);
      }
    }
  }
}

// Of a table that a payload refers to, the records that are meant.
bool is_meant(kvt_handle* handle, const Table& from, void* payload, const Table& to, void* other) {
  if (to.parent_name != nullptr) return parent_name_of(handle, to, other) == profile_name_of(handle, payload);
  if (from.parent_name != nullptr) return profile_name_of(handle, other) == parent_name_of(handle, from, payload);
  return true;
}

// In a comment two hyphens must not stand side by side.
std::string comment(std::string text) {
  for (std::size_t at = 0; (at = text.find("--", at)) != std::string::npos; ++at) text.replace(at, 2, "- -");
  return "<!-- " + text + " -->\n";
}

}  // namespace

void tie_records(const Store& store, std::uint32_t txn) {
  for (const Table& table : tables()) {
    void* own = table.parent_name != nullptr ? store.table(table) : nullptr;
    if (own == nullptr) continue;
    for_each_record(store, table,
                    [&](void* record) { tie(store, txn, table, own, table.payload_of(store.handle(), txn, record)); });
  }
}

void untie(const Table& table, kvt_handle* handle, std::uint32_t txn, void* payload) {
  for (const Reference& reference : table.references) {
    int err = 0;
    reference.set(handle, txn, payload, nullptr, &err);
    if (err != 0)
      throw Failure(std::string(table.payload) + " " + reference.field + " cannot be cleared" + reason(err));
  }
}

bool is_tie(const Table& table, std::string_view path) { return table.parent_name != nullptr && path == kParentField; }

std::string reference_lines(const Store& store, const Table& table, void* payload) {
  kvt_handle* handle = store.handle();
  std::string lines;
  for (const Reference& reference : table.references) {
    int err = 0;
    void* in = reference.get(handle, KVT_NO_TXN, payload, &err);
    const std::string field = reference.field;
    if (err != 0) {
      lines += comment(field + " leads nowhere in this database");
      continue;
    }
    if (in == nullptr) continue;
    const Table& target = *table_named(reference.target);
    std::string records;
    for (void* record = target.first(handle, KVT_NO_TXN, in, &err); record != nullptr;
         record = target.next(handle, KVT_NO_TXN, in, record, &err)) {
      void* other = target.payload_of(handle, KVT_NO_TXN, record);
      if (is_meant(handle, table, payload, target, other)) {
        records += (records.empty() ? ": " : "; ") + describe(handle, target, other);
      }
    }
    if (err != 0) throw Failure(std::string(target.name) + " cannot be read" + reason(err));
    lines += comment(field + " leads to " + target.name + records);
  }
  return lines;
}

}  // namespace wlanctl

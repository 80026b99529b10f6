// The table of contents of a database, its list of tables, and the counts of records by tenant.
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/handle.h"
#include "platform/reach.h"
#include "platform/registry.h"
#include "platform/store_blocks.h"
#include "platform/table_blocks.h"

namespace kvt {
namespace {

constexpr std::uint32_t kContentsSize = 376;

TableObject* table_at(void* table) { return static_cast<TableObject*>(table); }
const TableObject* table_at(const void* table) { return static_cast<const TableObject*>(table); }

// What a table is found by. An empty path stands for a numbered table.
struct TableKey {
  const std::uint8_t* luid;
  std::uint32_t luid_length;
  const char* path;
  std::size_t path_length;
  std::uint64_t id;
};

TableKey key_of(const void* table) {
  int err = 0;
  const auto link = load<std::uint32_t>(table);
  const bool led = is_static_number(link) || Reach(table).has(link);
  const kvt_type_record* record = led ? kvt_get_manifested_type_info(table, &err) : nullptr;
  if (in_cage(record) && !Reach(table).has(cage_ref(record), sizeof *record)) record = nullptr;
  const char* path = table_at(table)->table_name;
  bool by_name = table_at(table)->id_mode == 0;
  return {record ? record->luid : nullptr, sizeof record->luid, by_name ? path : nullptr,
          by_name ? strnlen(path, kTableNameSize) : 0, load<std::uint64_t>(table_at(table)->table_id)};
}

bool operator==(const TableKey& a, const TableKey& b) {
  if ((a.path == nullptr) != (b.path == nullptr) || !a.luid || !b.luid || a.luid_length != b.luid_length) return false;
  if (std::memcmp(a.luid, b.luid, a.luid_length) != 0) return false;
  if (!a.path) return a.id == b.id;
  return a.path_length == b.path_length && std::memcmp(a.path, b.path, a.path_length) == 0;
}

void* find(const StoreRoots* roots, const TableKey& key) {
  // A writer may be at the list.
  const Reach reach(roots);
  std::uint32_t at = roots->contents_entries;
  for (std::uint32_t left = kSlotSize / sizeof(TocEntry); left && reach.has(at); --left) {
    const auto* entry = static_cast<TocEntry*>(cage_at(at));
    const std::uint32_t table = entry->table;
    if (reach.has(table) && key_of(cage_at(table)) == key) return cage_at(table);
    at = entry->next;
  }
  return nullptr;
}

Store& store_of(kvt_handle* handle) { return *handle->runtime->store; }

void free_counters(Store& store, std::uint32_t txn, void* table) {
  std::uint32_t* head = &table_at(table)->counters;
  std::uint32_t at = *head;
  if (!at || !store.write(head, 0u, txn)) return;
  while (at) {
    std::uint32_t next = static_cast<TenantCounter*>(cage_at(at))->next;
    store.free(store.open_txn(), cage_at(at));
    at = next;
  }
}

}  // namespace
}  // namespace kvt

using namespace kvt;

kvt_table_list* kvtlib_database_table_toc_get(kvt_handle* handle, uint32_t, int* err) {
  return *err ? nullptr : &store_of(handle).roots()->tables;
}

void* kvtdb_database_toc_get(kvt_handle* handle, uint32_t txn, int* err) {
  if (*err) return nullptr;
  Store& store = store_of(handle);
  StoreRoots* roots = store.roots();
  if (roots->contents || !store.announce_range(&roots->contents, sizeof roots->contents, txn)) {
    return cage_at(roots->contents);
  }
  void* contents = store.alloc(store.open_txn(), kContentsSize);
  if (!contents) {
    kvt_store_epoch_err(handle, ENOMEM, err);
    return nullptr;
  }
  std::memset(contents, 0, kContentsSize);
  roots->contents = cage_ref(contents);
  return contents;
}

void* kvtdb_database_toc_get_table_root(kvt_handle* handle, uint32_t, const char* path, size_t path_length, uint64_t id,
                                        const uint8_t* luid, uint32_t luid_length, uint32_t by_name, int* err) {
  if (*err) return nullptr;
  TableKey key{luid, luid_length, by_name ? path : nullptr, by_name && path ? strnlen(path, path_length) : 0, id};
  return by_name && !path ? nullptr : find(store_of(handle).roots(), key);
}

void kvtdb_database_toc_insert(kvt_handle* handle, uint32_t txn, void* table, uint32_t, int* err) {
  if (*err) return;
  Store& store = store_of(handle);
  StoreRoots* roots = store.roots();
  if (find(roots, key_of(table))) return kvt_store_epoch_err(handle, EEXIST, err);
  if (!store.announce_range(&roots->contents_entries, sizeof roots->contents_entries, txn)) {
    return kvt_store_epoch_err(handle, EPERM, err);
  }
  void* room = store.alloc(store.open_txn(), sizeof(TocEntry));
  if (!room) return kvt_store_epoch_err(handle, ENOMEM, err);
  roots->contents_entries = cage_ref(new (room) TocEntry{roots->contents_entries, cage_ref(table)});
}

void kvtdb_database_toc_delete(kvt_handle* handle, uint32_t txn, void* table, int* err) {
  if (*err) return;
  Store& store = store_of(handle);
  uint32_t* link = &store.roots()->contents_entries;
  while (*link && static_cast<TocEntry*>(cage_at(*link))->table != cage_ref(table)) {
    link = &static_cast<TocEntry*>(cage_at(*link))->next;
  }
  if (!*link) return kvt_store_epoch_err(handle, ENOENT, err);
  if (kvtdb_table_are_cursors_enabled(handle, txn, table, err)) return kvt_store_epoch_err(handle, EBUSY, err);
  auto* entry = static_cast<TocEntry*>(cage_at(*link));
  if (!store.write(link, entry->next, txn)) return kvt_store_epoch_err(handle, EPERM, err);
  store.free(store.open_txn(), entry);
  if (!table_at(table)->record_count) free_counters(store, txn, table);
  uint32_t* flags = &table_at(table)->table_flags;
  const void* contents = cage_at(store.roots()->contents);
  if (contents && table_at(contents)->table_flags & kTocDeferredFree) {
    store.write(flags, *flags | kTableOnGcList, txn);
  }
}

void kvtdb_get_tenant_counter(kvt_handle*, uint32_t, void* table, uint32_t* result, uint16_t tenant,
                              const uint8_t* source) {
  *result = 0;
  const Reach reach(table);  // a writer may be at the list
  std::uint32_t at = table_at(table)->counters;
  for (std::uint32_t left = kSlotSize / sizeof(TenantCounter); left && reach.has(at); --left) {
    const auto* counter = static_cast<TenantCounter*>(cage_at(at));
    if (counter->tenant == tenant && (!source || counter->source == *source)) *result += counter->count;
    at = counter->next;
  }
}

void kvtdb_update_tenant_counter(kvt_handle* handle, uint32_t txn, void* table, uint32_t add, uint16_t tenant,
                                 uint8_t source, int* err) {
  if (*err) return;
  Store& store = store_of(handle);
  uint32_t* head = &table_at(table)->counters;
  uint32_t* link = head;
  auto* counter = static_cast<TenantCounter*>(cage_at(*link));
  while (counter && (counter->tenant != tenant || counter->source != source)) {
    link = &counter->next;
    counter = static_cast<TenantCounter*>(cage_at(*link));
  }
  if (counter && !add && counter->count == 1) {
    // No counter without records: a table that is empty has none to give back.
    if (!store.write(link, counter->next, txn)) return kvt_store_epoch_err(handle, EPERM, err);
    return store.free(store.open_txn(), counter);
  }
  if (counter) {
    if (!store.write(&counter->count, add ? counter->count + 1 : counter->count - 1, txn)) {
      kvt_store_epoch_err(handle, EPERM, err);
    }
    return;
  }
  if (!add) return;
  if (!store.announce_range(head, sizeof *head, txn)) return kvt_store_epoch_err(handle, EPERM, err);
  void* room = store.alloc(store.open_txn(), sizeof(TenantCounter));
  if (!room) return kvt_store_epoch_err(handle, ENOMEM, err);
  *head = cage_ref(new (room) TenantCounter{*head, tenant, source, 0, 1});
}

// The collector has no list of its own: a table that waits stands in the list of tables and not in the contents. Bit
// 0x40 tells of it where the contents defer the free.
void kvtgc_validate_table_delete(kvt_handle*, void*) {}

void kvtgc_database_gc_list_remove(kvt_handle* handle, uint32_t txn, void* table, int* err) {
  if (*err) return;
  uint32_t* flags = &table_at(table)->table_flags;
  if (!store_of(handle).write(flags, *flags & ~kTableOnGcList, txn)) kvt_store_epoch_err(handle, EPERM, err);
}

uint32_t kvtgc_collect(kvt_handle* handle, uint32_t txn, int* err) {
  if (*err) return 0;
  Store& store = store_of(handle);
  StoreRoots* roots = store.roots();
  if (!roots->contents) return 0;
  if (!store.can_write()) {
    kvt_store_epoch_err(handle, EPERM, err);
    return 0;
  }
  const uint32_t gc_before = handle->gc_active;
  const int32_t last_before = handle->last_error;  // a table that must wait is no failure of the caller's
  handle->gc_active = 1;
  uint32_t freed = 0;
  for (uint32_t at = roots->tables.first; at;) {
    void* table = cage_at(at);
    at = table_at(table)->toc_next;
    const kvt_static_type* type = static_type_of(kvt_get_manifested_type_info(table, err));
    if (find(roots, key_of(table)) == table || table_at(table)->record_count ||
        kvtdb_table_are_cursors_enabled(handle, txn, table, err) || !type || !type->destroy) {
      continue;
    }
    kvtgc_database_gc_list_remove(handle, txn, table, err);
    const uint32_t* link = static_cast<const uint32_t*>(cage_at(table_at(table)->toc_prev));
    type->destroy(handle, txn, table, 1);
    freed += *link != cage_ref(table);
  }
  handle->gc_active = gc_before;
  if (!*err) handle->last_error = last_before;
  return freed;
}

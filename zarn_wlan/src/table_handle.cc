#include "zarn_wlan/src/table_handle.h"

#include <cstdio>
#include <cstring>

namespace kvt {
namespace {

[[noreturn]] void stop(const TableDesc& type, MessagePlace message) {
  trace(type.trace, kTableMessages, message);
  kvt_fatal();
}

void announce(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* at, std::uint32_t length) {
  if (!h->store) return;
  const int result = nadra_set_range(h->store, at, length, txn);
  if (result == 1) return;
  nadra_perror(result);
  stop(type, kMsgTableStoreRefused);
}

// A word of the list or of a table's links: announced, marked, written. `owner` is the table at hand for its own words,
// the list for all others.
void put_link(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* owner, void* at, std::uint32_t value) {
  announce(type, h, txn, at, sizeof value);
  if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, owner);
  store(at, value);
}

void link_at_tail(const TableDesc& type, kvt_handle* h, std::uint32_t txn, kvt_table_list* list, TableObject* table) {
  put_link(type, h, txn, table, &table->toc_next, 0);
  put_link(type, h, txn, table, &table->toc_prev, list->last_link);
  put_link(type, h, txn, list, cage_at(list->last_link), cage_ref(table));
  put_link(type, h, txn, list, &list->last_link, cage_ref(&table->toc_next));
}

void unlink(const TableDesc& type, kvt_handle* h, std::uint32_t txn, kvt_table_list* list, TableObject* table) {
  if (auto* next = static_cast<TableObject*>(cage_at(table->toc_next))) {
    put_link(type, h, txn, list, &next->toc_prev, table->toc_prev);
  } else {
    put_link(type, h, txn, list, &list->last_link, table->toc_prev);
  }
  put_link(type, h, txn, list, cage_at(table->toc_prev), table->toc_next);
}

// Unlike a record's, announced as any other words are, and in a database only.
void count_table(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const kvt_type_record* record, bool created) {
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  if (!varinfo) stop(type, kMsgTableNoVarinfo);
  if (varinfo->n_variants < 0) {
    trace(type.trace, kTableMessages, kMsgTableVariants, 0u, static_cast<std::uint32_t>(varinfo->n_variants));
  }
  kvt_variant_entry* entry = stats_entry(varinfo, 0, 0);
  std::uint64_t* counter = created ? &entry->created : &entry->destroyed;
  if (record->db_mode) h->set_range(h, counter, sizeof *counter, txn, nullptr);
  count_plain(record, counter);
}

// The path under which a table opened by name stands. false: too long.
bool table_path(const TableDesc& type, const char* name, char (&path)[kTableNameSize]) {
  if (std::strchr(name, '/')) {
    std::snprintf(path, sizeof path, "%s", name);
    return true;
  }
  return std::snprintf(path, sizeof path, "%s/%s", name, type.luid_text) < static_cast<int>(sizeof path);
}

// The root of numbered tables as it stands. The process's cache saves the look-up while it speaks of this database.
// Null: there is none, or (with the slot set) its key is too long.
IdRoot* find_id_root(const TableDesc& type, kvt_handle* h, std::uint32_t txn, char (&key)[kTableNameSize], int* err) {
  IdRootCache& cache = *type.id_root;
  const std::uint64_t store = kvtlib_database_serial(h);
  // Another database may lie where an earlier one lay, so that the range alone would trust a foreign root.
  if (cache.root && cache.store == store && kvtlib_database_in_range(h, cache.root))
    return static_cast<IdRoot*>(cache.root);
  if (std::snprintf(key, sizeof key, "__kvt_TBI__%s", type.luid_text) >= static_cast<int>(sizeof key)) {
    fail(h, kE2big, err);
    return nullptr;
  }
  cache = {h->key_get(h->store, txn, key), store};
  return static_cast<IdRoot*>(cache.root);
}

// Made outside any write context: no abort takes it back, and its numbers are never given out twice.
IdRoot* need_id_root(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t open_type, int* err) {
  char key[kTableNameSize];
  IdRoot* root = find_id_root(type, h, txn, key, err);
  if (root || *err) return root;
  if (open_type != 0) {
    trace(type.trace, kTableMessages, kMsgTableNoIdRoot);
    return nullptr;
  }
  void* block = h->store_alloc(h->store, KVT_NO_TXN, sizeof(IdRoot));
  if (!block) {
    fail(h, kEnomem, err);
    return nullptr;
  }
  std::memset(block, 0, sizeof(IdRoot));
  if (!h->key_put(h->store, txn, key, block)) {
    trace(type.trace, kTableMessages, kMsgTableIdRootFailed);
    h->store_free(h->store, KVT_NO_TXN, block);
    *type.id_root = {};
    return nullptr;
  }
  *type.id_root = {block, kvtlib_database_serial(h)};
  return static_cast<IdRoot*>(block);
}

struct Place {  // where a new table is entered
  const char* path;
  IdRoot* id_root;
  kvt_table_list* list;
};

void* make_table(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const TableRequest& request,
                 const Place& place, int* err) {
  auto* table = static_cast<TableObject*>(h->store_alloc(h->store, txn, type.object_size));
  if (!table) {
    fail(h, kEnomem, err);
    return nullptr;
  }
  std::memset(static_cast<void*>(table), 0, type.object_size);
  announce(type, h, KVT_NO_TXN, &table->init_word, sizeof table->init_word);
  table->init_word = 0;
  const kvt_type_record* record = linked_record(h, txn, type.table_record, *type.module);
  if (!record) {
    h->store_free(h->store, txn, table);
    fail(h, kEnomem, err);
    return nullptr;
  }
  store_announced(h, txn, &table->type_record, kvt_type_link_of(record));
  store_announced(h, txn, &table->id_mode, request.id_mode);
  if (request.dynamic) store_announced(h, txn, &table->table_flags, table->table_flags | kTableDynamic);
  if (request.id_mode == kByName) {
    h->set_range(h, table->table_name, sizeof table->table_name, txn, table);
    std::memcpy(table->table_name, place.path, std::strlen(place.path) + 1);
  } else {
    // Plain writes: the root is no transaction's.
    IdRoot* root = place.id_root;
    const std::uint64_t id = request.id_mode == kByAutomaticId ? root->next_id : request.id;
    if (root->next_id < id) root->next_id = id;
    store_announced(h, txn, static_cast<void*>(table->table_id), id);
    ++root->next_id;
    ++root->id_table_count;
  }
  link_at_tail(type, h, txn, place.list, table);
  const int dynamic = static_cast<int>(request.dynamic);
  if (!kvt_oid_mapping_create(h, txn, table, 2, request.dynamic, request.ior, err) || *err) {
    stop(type, kMsgTableMappingFailed);
  }
  kvtdb_database_toc_insert(h, txn, table, request.dynamic, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableTocInsert, dynamic ? "dynamic" : "static");
    unlink(type, h, txn, place.list, table);
    if (place.id_root) --place.id_root->id_table_count;
    int own = 0;
    kvt_request_oid_mapping_destroy(h, txn, table, &own);
    h->store_free(h->store, txn, table);
    return nullptr;
  }
  count_table(type, h, txn, record, true);
  *err = 0;
  return table;
}

// The contents, or null where they are missing or in error; what that means has been said.
void* open_contents(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint32_t open_type, int* err) {
  void* contents = kvtdb_database_toc_get(h, txn, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableTocFailed, error_text(*err));
    return nullptr;
  }
  if (contents) return contents;
  if (open_type == 0) {
    trace(type.trace, kTableMessages, kMsgTableNoTocCreate, h->db_name);
    kvt_fatal();
  }
  trace(type.trace, kTableMessages, kMsgTableNoTocRead, h->db_name, open_type);
  return nullptr;
}

// What is left of a free when the table is out of the contents.
void finish_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, TableObject* table, int* err) {
  const int removed = kvt_request_oid_mapping_destroy(h, txn, table, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgFreeMappingFailed, error_text(*err));
    return;
  }
  if (!removed) {
    fail(h, kEagain, err);
    return;
  }
  trace(type.trace, kTableMessages, kMsgFreeMappingRemoved);
  if (table->id_mode == kById || table->id_mode == kByAutomaticId) {
    char key[kTableNameSize];
    IdRoot* root = find_id_root(type, h, txn, key, err);
    if (*err) return;
    if (!root) {
      fail(h, kEnoent, err);
      return;
    }
    --root->id_table_count;
  }
  kvt_table_list* list = kvtlib_database_table_toc_get(h, txn, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgFreeListFailed, error_text(*err));
    return;
  }
  unlink(type, h, txn, list, table);
  if (table->table_flags & kTableOnGcList) {
    trace(type.trace, kTableMessages, kMsgFreeOnGcList);
    kvtgc_database_gc_list_remove(h, txn, table, err);
    if (*err) {
      trace(type.trace, kTableMessages, kMsgFreeGcFailed, error_text(*err));
      return;
    }
  }
  const kvt_type_record* record = kvt_type_link_at(table->type_record);
  count_table(type, h, txn, record ? record : type.table_record, false);
  *err = 0;
  if (marks_wanted(h, txn)) kvtdb_plat_set_destroy(h, txn, table);
  h->store_free(h->store, txn, table);
}

}  // namespace

void* table_open(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const TableRequest& request, int* err) {
  if (*err) return nullptr;
  kvt_clear_last_error(h);
  if (kvtlib_db_is_shared() && !kvtlib_database_is_write_locked(h) && request.open_type == 0) {
    stop(type, kMsgTableNoLock);
  }
  start_trace(*type.module);
  trans_avl_trace_init();
  trans_gbt_trace_init();
  kvt_table_list* list = kvtlib_database_table_toc_get(h, txn, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableListFailed, error_text(*err));
    return nullptr;
  }
  if (!open_contents(type, h, txn, request.open_type, err)) return nullptr;
  char path[kTableNameSize] = "";
  Place place{path, nullptr, list};
  void* table = nullptr;
  if (request.id_mode == kByName) {
    if (!table_path(type, request.name ? request.name : "(null)", path)) {
      fail(h, kE2big, err);
      return nullptr;
    }
    table = kvtdb_database_toc_get_table_root(h, txn, path, std::strlen(path), 0, type.luid, 16, 1, err);
  } else {
    place.id_root = need_id_root(type, h, txn, request.open_type, err);
    if (!place.id_root) return nullptr;
    if (request.id_mode == kById) {
      table = kvtdb_database_toc_get_table_root(h, txn, nullptr, 0, request.id, type.luid, 16, 0, err);
    }
  }
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableLookupFailed, error_text(*err));
    return nullptr;
  }
  if (table) {
    report_contained(h, txn, kContainTable, table, nullptr);
    return table;
  }
  if (request.open_type != 0) return nullptr;
  table = make_table(type, h, txn, request, place, err);
  if (!table) return nullptr;
  report_contained(h, txn, kContainTable, table, nullptr);
  if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, table);
  return table;
}

void* table_open_cr(const TableDesc& type, kvt_handle* h, std::uint32_t open_type, std::uint32_t id_mode,
                    const char* name, std::uint64_t id) {
  if (id_mode > kByAutomaticId) {
    if (!h->last_error) kvt_store_err(h, kEinval);
    return nullptr;
  }
  const TableRequest request{name, open_type, id, 0, id_mode == kByAutomaticId, id_mode};
  return table_open(type, h, h->default_txn, request, &h->last_error);
}

void table_close(kvt_handle* h, int* err) {
  if (!*err) kvt_clear_last_error(h);
}

void table_close_cr(const TableDesc& type, kvt_handle* h, void* table, std::uint32_t mode) {
  table_close(h, &h->last_error);
  if (mode == 1) table_free(type, h, h->default_txn, table, &h->last_error);
  if (mode == 2) table_request_free(type, h, h->default_txn, table, &h->last_error);
}

void table_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  TableObject* table = table_of(object);
  const TableObject* contents = table_of(kvtdb_database_toc_get(h, txn, err));
  if (*err || !contents) {
    trace(type.trace, kTableMessages, kMsgFreeTocFailed, error_text(*err));
    return;
  }
  const bool deferred = contents->table_flags & kTocDeferredFree;
  if (!deferred || !h->gc_active) {
    if (deferred) kvtgc_validate_table_delete(h, table);
    kvtdb_database_toc_delete(h, txn, table, err);
    if (*err) {
      trace(type.trace, kTableMessages, kMsgFreeTocDelete, error_text(*err));
      return;
    }
    // The runtime comes back with the table when nobody needs it any more.
    if (deferred) return;
  }
  finish_free(type, h, txn, table, err);
}

void table_collect(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table) {
  // A record leads to its table: while there is one, the table waits for the next collection.
  if (table_of(table)->record_count) return;
  int err = 0;
  finish_free(type, h, txn, table_of(table), &err);
}

void table_request_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  if (!kvtlib_db_is_shared()) return table_free(type, h, txn, table, err);
  kvtdb_database_toc_delete(h, txn, table, err);
  if (*err == kEnoent) {
    *err = 0;
    kvt_clear_last_error(h);
  }
  if (*err) {
    trace(type.trace, kTableMessages, kMsgRequestFreeFailed, error_text(*err));
    return;
  }
  if (marks_wanted(h, txn)) kvtdb_plat_set_destroy(h, txn, table);
}

std::uint32_t table_count(kvt_handle* h, std::uint32_t txn, void* table) {
  if (!table) return 0;
  const std::uint16_t tenant = thread_tenant;
  if (!tenant) return table_of(table)->record_count;
  std::uint32_t count = 0;
  kvtdb_get_tenant_counter(h, txn, table, &count, tenant, nullptr);
  return count;
}

std::uint32_t table_count_by_source(kvt_handle* h, std::uint32_t txn, void* table, std::uint32_t source) {
  if (!table) return 0;
  const std::uint16_t tenant = thread_tenant;
  if (!tenant) return source == kShadowSource ? table_of(table)->shadow_count : 0;
  std::uint32_t count = 0;
  const auto byte = static_cast<std::uint8_t>(source);
  if (source <= kShadowSource) kvtdb_get_tenant_counter(h, txn, table, &count, tenant, &byte);
  return count;
}

}  // namespace kvt

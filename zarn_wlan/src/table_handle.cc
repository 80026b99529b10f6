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

// A word of the list or of a table's links: announced, marked, written.
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

void unlink_tail(const TableDesc& type, kvt_handle* h, std::uint32_t txn, kvt_table_list* list, TableObject* table) {
  put_link(type, h, txn, list, cage_at(table->toc_prev), 0);
  put_link(type, h, txn, list, &list->last_link, table->toc_prev);
}

void count_created(const TableDesc& type, const kvt_type_record* record) {
  const kvt_variant_data* varinfo = kvt_varinfo_of(record);
  if (!varinfo) stop(type, kMsgTableNoVarinfo);
  if (varinfo->n_variants < 0) {
    trace(type.trace, kTableMessages, kMsgTableVariants, 0u, static_cast<std::uint32_t>(varinfo->n_variants));
  }
  count_plain(record, &stats_entry(varinfo, 0, 0)->created);
}

// The path under which a table opened by name stands. false: too long.
bool table_path(const TableDesc& type, const char* name, char (&path)[kTableNameSize]) {
  if (std::strchr(name, '/')) {
    std::snprintf(path, sizeof path, "%s", name);
    return true;
  }
  return std::snprintf(path, sizeof path, "%s/%s", name, type.luid_text) < static_cast<int>(sizeof path);
}

void* make_table(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const char* path, kvt_table_list* list,
                 int* err) {
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
  h->set_range(h, table->table_name, sizeof table->table_name, txn, table);
  std::memcpy(table->table_name, path, std::strlen(path) + 1);
  link_at_tail(type, h, txn, list, table);
  if (!kvt_oid_mapping_create(h, txn, table, 2, 0, 0, err) || *err) stop(type, kMsgTableMappingFailed);
  kvtdb_database_toc_insert(h, txn, table, 0, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableTocInsert, "static");
    unlink_tail(type, h, txn, list, table);
    int own = 0;
    kvt_request_oid_mapping_destroy(h, txn, table, &own);
    h->store_free(h->store, txn, table);
    return nullptr;
  }
  count_created(type, record);
  *err = 0;
  return table;
}

}  // namespace

void* table_open(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, std::uint32_t open_type,
                 int* err) {
  if (*err) return nullptr;
  kvt_clear_last_error(h);
  if (kvtlib_db_is_shared() && !kvtlib_database_is_write_locked(h) && open_type == 0) stop(type, kMsgTableNoLock);
  start_trace(*type.module);
  trans_avl_trace_init();
  trans_gbt_trace_init();
  kvt_table_list* list = kvtlib_database_table_toc_get(h, txn, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableListFailed, error_text(*err));
    return nullptr;
  }
  void* contents = kvtdb_database_toc_get(h, txn, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableTocFailed, error_text(*err));
    return nullptr;
  }
  if (!contents) {
    if (open_type == 0) {
      trace(type.trace, kTableMessages, kMsgTableNoTocCreate, h->db_name);
      kvt_fatal();
    }
    trace(type.trace, kTableMessages, kMsgTableNoTocRead, h->db_name, open_type);
    return nullptr;
  }
  char path[kTableNameSize];
  if (!table_path(type, name ? name : "(null)", path)) {
    fail(h, kE2big, err);
    return nullptr;
  }
  void* table = kvtdb_database_toc_get_table_root(h, txn, path, std::strlen(path), 0, type.luid, 16, 1, err);
  if (*err) {
    trace(type.trace, kTableMessages, kMsgTableLookupFailed, error_text(*err));
    return nullptr;
  }
  if (table) {
    report_contained(h, txn, kContainTable, table, nullptr);
    return table;
  }
  if (open_type != 0) return nullptr;
  table = make_table(type, h, txn, path, list, err);
  if (!table) return nullptr;
  report_contained(h, txn, kContainTable, table, nullptr);
  if (marks_wanted(h, txn)) kvtdb_plat_set_dirty(h, txn, table);
  return table;
}

void table_close(kvt_handle* h, int* err) {
  if (!*err) kvt_clear_last_error(h);
}

std::uint32_t table_count(kvt_handle* h, std::uint32_t txn, void* table) {
  if (!table) return 0;
  const std::uint16_t tenant = mt_get_tenant_id();
  if (!tenant) return table_of(table)->record_count;
  std::uint32_t count = 0;
  kvtdb_get_tenant_counter(h, txn, table, &count, tenant, nullptr);
  return count;
}

std::uint32_t table_count_by_source(kvt_handle* h, std::uint32_t txn, void* table, std::uint32_t source) {
  if (!table) return 0;
  const std::uint16_t tenant = mt_get_tenant_id();
  if (!tenant) return source == kShadowSource ? table_of(table)->shadow_count : 0;
  std::uint32_t count = 0;
  const auto byte = static_cast<std::uint8_t>(source);
  if (source <= kShadowSource) kvtdb_get_tenant_counter(h, txn, table, &count, tenant, &byte);
  return count;
}

}  // namespace kvt

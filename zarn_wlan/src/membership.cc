#include "zarn_wlan/src/membership.h"

namespace kvt {
namespace {

TracePlace key_place(const TableDesc& type, unsigned key) {
  return TracePlace{type.trace.table, type.trace.first + type.keys[key].message, type.trace.module};
}

std::uint32_t* node_word(void* record, unsigned key) {
  return static_cast<std::uint32_t*>(at_offset(node_of(record, key), kNodeWord));
}

bool tree_insert(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record, unsigned key) {
  auto* node = static_cast<AvlNode*>(node_of(record, key));
  // A record that a tree holds already, perhaps this one, keeps its word.
  const std::uint32_t kept = *node_word(record, key);
  if (!kept)
    store_announced(h, txn, node_word(record, key),
                    type.keys[key].word(record_of(record)->tenant_id, payload_of(type, record)), record);
  if (avl_insert_by_word(h->store, txn, index_root(table, key), node, index_state(table, key), type.keys[key].compare))
    return true;
  if (!kept) store_announced(h, txn, node_word(record, key), std::uint32_t{0}, record);
  return false;
}

// Out of the tree the key may change, and the record may still serve as a position: the kept prefix goes.
bool tree_delete(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record, unsigned key) {
  auto* node = static_cast<AvlNode*>(node_of(record, key));
  // Without a word it is in no tree.
  if (!node->word || !avl_delete_by_word(h->store, txn, index_root(table, key), node, index_state(table, key),
                                         type.keys[key].compare)) {
    return false;
  }
  store_announced(h, txn, node_word(record, key), std::uint32_t{0}, record);
  return true;
}

void add_to(kvt_handle* h, std::uint32_t txn, std::uint32_t* word, std::int32_t amount, void* owner) {
  store_announced(h, txn, word, *word + static_cast<std::uint32_t>(amount), owner);
}

void say_exists(const TableDesc& type, kvt_handle* h, unsigned key, int* err) {
  if (!h->quiet_duplicates) trace(key_place(type, key), kKeyMessages, kMsgInsertExists);
  fail(h, kEexist, err);
}

// Why an index did not take the record: an equal one is there, or the store refused the change.
void refuse(const TableDesc& type, kvt_handle* h, void* table, void* record, unsigned key, int* err) {
  if (!e_avl_search(*index_root(table, key), node_of(record, key), type.keys[key].compare)) {
    fail(h, kEnomem, err);
    return;
  }
  say_exists(type, h, key, err);
}

void say_missing(const TableDesc& type, kvt_handle* h, unsigned key, int* err) {
  trace(key_place(type, key), kKeyMessages, kMsgDeleteMissing);
  fail(h, kEnoent, err);
}

void count_in_table(kvt_handle* h, std::uint32_t txn, void* table, const RecordBlock* record, std::int32_t amount) {
  TableObject* t = table_of(table);
  add_to(h, txn, &t->record_count, amount, nullptr);
  if (record->source == kShadowSource && (amount > 0 || t->shadow_count))
    add_to(h, txn, &t->shadow_count, amount, table);
}

// The database's own count of waiting records; a handle may come without statistics.
void drop_pending(kvt_handle* h, std::uint32_t txn, TableObject* table) {
  add_to(h, txn, &table->pending_destroy_count, -1, nullptr);
  if (!h->db_stats) return;
  store_announced(h, txn, &h->db_stats->pending_destroy, h->db_stats->pending_destroy - 1);
}

}  // namespace

bool record_in_a_tree(const TableDesc& type, void* record) {
  for (unsigned key = 0; key < type.key_count; ++key) {
    if (*node_word(record, key)) return true;
  }
  return false;
}

void record_insert(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* block, bool primary_only,
                   int* err) {
  if (!block) {
    fail(h, kEexist, err);
    return;
  }
  if (*err) return;
  kvt_clear_last_error(h);
  RecordBlock* record = record_of(block);
  const std::uint32_t flags = record->record_flags;
  if (record->table && record->table != cage_ref(table)) {
    // Its nodes hang in another table's trees: entering it here would tear those.
    return say_exists(type, h, 0, err);
  }
  if (!tree_insert(type, h, txn, table, record, 0)) return refuse(type, h, table, record, 0, err);
  store_announced(h, txn, &record->table, cage_ref(table), record);
  for (unsigned key = 1; !primary_only && key < type.key_count; ++key) {
    if (tree_insert(type, h, txn, table, record, key)) continue;
    // No tree keeps a record that the table doesn't have.
    for (unsigned undo = key; undo-- > 0;) tree_delete(type, h, txn, table, record, undo);
    store_announced(h, txn, &record->table, std::uint32_t{0}, record);
    return refuse(type, h, table, record, key, err);
  }
  count_in_table(h, txn, table, record, 1);
  const std::uint16_t tenant = thread_tenant;
  if (tenant) kvtdb_update_tenant_counter(h, txn, table, 1, tenant, record->source, err);
  const bool counted = tenant && !*err;
  const std::uint32_t grade = primary_only ? kRecordPrimaryOnly : 0;
  store_announced(h, txn, &record->record_flags,
                  (flags & ~(kRecordPrimaryOnly | kRecordPending)) | kRecordInserted | grade, record);
  if (kvtdb_table_are_cursors_enabled(h, txn, table, err) &&
      kvtdb_table_implicit_write_cursor_enabled(h, txn, table, err)) {
    kvtdb_enq_rec_move_write_cursor_internal(h, txn, table, record, err);
  }
  if (*err) {
    // The runtime has no room for it: the record goes as it came, and the first failure is the answer.
    const int first = *err;
    int own = 0;
    if (counted) kvtdb_update_tenant_counter(h, txn, table, 0, tenant, record->source, &own);
    count_in_table(h, txn, table, record, -1);
    for (unsigned key = primary_only ? 1 : type.key_count; key-- > 0;) tree_delete(type, h, txn, table, record, key);
    store_announced(h, txn, &record->table, std::uint32_t{0}, record);
    store_announced(h, txn, &record->record_flags, flags, record);
    return fail(h, first, err);
  }
  report_contained(h, txn, kContainRecord, record, table);
}

void record_remove(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* block, bool primary_only,
                   int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  if (kvtdb_table_are_cursors_enabled(h, txn, table, err) && !h->gc_active) {
    trace(type.trace, kTableMessages, kMsgDeleteReplicated);
    fail(h, kEinval, err);
    return;
  }
  RecordBlock* record = record_of(block);
  const std::uint32_t flags = record->record_flags;
  bool in_all = true;
  if (primary_only) {
    if (flags & kRecordPrimaryOnly) return;
    store_announced(h, txn, &record->record_flags, flags | kRecordPrimaryOnly, record);
  } else {
    if (!tree_delete(type, h, txn, table, record, 0)) return say_missing(type, h, 0, err);
    store_announced(h, txn, &record->table, std::uint32_t{0}, record);
    if (flags & kRecordPrimaryOnly) {
      store_announced(h, txn, &record->record_flags, flags & ~kRecordPrimaryOnly, nullptr);
      in_all = false;
    }
  }
  for (unsigned key = 1; in_all && key < type.key_count; ++key) {
    if (tree_delete(type, h, txn, table, record, key)) continue;
    // Out of the remaining trees too: the record may be freed after this.
    for (unsigned rest = key + 1; rest < type.key_count; ++rest) tree_delete(type, h, txn, table, record, rest);
    if (primary_only && record->table && record->table != cage_ref(table)) {
      // It stays whole in the table that has it.
      store_announced(h, txn, &record->record_flags, flags, record);
    }
    return say_missing(type, h, key, err);
  }
  if (primary_only || *err) return;
  count_in_table(h, txn, table, record, -1);
  if (record->record_flags & kRecordPending) drop_pending(h, txn, table_of(table));
  if (const std::uint16_t tenant = thread_tenant) {
    kvtdb_update_tenant_counter(h, txn, table, 0, tenant, record->source, err);
  }
  if (marks_wanted(h, txn)) kvtdb_plat_set_destroy(h, txn, record);
}

}  // namespace kvt

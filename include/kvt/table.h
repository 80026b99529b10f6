/// @file table.h
/// The database side of tables: table of contents, table list, counters, cursors, and the ordered trees of the indexes.
#ifndef KVT_TABLE_H
#define KVT_TABLE_H

#include "kvt/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Head of a database's list of tables; both words are references.
typedef struct kvt_table_list {
  uint32_t first;
  uint32_t last_link;  ///< of the last table's toc_next, or of `first`
} kvt_table_list;

/// Not 0 if this process has a database open.
KVT_EXPORT int kvtlib_db_is_shared(void);
/// Not 0 if the handle holds its database's write lock; always for a private store, which has no other writer.
KVT_EXPORT int kvtlib_database_is_write_locked(kvt_handle* handle);
KVT_EXPORT int kvtlib_database_in_range(kvt_handle* handle, const void* address);
KVT_EXPORT kvt_table_list* kvtlib_database_table_toc_get(kvt_handle* handle, uint32_t txn, int* err);
/// The table-of-contents object (table-shaped); made on the first call that may write, NULL if there is none.
KVT_EXPORT void* kvtdb_database_toc_get(kvt_handle* handle, uint32_t txn, int* err);
KVT_EXPORT void* kvtdb_database_toc_get_table_root(kvt_handle* handle, uint32_t txn, const char* path,
                                                   size_t path_length, uint64_t id, const uint8_t* luid,
                                                   uint32_t luid_length, uint32_t by_name, int* err);
/// EEXIST: path or id is there already; ENOMEM.
KVT_EXPORT void kvtdb_database_toc_insert(kvt_handle* handle, uint32_t txn, void* table, uint32_t dynamic, int* err);
/// ENOENT: not there; EBUSY: cursors are open on it.
KVT_EXPORT void kvtdb_database_toc_delete(kvt_handle* handle, uint32_t txn, void* table, int* err);
/// Announces a range of the store (`handle->store`); 1 if it may be written.
KVT_EXPORT int nadra_set_range(void* store, void* address, uint32_t length, uint32_t txn);
KVT_EXPORT void nadra_perror(int result);
/// The count of a tenant's records, of one source or (NULL) of all.
KVT_EXPORT void kvtdb_get_tenant_counter(kvt_handle* handle, uint32_t txn, void* table, uint32_t* result,
                                         uint16_t tenant, const uint8_t* source);
KVT_EXPORT void kvtdb_update_tenant_counter(kvt_handle* handle, uint32_t txn, void* table, uint32_t add,
                                            uint16_t tenant, uint8_t source, int* err);

/// Cursors: a reader of changes that keeps its place in the database. While a table has one, its records are destroyed
/// by request only, and go when every cursor has seen them go.
/// Opens a cursor behind the newest change. `implicit_write`: inserts are queued too, not only requests to destroy.
/// In a database the caller holds the write lock, as for all calls below that may write. @param err sticky. ENOMEM,
/// EPERM
KVT_EXPORT void* kvtdb_cursor_open(kvt_handle* handle, uint32_t txn, void* table, uint32_t implicit_write, int* err);
/// The next change: its record, and in `kind` what it was; NULL when there is none. A record that it gives stays until
/// the cursor's next move, and no longer if it is to be destroyed.
enum { KVT_CHANGE_INSERT = 1, KVT_CHANGE_DESTROY = 2 };
KVT_EXPORT void* kvtdb_cursor_next(kvt_handle* handle, uint32_t txn, void* cursor, int* kind, int* err);
/// Gives the cursor back; records that only it kept are destroyed.
KVT_EXPORT void kvtdb_cursor_close(kvt_handle* handle, uint32_t txn, void* cursor, int* err);
/// Not 0 if the table has cursors.
KVT_EXPORT int kvtdb_table_are_cursors_enabled(kvt_handle* handle, uint32_t txn, void* table, int* err);
/// Not 0 if one of them wants inserts.
KVT_EXPORT int kvtdb_table_implicit_write_cursor_enabled(kvt_handle* handle, uint32_t txn, void* table, int* err);
/// Queues an inserted record for the table's cursors. ENOMEM, EPERM.
KVT_EXPORT void kvtdb_enq_rec_move_write_cursor_internal(kvt_handle* handle, uint32_t txn, void* table, void* record,
                                                         int* err);
/// What drops a record's reference; the form of `tbl_X_destroy_record`.
typedef uint32_t (*kvt_record_destroy)(kvt_handle* handle, uint32_t txn, void* record, int* err);
/// Marks a record of a table as waiting for its destruction, and calls `destroy` when no cursor needs it any more: at
/// once in a table without cursors. A second request for a record that waits changes nothing. ENOMEM, EPERM.
KVT_EXPORT void kvtdb_request_record_destroy(kvt_handle* handle, uint32_t txn, void* record, kvt_record_destroy destroy,
                                             int* err);
/// Releases what the record's location word names.
KVT_EXPORT void kvtlib_record_dereference_loc(kvt_handle* handle, uint32_t txn, void* record, int* err);
/// Called before a table's free is deferred.
KVT_EXPORT void kvtgc_validate_table_delete(kvt_handle* handle, void* table);
/// Takes a table off the collector's list. EPERM.
KVT_EXPORT void kvtgc_database_gc_list_remove(kvt_handle* handle, uint32_t txn, void* table, int* err);
/// Frees the tables that are out of the contents, hold no record and have no reference left. @return how many
KVT_EXPORT uint32_t kvtgc_collect(kvt_handle* handle, uint32_t txn, int* err);
/// A number that no other opened database or private store of this process has or had.
KVT_EXPORT uint64_t kvtlib_database_serial(kvt_handle* handle);
KVT_EXPORT void trans_avl_trace_init(void);
KVT_EXPORT void trans_gbt_trace_init(void);

/// 0 if a is below b, 1 if equal, 2 if above.
typedef int (*e_avl_compare)(const void* a, const void* b);
typedef int (*e_avl_function)(void* node, void* argument);

/// Ordered trees over 12-byte nodes that lie in the caller's blocks: two links, and a third word that the trees leave
/// to the caller (who may keep there what tells two keys apart without a visit to them). `root` is the address of the
/// tree's root word, or its value where nothing is written; `state` is a word that insert and delete keep beside it
/// (the number of nodes).
KVT_EXPORT int e_avl_insert(void* store, uint32_t txn, uint32_t* root, void* node, uint32_t* state,
                            e_avl_compare compare);
/// Removes this very node; 0 if the tree does not hold it, also when it holds an equal one.
KVT_EXPORT int e_avl_delete(void* store, uint32_t txn, uint32_t* root, void* node, uint32_t* state,
                            e_avl_compare compare);
KVT_EXPORT void* e_avl_search(uint32_t root, const void* node, e_avl_compare compare);
KVT_EXPORT void* e_avl_get_first(uint32_t root);
KVT_EXPORT void* e_avl_get_last(uint32_t root);
/// The nearest node above (below) the given one, which need not be in the tree.
KVT_EXPORT void* e_avl_get_next(uint32_t root, const void* node, e_avl_compare compare);
KVT_EXPORT void* e_avl_get_prev(uint32_t root, const void* node, e_avl_compare compare);
/// Calls function(node, argument) in order; the node's successor is found before the call.
KVT_EXPORT void e_avl_walk(uint32_t root, e_avl_function function, void* argument);
/// Checks order, balance and the number of nodes; 0 if all is well, else the first fault found (EINVAL).
KVT_EXPORT int e_avl_check(uint32_t root, const uint32_t* state, e_avl_compare compare);

/// Stops the process with the text when the condition is 0.
KVT_EXPORT void bassert(int condition, const char* text);

#ifdef __cplusplus
}
#endif
#endif

/// @file
/// tbl_trees: Trees.
/// Made by zarnc from the schema of toy; not to be edited.
#ifndef TOY_TBL_TREES_H
#define TOY_TBL_TREES_H

#include <kvt/kvt.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Opens the table of that name; with `open_type` 0 it is made if it isn't there, and in a database the caller holds the write lock. NULL with a clear slot: no such table. E2BIG: the name is too long (a name with a slash is a whole path, cut to 207 characters); ENOMEM.
KVT_EXPORT void *tbl_trees_table_open(kvt_handle *handle, uint32_t txn, const char *name, uint32_t open_type, int *err);
/// Nothing happens to the table; clears the last error.
KVT_EXPORT void tbl_trees_table_close(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The 16 bytes of the identity of a table or record.
KVT_EXPORT const uint8_t *tbl_trees_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err);
/// A record of source 1 with one reference, no payload, in no table. NULL when the store is exhausted.
KVT_EXPORT void *tbl_trees_create_record(kvt_handle *handle, uint32_t txn, int *err);
/// As tbl_trees_create_record with the given source; 255 makes a shadow record.
KVT_EXPORT void *tbl_trees_create_record_w_src(kvt_handle *handle, uint32_t txn, uint32_t source, int *err);
/// A record of source 1, with a new payload if asked for; never NULL: an exhausted store gives the failure record.
KVT_EXPORT void *tbl_trees_record_create_cr(kvt_handle *handle, uint32_t with_payload);
/// Takes a reference; the count before. ENOENT for NULL.
KVT_EXPORT uint32_t tbl_trees_record_add_ref(kvt_handle *handle, uint32_t txn, void *record, int *err);
/// Drops a reference; at the last the record leaves its table and goes, payload and all. The references left. ENOENT for NULL.
KVT_EXPORT uint32_t tbl_trees_destroy_record(kvt_handle *handle, uint32_t txn, void *record, int *err);
/// As tbl_trees_destroy_record with the handle's write context and last error.
KVT_EXPORT uint32_t tbl_trees_record_destroy_cr(kvt_handle *handle, void *record);
/// The payload, still owned by the record.
KVT_EXPORT void *tbl_trees_st_tree_get_field(kvt_handle *handle, uint32_t txn, void *record);
/// The payload, now owned by the caller.
KVT_EXPORT void *tbl_trees_st_tree_get_field_detach(kvt_handle *handle, uint32_t txn, void *record);
/// Gives the object to the record; an earlier payload stays the caller's. EINVAL in the last error: the object is nested or in a record already.
KVT_EXPORT void tbl_trees_st_tree_set_field(kvt_handle *handle, uint32_t txn, void *record, void *object);
/// As tbl_trees_st_tree_set_field, and an earlier payload is destroyed.
KVT_EXPORT void tbl_trees_st_tree_free_and_set_field(kvt_handle *handle, uint32_t txn, void *record, void *object);
/// Calls the function for every record of the table, of all tenants and sources, in the order of a key.
KVT_EXPORT void tbl_trees_record_walk_cr(kvt_handle *handle, void *table, uint32_t key_index, int (*function)(void *record, void *argument), void *argument);
/// A key holder: an object of the payload's type of which only the primary key is read.
KVT_EXPORT void *tbl_trees_pkey_create(kvt_handle *handle, uint32_t txn);
/// Gives back a key holder.
KVT_EXPORT void tbl_trees_pkey_destroy(kvt_handle *handle, uint32_t txn, void *object);
/// Records visible to the caller's tenant; all records for tenant 0. 0 for NULL.
KVT_EXPORT uint32_t tbl_trees_table_get_count(kvt_handle *handle, uint32_t txn, void *table);
/// Records of the tenant and source; tenant 0 counts shadow records only.
KVT_EXPORT uint32_t tbl_trees_table_get_count_by_src(kvt_handle *handle, uint32_t txn, void *table, uint32_t source);
/// As tbl_trees_table_get_count.
KVT_EXPORT uint32_t tbl_trees_table_get_count_cr(kvt_handle *handle, void *table);
/// Enters the record in every index. EEXIST: its tenant, key and source are there already, and nothing has changed.
KVT_EXPORT void tbl_trees_insert(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// Enters the record in the primary index alone. EEXIST.
KVT_EXPORT void tbl_trees_pkey_insert(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// Either insert, with the handle's write context; the last error.
KVT_EXPORT int32_t tbl_trees_insert_cr(kvt_handle *handle, void *table, void *record, uint32_t primary_only);
/// Takes the record out of every index; it lives on. ENOENT: not in the table; EINVAL: the table is replicated.
KVT_EXPORT void tbl_trees_delete(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// Leaves the record in the primary index alone.
KVT_EXPORT void tbl_trees_pkey_delete(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// Deletes with the handle's write context, and drops a reference if asked to; the last error.
KVT_EXPORT int32_t tbl_trees_delete_cr(kvt_handle *handle, void *table, void *record, uint32_t destroy);
/// Writes the record's frame (43 bytes) and its payload. EMSGSIZE: too little room; ENOENT: no payload; EBADE: the domain doesn't allow the table. Bytes written.
KVT_EXPORT uint32_t tbl_trees_table_record_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, void *record, int32_t length, int *err);
/// As tbl_trees_table_record_marshal; -1 when the last error is set.
KVT_EXPORT int32_t tbl_trees_record_marshal_cr(kvt_handle *handle, void *record, uint8_t *buffer, int32_t length);
/// Reads a frame into `*record` (`update` not 0) or into a new record that goes to `*record`, also after a read error. EMSGSIZE, EPROTO, ENOMEM; ENOENT: no record to update. Neither identity nor domain is tested. Bytes read.
KVT_EXPORT uint32_t tbl_trees_table_record_unmarshal(kvt_handle *handle, uint32_t txn, void **record, const uint8_t *buffer, int32_t length, uint32_t update, int *err);
/// Bytes that tbl_trees_table_record_marshal needs.
KVT_EXPORT uint32_t tbl_trees_table_record_len(kvt_handle *handle, uint32_t txn, void *record);
/// As tbl_trees_table_record_len; 0 when the last error is set.
KVT_EXPORT uint32_t tbl_trees_record_len_cr(kvt_handle *handle, void *record);
/// Writes the element tbl_trees with the payload's element in it. EMSGSIZE. Characters written, no terminator.
KVT_EXPORT uint32_t tbl_trees_table_record_to_xml(kvt_handle *handle, uint32_t txn, char *buffer, void *record, int32_t room, int *err);
/// As tbl_trees_table_record_to_xml; -1 when the last error is set.
KVT_EXPORT int32_t tbl_trees_record_toxml_cr(kvt_handle *handle, void *record, char *buffer, int32_t room);
/// A new record with a payload read from the element st_tree; without the element it is fresh. NULL on error: EINVAL and others with the path in `message`; ENOMEM.
KVT_EXPORT void *tbl_trees_table_record_from_xml(kvt_handle *handle, uint32_t txn, kvt_xml_document *document, int *err, char *message, size_t size);
/// The record whose primary key the holder has, or (`nearest`) the next higher one.
KVT_EXPORT void *tbl_trees_search(kvt_handle *handle, uint32_t txn, void *table, const void *holder, uint32_t nearest, int *err);
/// The first record above the holder's key.
KVT_EXPORT void *tbl_trees_get_next_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *holder, int *err);
/// The last record below the holder's key.
KVT_EXPORT void *tbl_trees_get_prev_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *holder, int *err);
/// The tenant's first record by the primary key.
KVT_EXPORT void *tbl_trees_pkey_get_first(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The tenant's last record by the primary key.
KVT_EXPORT void *tbl_trees_pkey_get_last(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The next record by the primary key.
KVT_EXPORT void *tbl_trees_pkey_get_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The previous record by the primary key.
KVT_EXPORT void *tbl_trees_pkey_get_prev(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The next record with the same primary key.
KVT_EXPORT void *tbl_trees_pkey_get_sub_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// Orders two nodes of this index by tenant, key and source: 0 below, 1 equal, 2 above.
KVT_EXPORT int tbl_trees_st_tree_id_avl_compare(const void *a, const void *b);
/// Hands a node's record to the function of a walk.
KVT_EXPORT int tbl_trees_st_tree_id_avl_internal_walk(void *node, void *walker);
/// Calls the function for every record, of all tenants and sources, in the order of this key.
KVT_EXPORT void tbl_trees_st_tree_id_walk(void *table, int (*function)(void *record, void *argument), void *argument, int *err);
/// The search with all its choices. `key` points at the value.
KVT_EXPORT void *tbl_trees_st_tree_id_search_internal(kvt_handle *handle, uint32_t txn, void *table, const void *key, uint32_t nearest, uint32_t forward, uint32_t source, uint32_t neighbour_source, uint32_t skip_pending, uint32_t same_key, int *err);
/// The record of this key with source 1, of the caller's tenant; NULL with a clear slot if there is none. `key` points at the value. ENOENT: NULL table or key.
KVT_EXPORT void *tbl_trees_st_tree_id_search(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// As tbl_trees_st_tree_id_search, or else the next higher record with source 1.
KVT_EXPORT void *tbl_trees_st_tree_id_search_nearest(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// Search with the handle's write context and last error. Flags: 1 nearest, 2 pending records count, 4 other sources of the key will do.
KVT_EXPORT void *tbl_trees_st_tree_id_search_cr(kvt_handle *handle, void *table, const void *key, uint32_t source, uint32_t flags);
/// The tenant's first record with source 1 in the order of this key, or NULL.
KVT_EXPORT void *tbl_trees_st_tree_id_get_first(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The tenant's last record with source 1, or NULL.
KVT_EXPORT void *tbl_trees_st_tree_id_get_last(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The tenant's next record with source 1, or NULL. `record` need not be in the table any more.
KVT_EXPORT void *tbl_trees_st_tree_id_get_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The tenant's previous record with source 1, or NULL.
KVT_EXPORT void *tbl_trees_st_tree_id_get_prev(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The first record with source 1 above the key, which need not exist.
KVT_EXPORT void *tbl_trees_st_tree_id_get_next_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// The last record with source 1 below the key, which need not exist.
KVT_EXPORT void *tbl_trees_st_tree_id_get_prev_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// The next record with the same key, of whatever source; tenants are not told apart.
KVT_EXPORT void *tbl_trees_st_tree_id_get_sub_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The general forward step.
KVT_EXPORT void *tbl_trees_st_tree_id_get_next_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err);
/// The general backward step.
KVT_EXPORT void *tbl_trees_st_tree_id_get_prev_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err);
/// Does nothing; completes the set.
KVT_EXPORT void tbl_trees_st_tree_id_unordered_traversal(void);
/// Orders two nodes of this index by tenant, key and source: 0 below, 1 equal, 2 above.
KVT_EXPORT int tbl_trees_st_tree_name_avl_compare(const void *a, const void *b);
/// Hands a node's record to the function of a walk.
KVT_EXPORT int tbl_trees_st_tree_name_avl_internal_walk(void *node, void *walker);
/// Calls the function for every record, of all tenants and sources, in the order of this key.
KVT_EXPORT void tbl_trees_st_tree_name_walk(void *table, int (*function)(void *record, void *argument), void *argument, int *err);
/// The search with all its choices. `key` points at an 8-byte string field that itself lies in the cage.
KVT_EXPORT void *tbl_trees_st_tree_name_search_internal(kvt_handle *handle, uint32_t txn, void *table, const void *key, uint32_t nearest, uint32_t forward, uint32_t source, uint32_t neighbour_source, uint32_t skip_pending, uint32_t same_key, int *err);
/// The record of this key with source 1, of the caller's tenant; NULL with a clear slot if there is none. `key` points at an 8-byte string field that itself lies in the cage. ENOENT: NULL table or key.
KVT_EXPORT void *tbl_trees_st_tree_name_search(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// As tbl_trees_st_tree_name_search, or else the next higher record with source 1.
KVT_EXPORT void *tbl_trees_st_tree_name_search_nearest(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// Search with the handle's write context and last error. Flags: 1 nearest, 2 pending records count, 4 other sources of the key will do.
KVT_EXPORT void *tbl_trees_st_tree_name_search_cr(kvt_handle *handle, void *table, const void *key, uint32_t source, uint32_t flags);
/// The tenant's first record with source 1 in the order of this key, or NULL.
KVT_EXPORT void *tbl_trees_st_tree_name_get_first(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The tenant's last record with source 1, or NULL.
KVT_EXPORT void *tbl_trees_st_tree_name_get_last(kvt_handle *handle, uint32_t txn, void *table, int *err);
/// The tenant's next record with source 1, or NULL. `record` need not be in the table any more.
KVT_EXPORT void *tbl_trees_st_tree_name_get_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The tenant's previous record with source 1, or NULL.
KVT_EXPORT void *tbl_trees_st_tree_name_get_prev(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The first record with source 1 above the key, which need not exist.
KVT_EXPORT void *tbl_trees_st_tree_name_get_next_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// The last record with source 1 below the key, which need not exist.
KVT_EXPORT void *tbl_trees_st_tree_name_get_prev_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err);
/// The next record with the same key, of whatever source; tenants are not told apart.
KVT_EXPORT void *tbl_trees_st_tree_name_get_sub_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err);
/// The general forward step.
KVT_EXPORT void *tbl_trees_st_tree_name_get_next_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err);
/// The general backward step.
KVT_EXPORT void *tbl_trees_st_tree_name_get_prev_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err);
/// Does nothing; completes the set.
KVT_EXPORT void tbl_trees_st_tree_name_unordered_traversal(void);
/// Identity of the table: 16 bytes, the same as text, and the table's full name.
KVT_EXPORT extern const uint8_t table_tbl_trees_luid[16];
KVT_EXPORT extern const char table_tbl_trees_luid_text[33];
KVT_EXPORT extern const char table_tbl_trees_name[];
KVT_EXPORT extern const kvt_type_record _tbl_trees_table_type_info_internal;
KVT_EXPORT extern const kvt_type_record _tbl_trees_table_record_type_info_internal;

#ifdef __cplusplus
}
#endif
#endif

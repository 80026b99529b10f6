// The functions of tables. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "zarn_wlan/src/lookup.h"
#include "zarn_wlan/src/membership.h"
#include "zarn_wlan/src/record.h"
#include "zarn_wlan/src/record_serial.h"
#include "zarn_wlan/src/table_handle.h"

void *tbl_trees_table_open(kvt_handle *handle, uint32_t txn, const char *name, uint32_t open_type, int *err) {
  return kvt::table_open(kvt::schema_toy::tbl_trees::kDesc, handle, txn, name, open_type, err);
}
void tbl_trees_table_close(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  (void)txn, (void)table;
  kvt::table_close(handle, err);
}
const uint8_t *tbl_trees_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  return kvt_get_luid(handle, txn, object, err);
}
void *tbl_trees_create_record(kvt_handle *handle, uint32_t txn, int *err) {
  return kvt::record_create(kvt::schema_toy::tbl_trees::kDesc, handle, txn, 1, err);
}
void *tbl_trees_create_record_w_src(kvt_handle *handle, uint32_t txn, uint32_t source, int *err) {
  return kvt::record_create(kvt::schema_toy::tbl_trees::kDesc, handle, txn, source, err);
}
void *tbl_trees_record_create_cr(kvt_handle *handle, uint32_t with_payload) {
  return kvt::record_create_cr(kvt::schema_toy::tbl_trees::kDesc, handle, with_payload);
}
uint32_t tbl_trees_record_add_ref(kvt_handle *handle, uint32_t txn, void *record, int *err) {
  return kvt::record_add_ref(handle, txn, record, err);
}
uint32_t tbl_trees_destroy_record(kvt_handle *handle, uint32_t txn, void *record, int *err) {
  return kvt::record_destroy(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record, err);
}
uint32_t tbl_trees_record_destroy_cr(kvt_handle *handle, void *record) {
  return kvt::record_destroy(kvt::schema_toy::tbl_trees::kDesc, handle, handle->default_txn, record, &handle->last_error);
}
void *tbl_trees_st_tree_get_field(kvt_handle *handle, uint32_t txn, void *record) {
  return kvt::record_get_field(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record);
}
void *tbl_trees_st_tree_get_field_detach(kvt_handle *handle, uint32_t txn, void *record) {
  return kvt::record_detach_field(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record);
}
void tbl_trees_st_tree_set_field(kvt_handle *handle, uint32_t txn, void *record, void *object) {
  kvt::record_set_field(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record, object);
}
void tbl_trees_st_tree_free_and_set_field(kvt_handle *handle, uint32_t txn, void *record, void *object) {
  kvt::record_replace_field(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record, object);
}
void tbl_trees_record_walk_cr(kvt_handle *handle, void *table, uint32_t key_index, int (*function)(void *record, void *argument), void *argument) {
  static const e_avl_function kOnNode[] = {tbl_trees_st_tree_id_avl_internal_walk, tbl_trees_st_tree_name_avl_internal_walk};
  kvt::record_walk_cr(kvt::schema_toy::tbl_trees::kDesc, kOnNode, handle, table, key_index, function, argument);
}
void *tbl_trees_pkey_create(kvt_handle *handle, uint32_t txn) {
  return st_tree_create(handle, txn);
}
void tbl_trees_pkey_destroy(kvt_handle *handle, uint32_t txn, void *object) {
  st_tree_destroy(handle, txn, object);
}
uint32_t tbl_trees_table_get_count(kvt_handle *handle, uint32_t txn, void *table) {
  return kvt::table_count(handle, txn, table);
}
uint32_t tbl_trees_table_get_count_by_src(kvt_handle *handle, uint32_t txn, void *table, uint32_t source) {
  return kvt::table_count_by_source(handle, txn, table, source);
}
uint32_t tbl_trees_table_get_count_cr(kvt_handle *handle, void *table) {
  return kvt::table_count(handle, handle->default_txn, table);
}
void tbl_trees_insert(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  kvt::record_insert(kvt::schema_toy::tbl_trees::kDesc, handle, txn, table, record, false, err);
}
void tbl_trees_pkey_insert(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  kvt::record_insert(kvt::schema_toy::tbl_trees::kDesc, handle, txn, table, record, true, err);
}
int32_t tbl_trees_insert_cr(kvt_handle *handle, void *table, void *record, uint32_t primary_only) {
  kvt::record_insert(kvt::schema_toy::tbl_trees::kDesc, handle, handle->default_txn, table, record, primary_only != 0, &handle->last_error);
  return handle->last_error;
}
void tbl_trees_delete(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  kvt::record_remove(kvt::schema_toy::tbl_trees::kDesc, handle, txn, table, record, false, err);
}
void tbl_trees_pkey_delete(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  kvt::record_remove(kvt::schema_toy::tbl_trees::kDesc, handle, txn, table, record, true, err);
}
int32_t tbl_trees_delete_cr(kvt_handle *handle, void *table, void *record, uint32_t destroy) {
  kvt::record_remove(kvt::schema_toy::tbl_trees::kDesc, handle, handle->default_txn, table, record, false, &handle->last_error);
  if (destroy) kvt::record_destroy(kvt::schema_toy::tbl_trees::kDesc, handle, handle->default_txn, record, &handle->last_error);
  return handle->last_error;
}
uint32_t tbl_trees_table_record_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, void *record, int32_t length, int *err) {
  return kvt::record_marshal(kvt::schema_toy::tbl_trees::kDesc, handle, txn, buffer, record, length, err);
}
int32_t tbl_trees_record_marshal_cr(kvt_handle *handle, void *record, uint8_t *buffer, int32_t length) {
  return kvt::record_marshal_cr(kvt::schema_toy::tbl_trees::kDesc, handle, record, buffer, length);
}
uint32_t tbl_trees_table_record_unmarshal(kvt_handle *handle, uint32_t txn, void **record, const uint8_t *buffer, int32_t length, uint32_t update, int *err) {
  return kvt::record_unmarshal(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record, buffer, length, update, err);
}
uint32_t tbl_trees_table_record_len(kvt_handle *handle, uint32_t txn, void *record) {
  return kvt::record_len(kvt::schema_toy::tbl_trees::kDesc, handle, txn, record);
}
uint32_t tbl_trees_record_len_cr(kvt_handle *handle, void *record) {
  return handle->last_error ? 0 : kvt::record_len(kvt::schema_toy::tbl_trees::kDesc, handle, handle->default_txn, record);
}
uint32_t tbl_trees_table_record_to_xml(kvt_handle *handle, uint32_t txn, char *buffer, void *record, int32_t room, int *err) {
  return kvt::record_to_xml(kvt::schema_toy::tbl_trees::kDesc, handle, txn, buffer, record, room, err);
}
int32_t tbl_trees_record_toxml_cr(kvt_handle *handle, void *record, char *buffer, int32_t room) {
  return kvt::record_to_xml_cr(kvt::schema_toy::tbl_trees::kDesc, handle, record, buffer, room);
}
void *tbl_trees_table_record_from_xml(kvt_handle *handle, uint32_t txn, kvt_xml_document *document, int *err, char *message, size_t size) {
  return kvt::record_from_xml(kvt::schema_toy::tbl_trees::kDesc, handle, txn, document, err, message, size);
}
void *tbl_trees_search(kvt_handle *handle, uint32_t txn, void *table, const void *holder, uint32_t nearest, int *err) {
  const kvt::SearchOptions options{nearest != 0, true, 1, 1, false, false};
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 0, handle, txn, table, kvt::key_in_holder(kvt::schema_toy::tbl_trees::kDesc, holder), options, err);
}
void *tbl_trees_get_next_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *holder, int *err) {
  return kvt::key_next_by_key(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, kvt::key_in_holder(kvt::schema_toy::tbl_trees::kDesc, holder), err);
}
void *tbl_trees_get_prev_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *holder, int *err) {
  return kvt::key_next_by_key(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, kvt::key_in_holder(kvt::schema_toy::tbl_trees::kDesc, holder), err);
}
void *tbl_trees_pkey_get_first(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  return kvt::key_edge(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, err);
}
void *tbl_trees_pkey_get_last(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  return kvt::key_edge(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, err);
}
void *tbl_trees_pkey_get_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_next(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, record, err);
}
void *tbl_trees_pkey_get_prev(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_next(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, record, err);
}
void *tbl_trees_pkey_get_sub_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_sub_next(kvt::schema_toy::tbl_trees::kDesc, 0, handle, txn, table, record, err);
}
int tbl_trees_st_tree_id_avl_compare(const void *a, const void *b) {
  return kvt::key_avl_compare<kvt::schema_toy::tbl_trees::id>(a, b);
}
int tbl_trees_st_tree_id_avl_internal_walk(void *node, void *walker) {
  return kvt::walk_node(0, node, walker);
}
void tbl_trees_st_tree_id_walk(void *table, int (*function)(void *record, void *argument), void *argument, int *err) {
  kvt::key_walk(table, 0, tbl_trees_st_tree_id_avl_internal_walk, function, argument, err);
}
void *tbl_trees_st_tree_id_search_internal(kvt_handle *handle, uint32_t txn, void *table, const void *key, uint32_t nearest, uint32_t forward, uint32_t source, uint32_t neighbour_source, uint32_t skip_pending, uint32_t same_key, int *err) {
  const kvt::SearchOptions options{nearest != 0, forward != 0, source, neighbour_source, skip_pending != 0, same_key != 0};
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 0, handle, txn, table, key, options, err);
}
void *tbl_trees_st_tree_id_search(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 0, handle, txn, table, key, kvt::SearchOptions{}, err);
}
void *tbl_trees_st_tree_id_search_nearest(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  const kvt::SearchOptions options{true, true, 1, 1, false, false};
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 0, handle, txn, table, key, options, err);
}
void *tbl_trees_st_tree_id_search_cr(kvt_handle *handle, void *table, const void *key, uint32_t source, uint32_t flags) {
  return kvt::key_search_cr(kvt::schema_toy::tbl_trees::kDesc, 0, handle, table, key, source, flags);
}
void *tbl_trees_st_tree_id_get_first(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  return kvt::key_edge(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, err);
}
void *tbl_trees_st_tree_id_get_last(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  return kvt::key_edge(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, err);
}
void *tbl_trees_st_tree_id_get_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_next(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, record, err);
}
void *tbl_trees_st_tree_id_get_prev(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_next(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, record, err);
}
void *tbl_trees_st_tree_id_get_next_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  return kvt::key_next_by_key(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, key, err);
}
void *tbl_trees_st_tree_id_get_prev_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  return kvt::key_next_by_key(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, key, err);
}
void *tbl_trees_st_tree_id_get_sub_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_sub_next(kvt::schema_toy::tbl_trees::kDesc, 0, handle, txn, table, record, err);
}
void *tbl_trees_st_tree_id_get_next_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err) {
  return kvt::key_step(kvt::schema_toy::tbl_trees::kDesc, 0, true, handle, txn, table, record, source, source_filter != 0, skip_pending != 0, same_key != 0, err);
}
void *tbl_trees_st_tree_id_get_prev_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err) {
  return kvt::key_step(kvt::schema_toy::tbl_trees::kDesc, 0, false, handle, txn, table, record, source, source_filter != 0, skip_pending != 0, same_key != 0, err);
}
void tbl_trees_st_tree_id_unordered_traversal(void) {
  
}
int tbl_trees_st_tree_name_avl_compare(const void *a, const void *b) {
  return kvt::key_avl_compare<kvt::schema_toy::tbl_trees::name>(a, b);
}
int tbl_trees_st_tree_name_avl_internal_walk(void *node, void *walker) {
  return kvt::walk_node(1, node, walker);
}
void tbl_trees_st_tree_name_walk(void *table, int (*function)(void *record, void *argument), void *argument, int *err) {
  kvt::key_walk(table, 1, tbl_trees_st_tree_name_avl_internal_walk, function, argument, err);
}
void *tbl_trees_st_tree_name_search_internal(kvt_handle *handle, uint32_t txn, void *table, const void *key, uint32_t nearest, uint32_t forward, uint32_t source, uint32_t neighbour_source, uint32_t skip_pending, uint32_t same_key, int *err) {
  const kvt::SearchOptions options{nearest != 0, forward != 0, source, neighbour_source, skip_pending != 0, same_key != 0};
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 1, handle, txn, table, key, options, err);
}
void *tbl_trees_st_tree_name_search(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 1, handle, txn, table, key, kvt::SearchOptions{}, err);
}
void *tbl_trees_st_tree_name_search_nearest(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  const kvt::SearchOptions options{true, true, 1, 1, false, false};
  return kvt::key_search(kvt::schema_toy::tbl_trees::kDesc, 1, handle, txn, table, key, options, err);
}
void *tbl_trees_st_tree_name_search_cr(kvt_handle *handle, void *table, const void *key, uint32_t source, uint32_t flags) {
  return kvt::key_search_cr(kvt::schema_toy::tbl_trees::kDesc, 1, handle, table, key, source, flags);
}
void *tbl_trees_st_tree_name_get_first(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  return kvt::key_edge(kvt::schema_toy::tbl_trees::kDesc, 1, true, handle, txn, table, err);
}
void *tbl_trees_st_tree_name_get_last(kvt_handle *handle, uint32_t txn, void *table, int *err) {
  return kvt::key_edge(kvt::schema_toy::tbl_trees::kDesc, 1, false, handle, txn, table, err);
}
void *tbl_trees_st_tree_name_get_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_next(kvt::schema_toy::tbl_trees::kDesc, 1, true, handle, txn, table, record, err);
}
void *tbl_trees_st_tree_name_get_prev(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_next(kvt::schema_toy::tbl_trees::kDesc, 1, false, handle, txn, table, record, err);
}
void *tbl_trees_st_tree_name_get_next_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  return kvt::key_next_by_key(kvt::schema_toy::tbl_trees::kDesc, 1, true, handle, txn, table, key, err);
}
void *tbl_trees_st_tree_name_get_prev_by_key(kvt_handle *handle, uint32_t txn, void *table, const void *key, int *err) {
  return kvt::key_next_by_key(kvt::schema_toy::tbl_trees::kDesc, 1, false, handle, txn, table, key, err);
}
void *tbl_trees_st_tree_name_get_sub_next(kvt_handle *handle, uint32_t txn, void *table, void *record, int *err) {
  return kvt::key_sub_next(kvt::schema_toy::tbl_trees::kDesc, 1, handle, txn, table, record, err);
}
void *tbl_trees_st_tree_name_get_next_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err) {
  return kvt::key_step(kvt::schema_toy::tbl_trees::kDesc, 1, true, handle, txn, table, record, source, source_filter != 0, skip_pending != 0, same_key != 0, err);
}
void *tbl_trees_st_tree_name_get_prev_internal(kvt_handle *handle, uint32_t txn, void *table, void *record, uint32_t source, uint32_t source_filter, uint32_t skip_pending, uint32_t same_key, int *err) {
  return kvt::key_step(kvt::schema_toy::tbl_trees::kDesc, 1, false, handle, txn, table, record, source, source_filter != 0, skip_pending != 0, same_key != 0, err);
}
void tbl_trees_st_tree_name_unordered_traversal(void) {
  
}

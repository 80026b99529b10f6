// Field accessors. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "objects/field_access.h"

void *st_tree_id_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_tree::id>(handle, txn, object, err);
}
void st_tree_id_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_tree::id>(handle, txn, object, source, err);
}
uint32_t st_tree_id_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get_value<kvt::schema_toy::st_tree::id>(handle, txn, object, err);
}
void st_tree_id_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_set_value<kvt::schema_toy::st_tree::id>(handle, txn, object, value, err);
}
uint8_t st_tree_id_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::id>(handle, txn, object, err);
}
void st_tree_id_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::id>(handle, txn, object, value, err);
}
void *st_tree_name_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_tree::name>(handle, txn, object, err);
}
void st_tree_name_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_tree::name>(handle, txn, object, source, err);
}
uint8_t st_tree_name_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::name>(handle, txn, object, err);
}
void st_tree_name_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::name>(handle, txn, object, value, err);
}
void *st_tree_leaf_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_tree::leaf>(handle, txn, object, err);
}
void st_tree_leaf_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_tree::leaf>(handle, txn, object, source, err);
}
uint8_t st_tree_leaf_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::leaf>(handle, txn, object, err);
}
void st_tree_leaf_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::leaf>(handle, txn, object, value, err);
}
void *st_tree_secret_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_tree::secret>(handle, txn, object, err);
}
void st_tree_secret_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_tree::secret>(handle, txn, object, source, err);
}
uint8_t st_tree_secret_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::secret>(handle, txn, object, err);
}
void st_tree_secret_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::secret>(handle, txn, object, value, err);
}
void *st_tree_marks_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_tree::marks>(handle, txn, object, err);
}
void st_tree_marks_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_tree::marks>(handle, txn, object, source, err);
}
uint8_t st_tree_marks_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::marks>(handle, txn, object, err);
}
void st_tree_marks_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::marks>(handle, txn, object, value, err);
}
void *st_tree_alive_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_tree::alive>(handle, txn, object, err);
}
void st_tree_alive_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_tree::alive>(handle, txn, object, source, err);
}
kvt_boolean st_tree_alive_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get_value<kvt::schema_toy::st_tree::alive>(handle, txn, object, err);
}
void st_tree_alive_set_value(kvt_handle *handle, uint32_t txn, void *object, kvt_boolean value, int *err) {
  kvt::field_set_value<kvt::schema_toy::st_tree::alive>(handle, txn, object, value, err);
}
uint8_t st_tree_alive_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::alive>(handle, txn, object, err);
}
void st_tree_alive_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::alive>(handle, txn, object, value, err);
}
uint8_t st_tree_parent_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_tree::parent>(handle, txn, object, err);
}
void st_tree_parent_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_tree::parent>(handle, txn, object, value, err);
}
void st_tree_get_all(kvt_handle *handle, uint32_t txn, void *object, uint32_t *id, kvt_boolean *alive, int *err) {
  kvt::struct_get_all<kvt::schema_toy::st_tree::id, kvt::schema_toy::st_tree::alive>(handle, txn, object, id, alive, err);
}
void st_tree_set_all(kvt_handle *handle, uint32_t txn, void *object, uint32_t id, kvt_boolean alive, int *err) {
  kvt::struct_set_all<kvt::schema_toy::st_tree, kvt::schema_toy::st_tree::id, kvt::schema_toy::st_tree::alive>(handle, txn, object, id, alive, err);
}

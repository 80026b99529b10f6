// Field accessors. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "objects/field_access.h"

void *st_leaf_shade_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_leaf::shade>(handle, txn, object, err);
}
void st_leaf_shade_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_leaf::shade>(handle, txn, object, source, err);
}
uint32_t st_leaf_shade_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get_value<kvt::schema_toy::st_leaf::shade>(handle, txn, object, err);
}
void st_leaf_shade_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_set_value<kvt::schema_toy::st_leaf::shade>(handle, txn, object, value, err);
}
uint8_t st_leaf_shade_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_leaf::shade>(handle, txn, object, err);
}
void st_leaf_shade_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_leaf::shade>(handle, txn, object, value, err);
}
void *st_leaf_width_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get<kvt::schema_toy::st_leaf::width>(handle, txn, object, err);
}
void st_leaf_width_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::field_set<kvt::schema_toy::st_leaf::width>(handle, txn, object, source, err);
}
uint16_t st_leaf_width_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_get_value<kvt::schema_toy::st_leaf::width>(handle, txn, object, err);
}
void st_leaf_width_set_value(kvt_handle *handle, uint32_t txn, void *object, uint16_t value, int *err) {
  kvt::field_set_value<kvt::schema_toy::st_leaf::width>(handle, txn, object, value, err);
}
uint8_t st_leaf_width_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  return kvt::field_state_get<kvt::schema_toy::st_leaf::width>(handle, txn, object, err);
}
void st_leaf_width_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::field_state_set<kvt::schema_toy::st_leaf::width>(handle, txn, object, value, err);
}
void st_leaf_get_all(kvt_handle *handle, uint32_t txn, void *object, uint32_t *shade, uint16_t *width, int *err) {
  kvt::struct_get_all<kvt::schema_toy::st_leaf::shade, kvt::schema_toy::st_leaf::width>(handle, txn, object, shade, width, err);
}
void st_leaf_set_all(kvt_handle *handle, uint32_t txn, void *object, uint32_t shade, uint16_t width, int *err) {
  kvt::struct_set_all<kvt::schema_toy::st_leaf, kvt::schema_toy::st_leaf::shade, kvt::schema_toy::st_leaf::width>(handle, txn, object, shade, width, err);
}

// Enumerated and flag types. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "objects/enumerated.h"
#include "objects/flag_set.h"
#include "serial/binary.h"
#include "serial/xml_form.h"

int32_t enm_shade_variant_data_index_cap(int32_t variant) {
  return kvt::cap_variant(variant, kvt::schema_toy::enm_shade::kDesc.cap);
}
const uint8_t *enm_shade_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  return kvt_get_luid(handle, txn, object, err);
}
void *enm_shade_create(kvt_handle *handle, uint32_t txn) {
  return kvt::scalar_create_internal(kvt::schema_toy::enm_shade::kDesc, handle, txn);
}
void *enm_shade_create_internal(kvt_handle *handle, uint32_t txn) {
  return kvt::scalar_create_internal(kvt::schema_toy::enm_shade::kDesc, handle, txn);
}
void *enm_shade_create_cr(kvt_handle *handle) {
  return kvt::scalar_create_cr(kvt::schema_toy::enm_shade::kDesc, handle);
}
void enm_shade_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err) {
  (void)no_stats, (void)sttr_base;
  kvt::scalar_initialize(kvt::schema_toy::enm_shade::kDesc, handle, txn, object, record, announce, flags, err);
}
void enm_shade_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::scalar_set_embedded(kvt::schema_toy::enm_shade::kDesc, handle, txn, object);
}
uint32_t enm_shade_get_oid_count(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  (void)txn;
  return kvt::scalar_get_oid_count(kvt::schema_toy::enm_shade::kDesc, handle, object, err);
}
void enm_shade_get_object_references(kvt_handle *handle, uint32_t txn, const void *object, void **out, uint32_t count, int *err) {
  (void)txn, (void)out, (void)count;
  kvt::scalar_get_object_references(kvt::schema_toy::enm_shade::kDesc, handle, object, err);
}
void enm_shade_destroy(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::scalar_destroy_internal(kvt::schema_toy::enm_shade::kDesc, handle, txn, object, 1, true);
}
void enm_shade_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it) {
  kvt::scalar_destroy_internal(kvt::schema_toy::enm_shade::kDesc, handle, txn, object, free_it, true);
}
void enm_shade_destroy_cr(kvt_handle *handle, void *object) {
  kvt::scalar_destroy_internal(kvt::schema_toy::enm_shade::kDesc, handle, handle->default_txn, object, 1, true);
}
void enm_shade_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  kvt::adjust_variant(handle, txn, object, kvt::schema_toy::enm_shade::kDesc.cap, err);
}
uint32_t enm_shade_sizeof(kvt_handle *handle) {
  (void)handle;
  return kvt::kScalarObjectSize;
}
int32_t enm_shade_compare(const void *a, const void *b) {
  return kvt::enum_compare(a, b);
}
uint32_t enm_shade_map_to_internal_value(uint32_t value) {
  return value;
}
uint32_t enm_shade_len(kvt_handle *handle, uint32_t txn, const void *object) {
  (void)handle, (void)txn, (void)object;
  return kvt::kEnumBytes;
}
uint32_t enm_shade_len_cr(kvt_handle *handle) {
  return handle->last_error ? 0 : kvt::kEnumBytes;
}
void *enm_shade_get(kvt_handle *handle, uint32_t txn, void *object) {
  return kvt::enum_get(handle, txn, object);
}
uint32_t enm_shade_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  (void)txn;
  return kvt::enum_get_value(handle, object, err);
}
void enm_shade_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::enum_set(kvt::schema_toy::enm_shade::kDesc, handle, txn, object, source, err);
}
void enm_shade_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err) {
  kvt::enum_set_value(kvt::schema_toy::enm_shade::kDesc, handle, txn, object, value, err);
}
uint32_t enm_shade_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err) {
  return kvt::enum_marshal(kvt::schema_toy::enm_shade::kDesc, handle, txn, buffer, object, length, err);
}
uint32_t enm_shade_unmarshal(kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err) {
  return kvt::enum_unmarshal(kvt::schema_toy::enm_shade::kDesc, handle, txn, buffer, object, length, update, err);
}
uint32_t enm_shade_to_xml(kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t state, int *err) {
  (void)state;
  return kvt::enum_to_xml(kvt::schema_toy::enm_shade::kDesc, handle, txn, name, buffer, object, room, err);
}
int32_t enm_shade_toxml_cr(kvt_handle *handle, const void *object, char *buffer, int32_t room) {
  return kvt::enum_to_xml_cr(kvt::schema_toy::enm_shade::kDesc, handle, object, buffer, room);
}
void enm_shade_from_xml(kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char *message, size_t size) {
  (void)txn;
  kvt::enum_from_xml(kvt::schema_toy::enm_shade::kDesc, handle, path, document, object, err, message, size);
}
uint32_t enm_shade_is_valid_cr(kvt_handle *handle, int32_t value) {
  return kvt::enum_is_valid(kvt::schema_toy::enm_shade::kDesc, handle, value);
}
int32_t flg_marks_variant_data_index_cap(int32_t variant) {
  return kvt::cap_variant(variant, kvt::schema_toy::flg_marks::kDesc.cap);
}
const uint8_t *flg_marks_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  return kvt_get_luid(handle, txn, object, err);
}
void *flg_marks_create(kvt_handle *handle, uint32_t txn) {
  return kvt::scalar_create_internal(kvt::schema_toy::flg_marks::kDesc, handle, txn);
}
void *flg_marks_create_internal(kvt_handle *handle, uint32_t txn) {
  return kvt::scalar_create_internal(kvt::schema_toy::flg_marks::kDesc, handle, txn);
}
void *flg_marks_create_cr(kvt_handle *handle) {
  return kvt::scalar_create_cr(kvt::schema_toy::flg_marks::kDesc, handle);
}
void flg_marks_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err) {
  (void)no_stats, (void)sttr_base;
  kvt::scalar_initialize(kvt::schema_toy::flg_marks::kDesc, handle, txn, object, record, announce, flags, err);
}
void flg_marks_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::scalar_set_embedded(kvt::schema_toy::flg_marks::kDesc, handle, txn, object);
}
uint32_t flg_marks_get_oid_count(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  (void)txn;
  return kvt::scalar_get_oid_count(kvt::schema_toy::flg_marks::kDesc, handle, object, err);
}
void flg_marks_get_object_references(kvt_handle *handle, uint32_t txn, const void *object, void **out, uint32_t count, int *err) {
  (void)txn, (void)out, (void)count;
  kvt::scalar_get_object_references(kvt::schema_toy::flg_marks::kDesc, handle, object, err);
}
void flg_marks_destroy(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::scalar_destroy_internal(kvt::schema_toy::flg_marks::kDesc, handle, txn, object, 1, false);
}
void flg_marks_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it) {
  kvt::scalar_destroy_internal(kvt::schema_toy::flg_marks::kDesc, handle, txn, object, free_it, false);
}
void flg_marks_destroy_cr(kvt_handle *handle, void *object) {
  kvt::scalar_destroy_internal(kvt::schema_toy::flg_marks::kDesc, handle, handle->default_txn, object, 1, false);
}
void flg_marks_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  kvt::adjust_variant(handle, txn, object, kvt::schema_toy::flg_marks::kDesc.cap, err);
}
uint32_t flg_marks_sizeof(kvt_handle *handle) {
  (void)handle;
  return kvt::kScalarObjectSize;
}
int32_t flg_marks_compare(const void *a, const void *b) {
  return kvt::flag_compare(a, b);
}
uint32_t flg_marks_len(kvt_handle *handle, uint32_t txn, const void *object) {
  (void)handle, (void)txn, (void)object;
  return kvt::kFlagBytes;
}
uint32_t flg_marks_len_cr(kvt_handle *handle, const void *object) {
  (void)object;
  return handle->last_error ? 0 : kvt::kFlagBytes;
}
uint32_t flg_marks_in_range(uint32_t bit) {
  return kvt::flag_in_range(kvt::schema_toy::flg_marks::kDesc, bit);
}
void *flg_marks_get(kvt_handle *handle, uint32_t txn, void *object) {
  (void)handle, (void)txn;
  return object;
}
void flg_marks_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err) {
  kvt::flag_set(handle, txn, object, source, err);
}
uint32_t flg_marks_get_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t bit, int *err) {
  (void)txn;
  return kvt::flag_get_value(kvt::schema_toy::flg_marks::kDesc, handle, object, bit, err);
}
uint32_t flg_marks_get_cr(kvt_handle *handle, void *object, uint32_t bit) {
  const std::uint32_t on = kvt::flag_get_value(kvt::schema_toy::flg_marks::kDesc, handle, object, bit, &handle->last_error);
  return handle->last_error ? 0 : on;
}
void flg_marks_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t bit, uint32_t on, int *err) {
  kvt::flag_set_value(kvt::schema_toy::flg_marks::kDesc, handle, txn, object, bit, on, err);
}
int32_t flg_marks_set_cr(kvt_handle *handle, void *object, uint32_t bit, uint32_t on) {
  kvt::flag_set_value(kvt::schema_toy::flg_marks::kDesc, handle, handle->default_txn, object, bit, on, &handle->last_error);
  return handle->last_error;
}
uint32_t flg_marks_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err) {
  return kvt::flag_marshal(kvt::schema_toy::flg_marks::kDesc, handle, txn, buffer, object, length, err);
}
uint32_t flg_marks_unmarshal(kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err) {
  return kvt::flag_unmarshal(kvt::schema_toy::flg_marks::kDesc, handle, txn, buffer, object, length, update, err);
}
uint32_t flg_marks_to_xml(kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t state, int *err) {
  (void)state;
  return kvt::flag_to_xml(kvt::schema_toy::flg_marks::kDesc, handle, txn, name, buffer, object, room, err);
}
int32_t flg_marks_toxml_cr(kvt_handle *handle, const void *object, char *buffer, int32_t room) {
  return kvt::flag_to_xml_cr(kvt::schema_toy::flg_marks::kDesc, handle, object, buffer, room);
}
void flg_marks_from_xml(kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char *message, size_t size) {
  kvt::flag_from_xml(kvt::schema_toy::flg_marks::kDesc, handle, txn, path, document, object, err, message, size);
}
uint32_t flg_marks_is_valid_cr(kvt_handle *handle, uint32_t bit) {
  return kvt::flag_is_valid(kvt::schema_toy::flg_marks::kDesc, handle, bit);
}

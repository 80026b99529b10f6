// Serial forms of struct types. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "serial/binary.h"
#include "serial/compare.h"
#include "serial/xml_form.h"

uint32_t st_tree_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err) {
  return kvt::struct_marshal<kvt::schema_toy::st_tree>(handle, txn, buffer, object, length, true, err);
}
uint32_t st_tree_unmarshal(kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err) {
  return kvt::struct_unmarshal<kvt::schema_toy::st_tree>(handle, txn, buffer, object, length, update, err);
}
uint32_t st_tree_len(kvt_handle *handle, uint32_t txn, const void *object) {
  return kvt::struct_len<kvt::schema_toy::st_tree>(handle, object, txn);
}
uint32_t st_tree_len_cr(kvt_handle *handle, const void *object) {
  return kvt::struct_len_cr<kvt::schema_toy::st_tree>(handle, object);
}
int32_t st_tree_compare(const void *a, const void *b) {
  return kvt::struct_compare<kvt::schema_toy::st_tree>(a, b);
}
uint32_t st_tree_to_xml(kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t state, int *err) {
  return kvt::struct_to_xml(kvt::schema_toy::st_tree::kDesc, handle, txn, name, buffer, object, room, state, err);
}
int32_t st_tree_toxml_cr(kvt_handle *handle, const void *object, char *buffer, int32_t room) {
  return kvt::struct_to_xml_cr(kvt::schema_toy::st_tree::kDesc, handle, object, buffer, room);
}
void st_tree_from_xml(kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char *message, size_t size) {
  kvt::struct_from_xml(kvt::schema_toy::st_tree::kDesc, handle, txn, path, document, object, err, message, size);
}

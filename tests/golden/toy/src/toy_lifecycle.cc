// Lifecycle of struct types. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "objects/state_tracking.h"
#include "objects/struct_copy.h"
#include "objects/struct_lifecycle.h"
#include "objects/variants.h"

void *st_leaf_create(kvt_handle *handle, uint32_t txn) {
  return kvt::struct_create(kvt::schema_toy::st_leaf::kDesc, handle, txn);
}
void *st_leaf_create_internal(kvt_handle *handle, uint32_t txn) {
  return kvt::struct_create_internal(kvt::schema_toy::st_leaf::kDesc, handle, txn);
}
void *st_leaf_create_cr(kvt_handle *handle) {
  return kvt::struct_create_cr(kvt::schema_toy::st_leaf::kDesc, handle);
}
void st_leaf_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err) {
  kvt::struct_initialize(kvt::schema_toy::st_leaf::kDesc, handle, txn, object, record, announce, no_stats, flags, sttr_base, err);
}
void st_leaf_destroy(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::struct_destroy(kvt::schema_toy::st_leaf::kDesc, handle, txn, object);
}
void st_leaf_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it) {
  kvt::struct_destroy_internal(kvt::schema_toy::st_leaf::kDesc, handle, txn, object, free_it);
}
void st_leaf_destroy_cr(kvt_handle *handle, void *object) {
  kvt::struct_destroy_internal(kvt::schema_toy::st_leaf::kDesc, handle, handle->default_txn, object, 1);
}
uint32_t st_leaf_sizeof(kvt_handle *handle) {
  return kvt::struct_sizeof(kvt::schema_toy::st_leaf::kDesc, handle);
}
uint32_t st_leaf_sizeof_internal(kvt_handle *handle, const void *object, int with_block, int block_only) {
  return kvt::struct_sizeof_internal(kvt::schema_toy::st_leaf::kDesc, handle, object, with_block, block_only);
}
void st_leaf_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::struct_set_embedded(kvt::schema_toy::st_leaf::kDesc, handle, txn, object);
}
void st_leaf_set_all_state_tracking_flag(kvt_handle *handle, uint32_t txn, void *object, uint32_t value) {
  kvt::state_set_all(kvt::schema_toy::st_leaf::kDesc, handle, txn, object, static_cast<std::uint8_t>(value));
}
void st_leaf_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  kvt::adjust_variant(handle, txn, object, kvt::schema_toy::st_leaf::kDesc.top, err);
}
int32_t st_leaf_variant_data_index_cap(int32_t variant) {
  return kvt::cap_variant(variant, kvt::schema_toy::st_leaf::kDesc.top);
}
uint32_t st_leaf_is_valid_cr(kvt_handle *handle, const void *object, uint32_t field_index, uint32_t domain_only) {
  return kvt::struct_is_valid(kvt::schema_toy::st_leaf::kDesc, handle, object, field_index, domain_only);
}
void st_leaf_offset_update(kvt_handle *handle, uint32_t txn, void *object, void *anchor) {
  kvt::offset_update(kvt::schema_toy::st_leaf::kDesc, handle, txn, object, anchor);
}
void st_leaf_offset_remove(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  kvt::offset_remove(kvt::schema_toy::st_leaf::kDesc, handle, txn, object, err);
}
void *st_leaf_post_copyout_cleanup(kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err) {
  return kvt::post_copyout_cleanup(kvt::schema_toy::st_leaf::kDesc, handle, txn, dest, source, err);
}
const uint8_t *st_leaf_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  return kvt_get_luid(handle, txn, object, err);
}
void *st_leaf_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  (void)err;
  return kvt::struct_get(handle, txn, object);
}
void st_leaf_set(kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err) {
  kvt::struct_set(kvt::schema_toy::st_leaf::kDesc, handle, txn, dest, source, err);
}
void *st_tree_create(kvt_handle *handle, uint32_t txn) {
  return kvt::struct_create(kvt::schema_toy::st_tree::kDesc, handle, txn);
}
void *st_tree_create_internal(kvt_handle *handle, uint32_t txn) {
  return kvt::struct_create_internal(kvt::schema_toy::st_tree::kDesc, handle, txn);
}
void *st_tree_create_cr(kvt_handle *handle) {
  return kvt::struct_create_cr(kvt::schema_toy::st_tree::kDesc, handle);
}
void st_tree_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err) {
  kvt::struct_initialize(kvt::schema_toy::st_tree::kDesc, handle, txn, object, record, announce, no_stats, flags, sttr_base, err);
}
void st_tree_destroy(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::struct_destroy(kvt::schema_toy::st_tree::kDesc, handle, txn, object);
}
void st_tree_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it) {
  kvt::struct_destroy_internal(kvt::schema_toy::st_tree::kDesc, handle, txn, object, free_it);
}
void st_tree_destroy_cr(kvt_handle *handle, void *object) {
  kvt::struct_destroy_internal(kvt::schema_toy::st_tree::kDesc, handle, handle->default_txn, object, 1);
}
uint32_t st_tree_sizeof(kvt_handle *handle) {
  return kvt::struct_sizeof(kvt::schema_toy::st_tree::kDesc, handle);
}
uint32_t st_tree_sizeof_internal(kvt_handle *handle, const void *object, int with_block, int block_only) {
  return kvt::struct_sizeof_internal(kvt::schema_toy::st_tree::kDesc, handle, object, with_block, block_only);
}
void st_tree_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object) {
  kvt::struct_set_embedded(kvt::schema_toy::st_tree::kDesc, handle, txn, object);
}
void st_tree_set_all_state_tracking_flag(kvt_handle *handle, uint32_t txn, void *object, uint32_t value) {
  kvt::state_set_all(kvt::schema_toy::st_tree::kDesc, handle, txn, object, static_cast<std::uint8_t>(value));
}
void st_tree_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  kvt::adjust_variant(handle, txn, object, kvt::schema_toy::st_tree::kDesc.top, err);
}
int32_t st_tree_variant_data_index_cap(int32_t variant) {
  return kvt::cap_variant(variant, kvt::schema_toy::st_tree::kDesc.top);
}
uint32_t st_tree_is_valid_cr(kvt_handle *handle, const void *object, uint32_t field_index, uint32_t domain_only) {
  return kvt::struct_is_valid(kvt::schema_toy::st_tree::kDesc, handle, object, field_index, domain_only);
}
void st_tree_offset_update(kvt_handle *handle, uint32_t txn, void *object, void *anchor) {
  kvt::offset_update(kvt::schema_toy::st_tree::kDesc, handle, txn, object, anchor);
}
void st_tree_offset_remove(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  kvt::offset_remove(kvt::schema_toy::st_tree::kDesc, handle, txn, object, err);
}
void *st_tree_post_copyout_cleanup(kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err) {
  return kvt::post_copyout_cleanup(kvt::schema_toy::st_tree::kDesc, handle, txn, dest, source, err);
}
const uint8_t *st_tree_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err) {
  return kvt_get_luid(handle, txn, object, err);
}
void *st_tree_get(kvt_handle *handle, uint32_t txn, void *object, int *err) {
  (void)err;
  return kvt::struct_get(handle, txn, object);
}
void st_tree_set(kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err) {
  kvt::struct_set(kvt::schema_toy::st_tree::kDesc, handle, txn, dest, source, err);
}

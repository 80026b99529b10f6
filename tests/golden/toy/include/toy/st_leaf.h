/// @file
/// st_leaf: Leaf.
/// Made by zarnc from the schema of toy; not to be edited.
#ifndef TOY_ST_LEAF_H
#define TOY_ST_LEAF_H

#include <kvt/kvt.h>

#ifdef __cplusplus
extern "C" {
#endif

/// A new object, all fields zero or empty. The caller destroys it. NULL when the store is exhausted; no error is kept.
KVT_EXPORT void *st_leaf_create(kvt_handle *handle, uint32_t txn);
/// As st_leaf_create, for generated callers.
KVT_EXPORT void *st_leaf_create_internal(kvt_handle *handle, uint32_t txn);
/// As st_leaf_create with the handle's write context; an exhausted store gives the failure object and last error ENOMEM.
KVT_EXPORT void *st_leaf_create_cr(kvt_handle *handle);
/// Sets up header and fields of an object that lies elsewhere. `record` is the static type record, `flags` 4 for a nested object, `sttr_base` the state block of its top-level object. ENOMEM; EINVAL: nested and tracked without base.
KVT_EXPORT void st_leaf_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err);
/// Gives back the object and all that it holds. NULL and the failure object are accepted. In a database the caller holds the write lock.
KVT_EXPORT void st_leaf_destroy(kvt_handle *handle, uint32_t txn, void *object);
/// As st_leaf_destroy; with `free_it` 0 the memory of the object itself stays.
KVT_EXPORT void st_leaf_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it);
/// As st_leaf_destroy with the handle's write context.
KVT_EXPORT void st_leaf_destroy_cr(kvt_handle *handle, void *object);
/// Bytes of a new object: 28, and with state tracking 30.
KVT_EXPORT uint32_t st_leaf_sizeof(kvt_handle *handle);
/// Bytes of the object by its built variant (NULL: the top one), with its state block or the block alone.
KVT_EXPORT uint32_t st_leaf_sizeof_internal(kvt_handle *handle, const void *object, int with_block, int block_only);
/// Marks the object and its nested objects as taken over by a record.
KVT_EXPORT void st_leaf_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object);
/// Fills the object's whole state block; nothing on an untracked handle or object. Not announced.
KVT_EXPORT void st_leaf_set_all_state_tracking_flag(kvt_handle *handle, uint32_t txn, void *object, uint32_t value);
/// Lets the runtime raise the object's variant, at most to 0.
KVT_EXPORT void st_leaf_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// The variant, at most 0.
KVT_EXPORT int32_t st_leaf_variant_data_index_cap(int32_t variant);
/// 1 if the field of that index exists in the domain (bit 0 of `domain_only`), or in domain and object.
KVT_EXPORT uint32_t st_leaf_is_valid_cr(kvt_handle *handle, const void *object, uint32_t field_index, uint32_t domain_only);
/// Tells the runtime where the state bytes of nested objects are; `anchor` is the object's own block.
KVT_EXPORT void st_leaf_offset_update(kvt_handle *handle, uint32_t txn, void *object, void *anchor);
/// Takes back what st_leaf_offset_update told.
KVT_EXPORT void st_leaf_offset_remove(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// After a raw copy of an object's bytes: gives every string of `dest` content of its own. Returns its first argument.
KVT_EXPORT void *st_leaf_post_copyout_cleanup(kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err);
/// The 16 bytes of the object's type identity.
KVT_EXPORT const uint8_t *st_leaf_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err);
/// The object itself, reported to the containment observer. `err` isn't read.
KVT_EXPORT void *st_leaf_get(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// Copies a whole object; the old content of `dest` is given back. `err` must be clear. EIDRM: `dest` holds a lower variant than `source`, or was built with another one; EINVAL: no state block on a tracking handle; ENOMEM.
KVT_EXPORT void st_leaf_set(kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err);
/// Writes the object's binary form. `length` is the room at `buffer`. EMSGSIZE: too little room; EIDRM: the domain allows only a lower variant. Bytes written.
KVT_EXPORT uint32_t st_leaf_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err);
/// Reads a binary form into an initialised object; what the bytes do not carry stays. EMSGSIZE: cut short; ENOMEM. Bytes read.
KVT_EXPORT uint32_t st_leaf_unmarshal(kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err);
/// Bytes that st_leaf_marshal needs; 6 for NULL.
KVT_EXPORT uint32_t st_leaf_len(kvt_handle *handle, uint32_t txn, const void *object);
/// As st_leaf_len; 0 when the last error is set.
KVT_EXPORT uint32_t st_leaf_len_cr(kvt_handle *handle, const void *object);
/// 0 when all fields are equal, else below or above 0 by the first difference in schema order. NULL sorts first.
KVT_EXPORT int32_t st_leaf_compare(const void *a, const void *b);
/// Writes the object as the element `name`. `room` is that at `buffer`; no terminator is written. EMSGSIZE. Characters written.
KVT_EXPORT uint32_t st_leaf_to_xml(kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t state, int *err);
/// As st_leaf_to_xml with the type's name; -1 when the last error is set.
KVT_EXPORT int32_t st_leaf_toxml_cr(kvt_handle *handle, const void *object, char *buffer, int32_t room);
/// Fills the object from the element at `path`; fields without an element stay. 2: no such element; EINVAL and others: a field cannot be read, and `message` (of `size` bytes, may be NULL) names it.
KVT_EXPORT void st_leaf_from_xml(kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char *message, size_t size);
/// The type's record.
KVT_EXPORT extern const kvt_type_record _st_leaf_type_info_internal;

/// @name shade
/// Shade. enm_shade at offset 8.
/// Sticky err in all: EIDRM when the object's variant lacks the field.
///@{
/// The field's address, valid as long as the object; NULL on error.
KVT_EXPORT void *st_leaf_shade_get(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// Copies from a like field or object, and marks the state byte. EINVAL: tracking handle, untracked object.
KVT_EXPORT void st_leaf_shade_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err);
/// The value; 0 on error.
KVT_EXPORT uint32_t st_leaf_shade_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// Stores the value, and marks the state byte. EINVAL as above.
KVT_EXPORT void st_leaf_shade_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err);
/// The field's state byte. EINVAL without state tracking.
KVT_EXPORT uint8_t st_leaf_shade_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err);
KVT_EXPORT void st_leaf_shade_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err);
///@}

/// @name width
/// Width, in mm. u_int16 at offset 20.
/// Sticky err in all: EIDRM when the object's variant lacks the field.
///@{
/// The field's address, valid as long as the object; NULL on error.
KVT_EXPORT void *st_leaf_width_get(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// Copies from a like field or object, and marks the state byte. EINVAL: tracking handle, untracked object.
KVT_EXPORT void st_leaf_width_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err);
/// The value; 0 on error.
KVT_EXPORT uint16_t st_leaf_width_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// Stores the value, and marks the state byte. EINVAL as above.
KVT_EXPORT void st_leaf_width_set_value(kvt_handle *handle, uint32_t txn, void *object, uint16_t value, int *err);
/// The field's state byte. EINVAL without state tracking.
KVT_EXPORT uint8_t st_leaf_width_state_flag_get(kvt_handle *handle, uint32_t txn, void *object, int *err);
KVT_EXPORT void st_leaf_width_state_flag_set(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err);
///@}

/// Reads every value field that the object's variant has; the others' outs stay as they are.
KVT_EXPORT void st_leaf_get_all(kvt_handle *handle, uint32_t txn, void *object, uint32_t *shade, uint16_t *width, int *err);
/// Stores every value field that the object's variant has; marks no state byte.
KVT_EXPORT void st_leaf_set_all(kvt_handle *handle, uint32_t txn, void *object, uint32_t shade, uint16_t width, int *err);

#ifdef __cplusplus
}
#endif
#endif

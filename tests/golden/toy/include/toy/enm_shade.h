/// @file
/// enm_shade: Shade of a leaf.
/// Made by zarnc from the schema of toy; not to be edited.
#ifndef TOY_ENM_SHADE_H
#define TOY_ENM_SHADE_H

#include <kvt/kvt.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Enumerators of enm_shade.
enum {
  SHADE_NONE = 0,  ///< None
  SHADE_DARK = 1,  ///< Dark
  SHADE_RED = 2  ///< Red, in autumn (since variant 1)
};

/// The variant, at most 1.
KVT_EXPORT int32_t enm_shade_variant_data_index_cap(int32_t variant);
/// The 16 bytes of the object's type identity.
KVT_EXPORT const uint8_t *enm_shade_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err);
/// A new object of value 0; NULL when the store is exhausted.
KVT_EXPORT void *enm_shade_create(kvt_handle *handle, uint32_t txn);
/// As enm_shade_create, for generated callers.
KVT_EXPORT void *enm_shade_create_internal(kvt_handle *handle, uint32_t txn);
/// As enm_shade_create with the handle's write context; the failure object when the store is exhausted.
KVT_EXPORT void *enm_shade_create_cr(kvt_handle *handle);
/// Sets up the header of a field; its value stays.
KVT_EXPORT void enm_shade_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err);
/// Marks the object as taken over by a record.
KVT_EXPORT void enm_shade_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object);
/// 0: such an object holds no references. EINVAL for NULL.
KVT_EXPORT uint32_t enm_shade_get_oid_count(kvt_handle *handle, uint32_t txn, const void *object, int *err);
/// Adds nothing to `out`. EINVAL for NULL.
KVT_EXPORT void enm_shade_get_object_references(kvt_handle *handle, uint32_t txn, const void *object, void **out, uint32_t count, int *err);
/// Gives back an object that stands alone.
KVT_EXPORT void enm_shade_destroy(kvt_handle *handle, uint32_t txn, void *object);
/// As enm_shade_destroy; nothing when `free_it` is 0.
KVT_EXPORT void enm_shade_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it);
/// As enm_shade_destroy with the handle's write context.
KVT_EXPORT void enm_shade_destroy_cr(kvt_handle *handle, void *object);
/// Lets the runtime raise the object's variant, at most to 1.
KVT_EXPORT void enm_shade_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// 12 bytes.
KVT_EXPORT uint32_t enm_shade_sizeof(kvt_handle *handle);
/// The wrapped difference of the values; NULL sorts first.
KVT_EXPORT int32_t enm_shade_compare(const void *a, const void *b);
/// The value unchanged: one numbering serves everywhere.
KVT_EXPORT uint32_t enm_shade_map_to_internal_value(uint32_t value);
/// 5 bytes in binary form.
KVT_EXPORT uint32_t enm_shade_len(kvt_handle *handle, uint32_t txn, const void *object);
/// As enm_shade_len; 0 when the last error is set.
KVT_EXPORT uint32_t enm_shade_len_cr(kvt_handle *handle);
/// The object itself, reported to the containment observer.
KVT_EXPORT void *enm_shade_get(kvt_handle *handle, uint32_t txn, void *object);
/// The enumerator's number. EINVAL for NULL.
KVT_EXPORT uint32_t enm_shade_get_value(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// Copies a whole object. EIDRM: the value isn't legal at the object's variant; EINVAL for NULL.
KVT_EXPORT void enm_shade_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err);
/// Stores an enumerator's number. EIDRM: not legal at the object's variant; EINVAL for NULL.
KVT_EXPORT void enm_shade_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t value, int *err);
/// Writes the binary form, 5 bytes. EMSGSIZE, EIDRM.
KVT_EXPORT uint32_t enm_shade_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err);
/// Reads the binary form; any number is stored as it came. EMSGSIZE.
KVT_EXPORT uint32_t enm_shade_unmarshal(kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err);
/// Writes an element that holds one empty child named after the enumerator.
KVT_EXPORT uint32_t enm_shade_to_xml(kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t state, int *err);
/// As enm_shade_to_xml with the type's name; -1 when the last error is set.
KVT_EXPORT int32_t enm_shade_toxml_cr(kvt_handle *handle, const void *object, char *buffer, int32_t room);
/// Takes the first enumerator that stands below `path`. 2: none does.
KVT_EXPORT void enm_shade_from_xml(kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char *message, size_t size);
/// 1 if the domain allows the number, compared signed.
KVT_EXPORT uint32_t enm_shade_is_valid_cr(kvt_handle *handle, int32_t value);
/// The type's record.
KVT_EXPORT extern const kvt_type_record _enm_shade_type_info_internal;

#ifdef __cplusplus
}
#endif
#endif

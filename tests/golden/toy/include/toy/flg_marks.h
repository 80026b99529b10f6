/// @file
/// flg_marks: Marks on a tree.
/// Made by zarnc from the schema of toy; not to be edited.
#ifndef TOY_FLG_MARKS_H
#define TOY_FLG_MARKS_H

#include <kvt/kvt.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Bit indexes of flg_marks.
enum {
  MARK_FELL = 0,  ///< To be felled
  MARK_PRUNE = 1  ///< To be pruned
};

/// The variant, at most 0.
KVT_EXPORT int32_t flg_marks_variant_data_index_cap(int32_t variant);
/// The 16 bytes of the object's type identity.
KVT_EXPORT const uint8_t *flg_marks_get_luid(kvt_handle *handle, uint32_t txn, const void *object, int *err);
/// A new object of value 0; NULL when the store is exhausted.
KVT_EXPORT void *flg_marks_create(kvt_handle *handle, uint32_t txn);
/// As flg_marks_create, for generated callers.
KVT_EXPORT void *flg_marks_create_internal(kvt_handle *handle, uint32_t txn);
/// As flg_marks_create with the handle's write context; the failure object when the store is exhausted.
KVT_EXPORT void *flg_marks_create_cr(kvt_handle *handle);
/// Sets up the header of a field; its value stays.
KVT_EXPORT void flg_marks_initialize(kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int flags, void *sttr_base, int *err);
/// Marks the object as taken over by a record.
KVT_EXPORT void flg_marks_set_instance_embedded(kvt_handle *handle, uint32_t txn, void *object);
/// 0: such an object holds no references. EINVAL for NULL.
KVT_EXPORT uint32_t flg_marks_get_oid_count(kvt_handle *handle, uint32_t txn, const void *object, int *err);
/// Adds nothing to `out`. EINVAL for NULL.
KVT_EXPORT void flg_marks_get_object_references(kvt_handle *handle, uint32_t txn, const void *object, void **out, uint32_t count, int *err);
/// Gives back an object that stands alone.
KVT_EXPORT void flg_marks_destroy(kvt_handle *handle, uint32_t txn, void *object);
/// As flg_marks_destroy; nothing when `free_it` is 0.
KVT_EXPORT void flg_marks_destroy_internal(kvt_handle *handle, uint32_t txn, void *object, int free_it);
/// As flg_marks_destroy with the handle's write context.
KVT_EXPORT void flg_marks_destroy_cr(kvt_handle *handle, void *object);
/// Lets the runtime raise the object's variant, at most to 0.
KVT_EXPORT void flg_marks_adjust_variant(kvt_handle *handle, uint32_t txn, void *object, int *err);
/// 12 bytes.
KVT_EXPORT uint32_t flg_marks_sizeof(kvt_handle *handle);
/// The difference of the bits; NULL sorts first.
KVT_EXPORT int32_t flg_marks_compare(const void *a, const void *b);
/// 6 bytes in binary form.
KVT_EXPORT uint32_t flg_marks_len(kvt_handle *handle, uint32_t txn, const void *object);
/// As flg_marks_len; 0 when the last error is set.
KVT_EXPORT uint32_t flg_marks_len_cr(kvt_handle *handle, const void *object);
/// 1 if the type has a bit of that index.
KVT_EXPORT uint32_t flg_marks_in_range(uint32_t bit);
/// The object itself.
KVT_EXPORT void *flg_marks_get(kvt_handle *handle, uint32_t txn, void *object);
/// Copies a whole object, untested.
KVT_EXPORT void flg_marks_set(kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err);
/// 0 or 1. EIDRM for NULL and for a bit that isn't there.
KVT_EXPORT uint32_t flg_marks_get_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t bit, int *err);
/// As flg_marks_get_value on the handle's last error; 0 when that is set.
KVT_EXPORT uint32_t flg_marks_get_cr(kvt_handle *handle, void *object, uint32_t bit);
/// Sets the bit when `on` is not 0, clears it otherwise. EIDRM: no such bit.
KVT_EXPORT void flg_marks_set_value(kvt_handle *handle, uint32_t txn, void *object, uint32_t bit, uint32_t on, int *err);
/// As flg_marks_set_value with the handle's write context; the last error afterwards.
KVT_EXPORT int32_t flg_marks_set_cr(kvt_handle *handle, void *object, uint32_t bit, uint32_t on);
/// Writes the binary form, 6 bytes. EMSGSIZE, EIDRM.
KVT_EXPORT uint32_t flg_marks_marshal(kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err);
/// Reads the binary form; all eight bits are stored. EMSGSIZE.
KVT_EXPORT uint32_t flg_marks_unmarshal(kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err);
/// Writes an element that holds one empty child for each set bit.
KVT_EXPORT uint32_t flg_marks_to_xml(kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t state, int *err);
/// As flg_marks_to_xml with the type's name; -1 when the last error is set.
KVT_EXPORT int32_t flg_marks_toxml_cr(kvt_handle *handle, const void *object, char *buffer, int32_t room);
/// Sets the bits whose elements stand below `path`; clears none.
KVT_EXPORT void flg_marks_from_xml(kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char *message, size_t size);
/// 1 if the type has a bit of that index.
KVT_EXPORT uint32_t flg_marks_is_valid_cr(kvt_handle *handle, uint32_t bit);
/// The type's record.
KVT_EXPORT extern const kvt_type_record _flg_marks_type_info_internal;

#ifdef __cplusplus
}
#endif
#endif

/// @file frame.h
/// The operations on objects that a schema module needs of the runtime. Objects begin with a 7-byte header: type link
/// (4 bytes), instance variant, built variant, flags.
#ifndef KVT_FRAME_H
#define KVT_FRAME_H

#include <string.h>

#include "kvt/handle.h"
#include "kvt/type_record.h"

#ifdef __cplusplus
extern "C" {
#endif

static inline void kvt_clear_last_error(kvt_handle* handle) { handle->last_error = 0; }
static inline void kvt_store_err(kvt_handle* handle, int code) { handle->last_error = code; }
static inline void kvt_store_epoch_err(kvt_handle* handle, int code, int* err) {
  handle->last_error = code;
  *err = code;
}
/// The variant that the object holds; negative for NULL. The second and third argument make no difference.
static inline int kvt_get_instance_variant(const void* object, int a, int b) {
  (void)a;
  (void)b;
  return object ? ((const int8_t*)object)[4] : -1;
}
/// The object's flag byte. @param err sticky
static inline uint8_t kvt_get_instance_obj_flag(const void* object, int a, int b, int* err) {
  (void)a;
  (void)b;
  return *err || !object ? 0 : ((const uint8_t*)object)[6];
}
static inline void* memset_cr(void* dest, int byte, size_t length) { return memset(dest, byte, length); }

/// The record behind a type link that the object owns a block for.
KVT_EXPORT const kvt_type_record* kvt_owned_type_info(const void* object);
/// The object's type record; NULL for an object without one.
static inline const kvt_type_record* kvt_get_manifested_type_info(const void* object, int* err) {
  uint32_t link;
  (void)err;
  if (!object) return 0;
  memcpy(&link, object, sizeof link);
  if (link < KVT_STATIC_NUMBERS && ((const uint8_t*)object)[6] & KVT_OBJ_TYPE_LINK_OWNED)
    return kvt_owned_type_info(object);
  return kvt_type_link_at(link);
}
/// The 4-byte cell that holds the object's type link.
KVT_EXPORT void* kvt_get_manifested_type_info_ptr_mem(void* object, int* err);
/// The 16 bytes of the object's type identity; also for tables and records. NULL without a type record.
KVT_EXPORT const uint8_t* kvt_get_luid(kvt_handle* handle, uint32_t txn, const void* object, int* err);
/// The object's type name.
KVT_EXPORT const char* kvt_get_name(kvt_handle* handle, uint32_t txn, const void* object, int* err);
/// The rule of a domain that has rules.
KVT_EXPORT int kvt_domain_rule_variant(const kvt_domain* domain, const kvt_type_record* record);
/// The variant that the domain allows for a type: 127 unless limited, negative when the type isn't allowed.
static inline int kvt_domain_lookup_variant(kvt_handle* handle, const kvt_domain* domain, const kvt_type_record* record,
                                            int* err) {
  (void)handle;
  (void)err;
  return domain && domain->rules ? kvt_domain_rule_variant(domain, record) : 127;
}
/// Not 0 if the domain allows the table (told by its table type record).
KVT_EXPORT int kvt_domain_lookup_table_ok(kvt_handle* handle, const kvt_domain* domain, const kvt_type_record* record,
                                          int* err);
/// Raises the object's variant to what domain, `top` and its built variant allow; never lowers it, and leaves a
/// negative variant alone. Announces the byte.
static inline void kvtlib_adjust_variant(kvt_handle* handle, uint32_t txn, void* object, const kvt_type_record* record,
                                         int top, int* err) {
  int8_t* bytes = (int8_t*)object;
  int limit, allowed;
  if (*err || !object) return;
  limit = top < bytes[5] ? top : bytes[5];
  if (bytes[4] < 0 || bytes[4] >= limit) return;
  allowed = kvt_domain_lookup_variant(handle, &handle->domain, record, err);
  if (allowed < limit) limit = allowed;
  if (limit <= bytes[4]) return;
  handle->set_range(handle, &bytes[4], 1, txn, 0);
  bytes[4] = (int8_t)limit;
}
/// The registered copy of a static record; runs `init` when there is none, or only one without variant data of its own
/// or with those of an older schema. NULL, and last error ENOMEM, when there is none then. The copy lives as long as
/// its store and never moves.
KVT_EXPORT const kvt_type_record* kvt_type_info_ptr_get(kvt_handle* handle, uint32_t txn, const kvt_type_record* record,
                                                        kvt_typeinfo_init init);
/// Gives the registered `copy` variant data of its own in the registry (`is_new`), or merges that of a newer schema in.
/// @param err the handle's last error tells of a failure: ENOMEM
KVT_EXPORT void kvt_update_variant_info(kvt_handle* handle, uint32_t txn, kvt_type_record* copy,
                                        const kvt_type_record* record, int is_new);
/// Counts an object in or out. `counter` is the address of the variant entry's `created` counter for both.
static inline void kvtlib_type_stats_create_object(kvt_handle* handle, uint32_t txn, const kvt_type_record* record,
                                                   uint64_t* counter, int* err) {
  if (*err) return;
  if (record->db_mode) {
    handle->set_counter(handle, counter, 1, txn);
    ++*counter;
  } else {
    __atomic_fetch_add(counter, 1, __ATOMIC_SEQ_CST); /* a full barrier to both sides */
  }
}
static inline void kvtlib_type_stats_destroy_object(kvt_handle* handle, uint32_t txn, const kvt_type_record* record,
                                                    uint64_t* counter, int* err) {
  kvtlib_type_stats_create_object(handle, txn, record, counter + 1, err);
}
/// Where an object's state block begins, counted from the object; 0 when nothing was stored.
KVT_EXPORT int32_t kvtlib_get_sttr_offset(kvt_handle* handle, uint32_t txn, const void* object);
/// Stores that offset and sets flag 0x40 of the object. The handle's last error tells of a failure: ENOMEM; EPERM: the
/// store may not be written. The flag stays clear then.
KVT_EXPORT void kvtlib_update_sttr_offset(kvt_handle* handle, uint32_t txn, void* object, int32_t offset);
/// Drops the side data of an object; one without any is no error. Sticky err.
KVT_EXPORT void kvt_hd_mapping_destroy(kvt_handle* handle, uint32_t txn, void* object, int* err);
/// 0 if the object may be set into a record (`a` 1: neither nested nor embedded) or be the target of a reference (`a`
/// 0: not nested); else EINVAL.
KVT_EXPORT int kvtlib_validate_object_flags(const void* object, int a, int b);
/// Asks for the removal of an object's mapping. Not 0: removed, or there was none. 0 without an error: references are
/// left, and the object's destroy now waits for the last one to go (see kvtlib_oid_settle).
/// @param err sticky. EPERM: the store may not be written
KVT_EXPORT int kvt_request_oid_mapping_destroy(kvt_handle* handle, uint32_t txn, void* object, int* err);
/// Gives an object an identity. Not 0 on success. EEXIST, EPERM, ENOMEM; EINVAL: as for kvt_handle_to_oid.
KVT_EXPORT int kvt_oid_mapping_create(kvt_handle* handle, uint32_t txn, void* object, int kind, uint32_t dynamic,
                                      uint32_t ior, int* err);
/// Pass on to the handle's observer (kvt_observe) what happens to objects: stored anew, about to be destroyed, taken
/// out of a record (`word` isn't read). NULL and failure objects are accepted.
KVT_EXPORT void kvtdb_plat_set_dirty(kvt_handle* handle, uint32_t txn, void* object);
KVT_EXPORT void kvtdb_plat_set_destroy(kvt_handle* handle, uint32_t txn, void* object);
KVT_EXPORT void kvtdb_plat_set_detach(kvt_handle* handle, uint32_t txn, void* object, int word);
/// Tell the observer that a caller got hold of `child`, or handed it in, by way of `parent`; either may be NULL. The
/// first form is that of objects, the second names what `child` is: see kvt_observer. `one` isn't read.
KVT_EXPORT void kvtdb_record_containment2(kvt_handle* handle, uint32_t txn, void* child, void* parent, int one);
KVT_EXPORT void kvtdb_record_containment(kvt_handle* handle, uint32_t txn, int kind, void* child, void* parent,
                                         int one);
/// The handle's scratch buffer; whoever uses it next overwrites it. In private memory, kept until the handle closes.
/// @param buffer out: NULL when memory is exhausted
/// @param length in: bytes wanted, 0 for whatever there is (16 KiB at first); out: bytes there are, fewer when memory
///   for more cannot be had
KVT_EXPORT void kvtlib_get_handle_ws(kvt_handle* handle, uint8_t** buffer, int32_t* length);
/// Memory for the failure objects and records of a module: zeroed, in the cage, for the life of the process.
KVT_EXPORT void* kvt_cage_static(size_t size);
/// A zeroed area in the cage for the length of one call, taken and given back in the manner of a stack, for each
/// thread. NULL when the cage is exhausted.
KVT_EXPORT void* kvt_probe_push(uint32_t size);
KVT_EXPORT void kvt_probe_pop(void* area, uint32_t size);

#ifdef __cplusplus
}
#endif
#endif

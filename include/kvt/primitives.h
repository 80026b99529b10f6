/// @file primitives.h
/// The primitive field types: how they are read and written in an object, on the wire and in XML.
///
/// One set of arguments for all: the handle, the write context, the field's address `p` in its object, and the sticky
/// error slot last: an operation that finds it set does nothing and gives 0. `room` is the bytes left at `buffer`;
/// EMSGSIZE (90) tells that they do not suffice, and then nothing is written. Wire bytes are big-endian, see
/// docs/formats/wire.md.
#ifndef KVT_PRIMITIVES_H
#define KVT_PRIMITIVES_H

#include "kvt/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

struct kvt_xml_document;
typedef struct kvt_xml_document kvt_xml_document;

typedef uint32_t kvt_boolean;  ///< in an object: 0 or not

/// Text owned by its object, any bytes, no terminator counted. 8 bytes, 4-aligned.
typedef struct kvt_vstring {
  uint32_t text;    ///< reference of `length` bytes and a NUL; 0 when empty
  uint32_t length;  ///< bytes
} kvt_vstring;

/// A secret owned by its object; the text lies sealed. 12 bytes, 4-aligned.
typedef struct kvt_aes_vstring {
  uint32_t sealed;  ///< reference of the sealed form; 0 when empty
  uint32_t length;  ///< bytes of the sealed form
  uint32_t plain_length;
} kvt_aes_vstring;

/// Bytes owned by their object. 8 bytes, 4-aligned.
typedef struct qep_bytestr {
  uint32_t bytes;
  uint32_t length;
} qep_bytestr;

/// An identity. 40 bytes.
typedef struct kvt_oid_value {
  uint64_t locator;
  uint8_t id[16];
  uint8_t src[16];
} kvt_oid_value;

#define KVT_PRIMITIVE_SERIAL(X)                                                                                      \
  KVT_EXPORT uint32_t X##_len(kvt_handle* handle, uint32_t txn, const void* p);                                      \
  KVT_EXPORT uint32_t X##_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer, const void* p, int32_t room,    \
                                  int* err);                                                                         \
  KVT_EXPORT uint32_t X##_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer, void* p, int32_t room,  \
                                    uint32_t flag, int* err);                                                        \
  /** One line, "label@type:" and the value; a secret's is a mask. A NUL follows that is not counted but needs room. \
   */                                                                                                                \
  KVT_EXPORT uint32_t X##_print(kvt_handle* handle, uint32_t txn, char* buffer, uint32_t indent, const char* label,  \
                                const void* p, int32_t room, int* err);                                              \
  /** Hash of the value under a seed; values that compare equal hash alike. See docs/formats/hash.md. */             \
  KVT_EXPORT uint32_t X##_hash(const void* p, uint32_t seed);                                                        \
  KVT_EXPORT uint32_t X##_to_xml(kvt_handle* handle, uint32_t txn, const char* label, char* buffer, const void* p,   \
                                 int32_t room, uint32_t state, int* err);                                            \
  KVT_EXPORT void X##_from_xml(kvt_handle* handle, uint32_t txn, const char* path, kvt_xml_document* document,       \
                               void* p, int* err, char* message, size_t size)

#define KVT_PRIMITIVE_INTEGER(X, V)                                                                     \
  KVT_EXPORT extern const kvt_type_record _##X##_type_info_internal;                                    \
  static inline V* X##_get(kvt_handle* handle, uint32_t txn, void* p, int* err) {                       \
    (void)handle;                                                                                       \
    (void)txn;                                                                                          \
    return *err ? (V*)0 : (V*)p;                                                                        \
  }                                                                                                     \
  static inline V X##_get_value(kvt_handle* handle, uint32_t txn, const void* p, int* err) {            \
    V value = 0;                                                                                        \
    (void)handle;                                                                                       \
    (void)txn;                                                                                          \
    if (!*err && p) memcpy(&value, p, sizeof value);                                                    \
    return value;                                                                                       \
  }                                                                                                     \
  static inline void X##_set_value(kvt_handle* handle, uint32_t txn, void* p, V value, int* err) {      \
    if (*err) return;                                                                                   \
    handle->set_range(handle, p, (uint32_t)sizeof value, txn, 0);                                       \
    memcpy(p, &value, sizeof value);                                                                    \
  }                                                                                                     \
  static inline void X##_set(kvt_handle* handle, uint32_t txn, void* p, const void* source, int* err) { \
    X##_set_value(handle, txn, p, X##_get_value(handle, txn, source, err), err);                        \
  }                                                                                                     \
  KVT_PRIMITIVE_SERIAL(X)

KVT_PRIMITIVE_INTEGER(u_int8, uint8_t);
KVT_PRIMITIVE_INTEGER(u_int16, uint16_t);
KVT_PRIMITIVE_INTEGER(u_int32, uint32_t);
KVT_PRIMITIVE_INTEGER(u_int64, uint64_t);
KVT_PRIMITIVE_INTEGER(kvt_boolean, uint32_t);

/// Nothing to prepare: new objects are zero, and that is false.
static inline void kvt_boolean_initialize(kvt_handle* handle, uint32_t txn, void* p, const kvt_type_record* record,
                                          int announce, int no_stats, int flags, void* sttr_base, int* err) {
  (void)handle, (void)txn, (void)p, (void)record, (void)announce, (void)no_stats, (void)flags, (void)sttr_base,
      (void)err;
}
static inline void kvt_boolean_set_instance_embedded(kvt_handle* handle, uint32_t txn, void* p) {
  (void)handle, (void)txn, (void)p;
}
/// -1, 0 or 1; all values but 0 are alike.
KVT_EXPORT int32_t kvt_boolean_compare(const void* a, const void* b);

#define KVT_PRIMITIVE_STRING(X)                                                                                        \
  KVT_EXPORT extern const kvt_type_record _##X##_type_info_internal;                                                   \
  static inline X* X##_get(kvt_handle* handle, uint32_t txn, void* p, int* err) {                                      \
    (void)handle;                                                                                                      \
    (void)txn;                                                                                                         \
    return *err ? (X*)0 : (X*)p;                                                                                       \
  }                                                                                                                    \
  static inline void X##_initialize(kvt_handle* handle, uint32_t txn, void* p, const kvt_type_record* record,          \
                                    int announce, int no_stats, int flags, void* sttr_base, int* err) {                \
    (void)handle, (void)txn, (void)p, (void)record, (void)announce, (void)no_stats, (void)flags, (void)sttr_base;      \
    (void)err;                                                                                                         \
  }                                                                                                                    \
  static inline void X##_set_instance_embedded(kvt_handle* handle, uint32_t txn, void* p) {                            \
    (void)handle, (void)txn, (void)p;                                                                                  \
  }                                                                                                                    \
  static inline uint32_t X##_get_oid_count(kvt_handle* handle, uint32_t txn, const void* p, int* err) {                \
    (void)handle, (void)txn, (void)p, (void)err;                                                                       \
    return 0;                                                                                                          \
  }                                                                                                                    \
  /** Copies the content; `p` ends with its own. With `p` and `source` holding one pointer (after a raw copy) `p` gets \
     a duplicate and nothing is freed; when that fails `p` is left empty. ENOMEM. */                                   \
  KVT_EXPORT void X##_set(kvt_handle* handle, uint32_t txn, void* p, const void* source, int* err);                    \
  /** Frees the content and leaves the field empty; `free_it` is 0. */                                                 \
  KVT_EXPORT void X##_destroy_internal(kvt_handle* handle, uint32_t txn, void* p, int free_it);                        \
  /** -1, 0 or 1: bytes as unsigned, a prefix first. A secret compares by its plain text. */                           \
  KVT_EXPORT int32_t X##_compare(const void* a, const void* b);                                                        \
  /** Gives the field the `length` bytes at `bytes`. Sticky err: ENOMEM. The old content is freed. */                  \
  KVT_EXPORT void X##_assign(kvt_handle* handle, uint32_t txn, void* p, const void* bytes, size_t length, int* err);   \
  KVT_PRIMITIVE_SERIAL(X)

KVT_PRIMITIVE_STRING(kvt_vstring);
KVT_PRIMITIVE_STRING(kvt_aes_vstring);
KVT_PRIMITIVE_STRING(qep_bytestr);

/// The text, NUL-terminated, valid until the field changes; "" for an empty field.
KVT_EXPORT const char* kvt_vstring_text(const void* p);
KVT_EXPORT size_t kvt_vstring_length(const void* p);
KVT_EXPORT const uint8_t* qep_bytestr_bytes(const void* p);
KVT_EXPORT size_t qep_bytestr_length(const void* p);
/// Unseals a secret into `buffer` and adds a NUL. @return the plain length, also when it does not fit (then nothing is
/// written); 0 for an empty field; -1 when no key in this process opens it. Wipe the buffer after use.
KVT_EXPORT int64_t kvt_aes_vstring_text(const void* p, char* buffer, size_t size);
KVT_EXPORT size_t kvt_aes_vstring_length(const void* p);

/// The 40-byte value of a reference field travels as it is. A reader drops the count of the value that it replaces, and
/// takes one where the new one stands for an object of the same store. EPERM, EOVERFLOW.
KVT_EXPORT uint32_t kvtlib_oid_len(kvt_handle* handle, uint32_t txn, const void* oid);
KVT_EXPORT uint32_t kvtlib_oid_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer, const void* oid, int32_t room,
                                       int* err);
KVT_EXPORT uint32_t kvtlib_oid_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer, void* oid,
                                         int32_t room, uint32_t flag, int* err);
KVT_EXPORT int32_t kvtlib_oid_compare(const void* a, const void* b);
/// Prints a 40-byte value as "locator/id/src" in hexadecimal digits.
KVT_EXPORT uint32_t kvt_oid_print(kvt_handle* handle, uint32_t txn, char* buffer, uint32_t indent, const char* label,
                                  const void* oid, int32_t room, int* err);
/// The target that marks a reference field: its identity has a locator below 256 of its own and leads nowhere; nothing
/// is counted.
#define KVT_REF_MARKER ((void*)(uintptr_t)0x7FFFFFFF)
/// The identity of an object or table of the handle's store, made when it has none: it gets flag 0x01. With `add_ref` a
/// reference is counted on it. `kind` is 2. All zero on error.
/// @param err sticky. EINVAL: the target is nested, or does not lie in the handle's store at a multiple of 8; EPERM:
///   the store may not be written; ENOMEM; EOVERFLOW: the count is full
KVT_EXPORT kvt_oid_value kvt_handle_to_oid(kvt_handle* handle, uint32_t txn, void* target, int kind, int add_ref,
                                           int* err);
/// The object that an identity stands for; NULL without an error for an empty or marked one.
/// @param err sticky. ENOENT: the identity is another store's or damaged, or its object is gone
KVT_EXPORT void* kvt_oid_to_handle(kvt_handle* handle, uint32_t txn, const void* oid, int* err);
/// The mapping entry of an identity for kvtlib_update_oid_ref_count; NULL without an error when there is none. It is
/// valid until a reference is dropped.
KVT_EXPORT void* kvtlib_oid_id_mapping_get(kvt_handle* handle, uint32_t txn, const void* oid, int* err);
/// Drops a reference (`add` 0), or takes one: by the mapping entry, or by the object. NULL does nothing, and a count of
/// 0 stays. An object whose destroy waited for the last reference is destroyed by the next kvtlib_oid_settle.
/// @param err sticky. EPERM: the store may not be written; EOVERFLOW; ENOENT: the object has no identity
KVT_EXPORT void kvtlib_update_oid_ref_count(kvt_handle* handle, uint32_t txn, void* entry, int add, int* err);
KVT_EXPORT void kvtlib_lookup_and_update_oid_ref_count(kvt_handle* handle, uint32_t txn, void* object, int add,
                                                       int* err);
/// Destroys the objects of the handle's store whose destroy waited for references that have all gone. Called where no
/// operation is half-way: at the end of T_destroy and T_f_set_by_ref, and before a commit. The last error stays.
KVT_EXPORT void kvtlib_oid_settle(kvt_handle* handle, uint32_t txn);
/// Write an identity's `id` or `src` as 32 digits and a NUL. EMSGSIZE: less than 33 bytes. @return 32, or 0
KVT_EXPORT uint32_t kvtlib_oid_id_print(kvt_handle* handle, uint32_t txn, char* buffer, const void* id, int32_t room,
                                        int* err);
KVT_EXPORT uint32_t kvtlib_oid_src_print(kvt_handle* handle, uint32_t txn, char* buffer, const void* src, int32_t room,
                                         int* err);
/// Drops the count that a reference field (48 bytes) holds on its target; the field stays as it is. An empty field, and
/// one whose identity has no mapping here, is no error.
KVT_EXPORT void kvtlib_oid_release_internal(kvt_handle* handle, uint32_t txn, void* field, int* err);
/// Not 0 if the 16 bytes of an identity are all zero.
KVT_EXPORT int kvt_oid_id_is_zero(const void* id);
/// Orders two 64-byte timer blocks by due time, then interval.
KVT_EXPORT int32_t kvtlib_timer_compare(const void* a, const void* b);
/// Hash of what kvtlib_timer_compare looks at.
KVT_EXPORT uint32_t kvtlib_timer_hash(const void* p, uint32_t seed);

/// The public hash of that name over `length` bytes, with `seed` in place of the length as start value.
KVT_EXPORT uint32_t SuperFastHash(const void* data, uint32_t length, uint32_t seed);

/// The fixed parts of a serial object; each gives the bytes used, and 0 with EMSGSIZE when there is no room.
KVT_EXPORT uint32_t _kvt_instance_variant_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer,
                                                  const int8_t* variant, int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_instance_variant_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer,
                                                    int8_t* variant, int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_instance_obj_flag_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer,
                                                   const uint8_t* flag, int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_instance_obj_flag_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer,
                                                     uint8_t* flag, int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_instance_ra_data_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer,
                                                  const uint8_t* block, const uint8_t* byte, int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_instance_ra_data_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer,
                                                    uint8_t* block, uint8_t* byte, int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_variant_jump_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer, const uint32_t* jump,
                                              int32_t room, int* err);
KVT_EXPORT uint32_t _kvt_variant_jump_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer, uint32_t* jump,
                                                int32_t room, int* err);

/// The block from which a record's message header is written.
typedef struct kvt_message_header {
  uint8_t kind;         ///< 0xBC
  uint8_t reserved[6];  ///< 0xFF
  uint8_t state_tracking;
  uint32_t word;
  uint32_t length;
} kvt_message_header;
enum { KVT_MESSAGE_HEADER_BYTES = 27 };
KVT_EXPORT uint32_t _kvt_message_header_marshal(kvt_handle* handle, uint32_t txn, uint8_t* buffer,
                                                const kvt_message_header* header, int32_t room, int* err);
/// EPROTO: the bytes are no header (wrong kind or layout).
KVT_EXPORT uint32_t _kvt_message_header_unmarshal(kvt_handle* handle, uint32_t txn, const uint8_t* buffer,
                                                  kvt_message_header* header, int32_t room, int* err);
/// 1 if the serial object at `bytes` carries state bytes; 0 otherwise, and for NULL.
KVT_EXPORT uint8_t kvtlib_type_header_get_state_tracking_flag(const uint8_t* bytes);

#ifdef __cplusplus
}
#endif
#endif

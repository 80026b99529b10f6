// The types of fields as templates see them: how to get, set, compare and hash one, and its bytes. A type of another
// module is reached through its operations by name.
#pragma once

#include "objects/enumerated.h"
#include "objects/flag_set.h"
#include "objects/struct_copy.h"

namespace kvt {

// The serial operations of a type whose operations are spelled X_marshal and so on.
#define KVT_NAMED_SERIAL(X)                                                                                           \
  static std::uint32_t len(kvt_handle* h, std::uint32_t txn, const void* p) { return X##_len(h, txn, p); }            \
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* b, const void* p, std::int32_t room,   \
                               int* err) {                                                                            \
    return X##_marshal(h, txn, b, p, room, err);                                                                      \
  }                                                                                                                   \
  static std::uint32_t unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* b, void* p, std::int32_t room, \
                                 std::uint32_t update, int* err) {                                                    \
    return X##_unmarshal(h, txn, b, p, room, update, err);                                                            \
  }

// kScalar: booleans, enumerated and flag types tell the runtime so when a field's variant is read.
#define KVT_INTEGER_TYPE(Name, X, V)                                                                            \
  struct Name {                                                                                                 \
    using Value = V;                                                                                            \
    static constexpr FieldKind kKind = FieldKind::kInteger;                                                     \
    static constexpr bool kScalar = false;                                                                      \
    static void* get(kvt_handle* h, std::uint32_t txn, void* p, int* err) { return X##_get(h, txn, p, err); }   \
    static Value get_value(kvt_handle* h, std::uint32_t txn, const void* p, int* err) {                         \
      return X##_get_value(h, txn, p, err);                                                                     \
    }                                                                                                           \
    static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {                       \
      X##_set(h, txn, p, s, err);                                                                               \
    }                                                                                                           \
    static void set_value(kvt_handle* h, std::uint32_t txn, void* p, Value v, int* err) {                       \
      X##_set_value(h, txn, p, v, err);                                                                         \
    }                                                                                                           \
    static std::int32_t compare(const void* a, const void* b) {                                                 \
      const Value x = load<Value>(a), y = load<Value>(b);                                                       \
      return x < y ? -1 : x > y;                                                                                \
    }                                                                                                           \
    static std::uint32_t hash(const void* p, std::uint32_t seed) { return hash_bytes<sizeof(Value)>(p, seed); } \
    KVT_NAMED_SERIAL(X)                                                                                         \
  }
KVT_INTEGER_TYPE(U8, u_int8, std::uint8_t);
KVT_INTEGER_TYPE(U16, u_int16, std::uint16_t);
KVT_INTEGER_TYPE(U32, u_int32, std::uint32_t);
KVT_INTEGER_TYPE(U64, u_int64, std::uint64_t);

struct Boolean {
  using Value = std::uint32_t;
  static constexpr FieldKind kKind = FieldKind::kBoolean;
  static constexpr bool kScalar = true;
  static void* get(kvt_handle* h, std::uint32_t txn, void* p, int* err) { return kvt_boolean_get(h, txn, p, err); }
  static Value get_value(kvt_handle* h, std::uint32_t txn, const void* p, int* err) {
    return kvt_boolean_get_value(h, txn, p, err);
  }
  static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {
    kvt_boolean_set(h, txn, p, s, err);
  }
  static void set_value(kvt_handle* h, std::uint32_t txn, void* p, Value v, int* err) {
    kvt_boolean_set_value(h, txn, p, v, err);
  }
  static std::int32_t compare(const void* a, const void* b) { return kvt_boolean_compare(a, b); }
  static std::uint32_t hash(const void* p, std::uint32_t seed) { return hash_boolean(load<kvt_boolean>(p), seed); }
  KVT_NAMED_SERIAL(kvt_boolean)
};

#define KVT_STRING_TYPE(Name, X)                                                                              \
  struct Name {                                                                                               \
    static constexpr FieldKind kKind = FieldKind::kString;                                                    \
    static constexpr bool kScalar = false;                                                                    \
    static void* get(kvt_handle* h, std::uint32_t txn, void* p, int* err) { return X##_get(h, txn, p, err); } \
    static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {                     \
      X##_set(h, txn, p, s, err);                                                                             \
    }                                                                                                         \
    static std::int32_t compare(const void* a, const void* b) { return X##_compare(a, b); }                   \
    static std::uint32_t hash(const void* p, std::uint32_t seed) { return X##_hash(p, seed); }                \
    KVT_NAMED_SERIAL(X)                                                                                       \
  }
KVT_STRING_TYPE(VstringByName, kvt_vstring);
// Strings are compared in line: the trees of an index do it at every level.
struct Vstring : VstringByName {
  static std::int32_t compare(const void* a, const void* b) {
    const auto x = load<kvt_vstring>(a), y = load<kvt_vstring>(b);
    const std::uint32_t shared = x.length < y.length ? x.length : y.length;
    const int order = shared ? std::memcmp(cage_at(x.text), cage_at(y.text), shared) : 0;
    if (order) return order < 0 ? -1 : 1;
    return x.length < y.length ? -1 : x.length > y.length;
  }
};
KVT_STRING_TYPE(AesVstring, kvt_aes_vstring);
KVT_STRING_TYPE(Bytestr, qep_bytestr);

// A reference field: its value lies behind the target's link, and only the value travels.
struct Oid {
  static constexpr FieldKind kKind = FieldKind::kReference;
  static constexpr bool kScalar = false;
  static constexpr std::uint32_t kValueOffset = kOidValueOffset;
  static std::int32_t compare(const void* a, const void* b) {
    return kvtlib_oid_compare(at_offset(a, kValueOffset), at_offset(b, kValueOffset));
  }
  // Of the value only the head.
  static std::uint32_t hash(const void* p, std::uint32_t seed) {
    return hash_bytes<4>(at_offset(p, kValueOffset), seed);
  }
  static std::uint32_t len(kvt_handle* h, std::uint32_t txn, const void* p) {
    return kvtlib_oid_len(h, txn, at_offset(p, kValueOffset));
  }
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* b, const void* p, std::int32_t room,
                               int* err) {
    return kvtlib_oid_marshal(h, txn, b, at_offset(p, kValueOffset), room, err);
  }
  static std::uint32_t unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* b, void* p, std::int32_t room,
                                 std::uint32_t update, int* err) {
    return kvtlib_oid_unmarshal(h, txn, b, at_offset(p, kValueOffset), room, update, err);
  }
};

// A timer block has no bytes on the wire; it only compares and hashes.
struct Timer {
  static constexpr FieldKind kKind = FieldKind::kTimer;
  static constexpr bool kScalar = false;
  static std::int32_t compare(const void* a, const void* b) { return kvtlib_timer_compare(a, b); }
  static std::uint32_t hash(const void* p, std::uint32_t seed) { return kvtlib_timer_hash(p, seed); }
};

// Types of the module itself; D is the type's constant record, with kDesc. Their bytes: serial/binary.h.
template <class D>
struct Nested {
  using Struct = D;
  static constexpr FieldKind kKind = FieldKind::kStruct;
  static constexpr bool kScalar = false;
  static void* get(kvt_handle* h, std::uint32_t txn, void* p, int*) { return struct_get(h, txn, p); }
  static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {
    struct_set(D::kDesc, h, txn, p, s, err);
  }
};
template <class D>
struct Enumerated {
  using Enum = D;
  using Value = std::uint32_t;
  static constexpr FieldKind kKind = FieldKind::kEnum;
  static constexpr std::uint32_t kLink = D::kLink;  // what a type link to the static record holds
  static constexpr std::int8_t kTop = D::kTop;
  static constexpr bool kScalar = true;
  static void* get(kvt_handle* h, std::uint32_t txn, void* p, int*) { return enum_get(h, txn, p); }
  static Value get_value(kvt_handle* h, std::uint32_t, const void* p, int* err) { return enum_get_value(h, p, err); }
  static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {
    enum_set(D::kDesc, h, txn, p, s, err);
  }
  static void set_value(kvt_handle* h, std::uint32_t txn, void* p, Value v, int* err) {
    enum_set_value(D::kDesc, h, txn, p, v, err);
  }
  static std::int32_t compare(const void* a, const void* b) { return enum_compare(a, b); }
  static const kvt_type_record* record() { return D::kDesc.record; }
  static std::uint32_t hash(const void* p, std::uint32_t seed) { return enum_hash(p, seed); }
};
template <class D>
struct FlagSet {
  using Enum = D;
  static constexpr FieldKind kKind = FieldKind::kFlag;
  static constexpr bool kScalar = true;
  static void* get(kvt_handle*, std::uint32_t, void* p, int*) { return p; }
  static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) { flag_set(h, txn, p, s, err); }
  static std::int32_t compare(const void* a, const void* b) { return flag_compare(a, b); }
  static std::uint32_t hash(const void* p, std::uint32_t seed) { return flag_hash(p, seed); }
};

template <class... Fields>
struct FieldList {};

// 27 bits of a value that order as the values do, as far as they tell them apart: of two values with different prefixes
// the one with the lower prefix is the lower. Small integers are told apart wholly. Types without a prefix give the
// same one for all.
constexpr unsigned kPrefixBits = 27;
constexpr std::uint32_t kExactPrefixes = 1u << (kPrefixBits - 1);

template <class Type>
std::uint32_t order_prefix(const void* p) {
  if constexpr (std::is_same_v<Type, U8>) {
    return load<std::uint8_t>(p);
  } else if constexpr (std::is_same_v<Type, U16>) {
    return load<std::uint16_t>(p);
  } else if constexpr (std::is_same_v<Type, U32> || std::is_same_v<Type, U64>) {
    const auto value = load<typename Type::Value>(p);
    constexpr unsigned kShift = 8 * sizeof value - (kPrefixBits - 1);
    return static_cast<std::uint32_t>(value < kExactPrefixes ? value : kExactPrefixes + (value >> kShift));
  } else if constexpr (std::is_same_v<Type, Vstring>) {
    const auto* text = reinterpret_cast<const unsigned char*>(kvt_vstring_text(p));
    const std::size_t length = kvt_vstring_length(p);
    std::uint32_t prefix = 0;
    for (std::size_t i = 0; i < 4; ++i) prefix = prefix << 8 | (i < length ? text[i] : 0);
    return prefix >> (32 - kPrefixBits);
  } else {
    return 0;
  }
}

// Whether two values with this prefix are equal.
template <class Type>
bool prefix_is_exact(std::uint32_t prefix) {
  if constexpr (Type::kKind == FieldKind::kInteger) {
    return prefix < kExactPrefixes;
  } else {
    return false;
  }
}

// Types of sibling modules. X is the type's name; Link and Top are as those of Enumerated.
#define KVT_SIBLING_ENUM(X, Link, Top)                                                               \
  struct X##_sibling {                                                                               \
    using Value = std::uint32_t;                                                                     \
    static constexpr FieldKind kKind = FieldKind::kEnum;                                             \
    static constexpr std::uint32_t kLink = Link;                                                     \
    static constexpr std::int8_t kTop = Top;                                                         \
    static constexpr bool kScalar = true;                                                            \
    static void* get(kvt_handle* h, std::uint32_t txn, void* p, int*) { return X##_get(h, txn, p); } \
    static Value get_value(kvt_handle* h, std::uint32_t txn, void* p, int* err) {                    \
      return X##_get_value(h, txn, p, err);                                                          \
    }                                                                                                \
    static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {            \
      X##_set(h, txn, p, s, err);                                                                    \
    }                                                                                                \
    static void set_value(kvt_handle* h, std::uint32_t txn, void* p, Value v, int* err) {            \
      X##_set_value(h, txn, p, v, err);                                                              \
    }                                                                                                \
    static std::int32_t compare(const void* a, const void* b) { return X##_compare(a, b); }          \
    static const kvt_type_record* record() { return &_##X##_type_info_internal; }                    \
    static std::uint32_t hash(const void* p, std::uint32_t seed) { return X##_hash(p, seed); }       \
    KVT_NAMED_SERIAL(X)                                                                              \
  }
#define KVT_SIBLING_FLAG(X)                                                                          \
  struct X##_sibling {                                                                               \
    static constexpr FieldKind kKind = FieldKind::kFlag;                                             \
    static constexpr bool kScalar = true;                                                            \
    static void* get(kvt_handle* h, std::uint32_t txn, void* p, int*) { return X##_get(h, txn, p); } \
    static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {            \
      X##_set(h, txn, p, s, err);                                                                    \
    }                                                                                                \
    static std::int32_t compare(const void* a, const void* b) { return X##_compare(a, b); }          \
    static std::uint32_t hash(const void* p, std::uint32_t seed) { return X##_hash(p, seed); }       \
    KVT_NAMED_SERIAL(X)                                                                              \
  }
#define KVT_SIBLING_STRUCT(X)                                                                                 \
  struct X##_sibling {                                                                                        \
    static constexpr FieldKind kKind = FieldKind::kStruct;                                                    \
    static constexpr bool kScalar = false;                                                                    \
    static void* get(kvt_handle* h, std::uint32_t txn, void* p, int* err) { return X##_get(h, txn, p, err); } \
    static void set(kvt_handle* h, std::uint32_t txn, void* p, const void* s, int* err) {                     \
      X##_set(h, txn, p, s, err);                                                                             \
    }                                                                                                         \
    static std::int32_t compare(const void* a, const void* b) { return X##_compare(a, b); }                   \
    static std::uint32_t hash(const void* p, std::uint32_t seed) { return X##_hash(p, seed); }                \
    KVT_NAMED_SERIAL(X)                                                                                       \
  }

}  // namespace kvt

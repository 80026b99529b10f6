// The primitive types as walks over the fields of an object see them.
#pragma once

#include "frame/descriptor.h"
#include "platform/ref.h"

namespace kvt {

#define KVT_INTEGER_FIELD_TYPE(Name, X, Kind)                                           \
  inline constexpr FieldType Name = {#X,        Kind,       &_##X##_type_info_internal, \
                                     nullptr,   nullptr,    nullptr,                    \
                                     nullptr,   X##_to_xml, X##_from_xml,               \
                                     X##_print, nullptr,    nullptr,                    \
                                     nullptr}
KVT_INTEGER_FIELD_TYPE(k_u_int8_field, u_int8, FieldKind::kInteger);
KVT_INTEGER_FIELD_TYPE(k_u_int16_field, u_int16, FieldKind::kInteger);
KVT_INTEGER_FIELD_TYPE(k_u_int32_field, u_int32, FieldKind::kInteger);
KVT_INTEGER_FIELD_TYPE(k_u_int64_field, u_int64, FieldKind::kInteger);
// A boolean has nothing to initialise or embed: new objects are zero, and that is false.
KVT_INTEGER_FIELD_TYPE(k_kvt_boolean_field, kvt_boolean, FieldKind::kBoolean);

#define KVT_STRING_FIELD_TYPE(Name, X)                           \
  inline constexpr FieldType Name = {#X,                         \
                                     FieldKind::kString,         \
                                     &_##X##_type_info_internal, \
                                     nullptr,                    \
                                     nullptr,                    \
                                     X##_destroy_internal,       \
                                     X##_set,                    \
                                     X##_to_xml,                 \
                                     X##_from_xml,               \
                                     X##_print,                  \
                                     nullptr,                    \
                                     nullptr,                    \
                                     nullptr}
KVT_STRING_FIELD_TYPE(k_kvt_vstring_field, kvt_vstring);
KVT_STRING_FIELD_TYPE(k_kvt_aes_vstring_field, kvt_aes_vstring);
KVT_STRING_FIELD_TYPE(k_qep_bytestr_field, qep_bytestr);

// To print a reference is to look at it only, whatever the write context.
inline std::uint32_t print_oid_field(kvt_handle* h, std::uint32_t, char* buffer, std::uint32_t indent,
                                     const char* label, const void* p, std::int32_t room, int* err) {
  return kvt_oid_print(h, KVT_NO_TXN, buffer, indent, label, at_offset(p, kOidValueOffset), room, err);
}
inline constexpr FieldType k_kvt_oid_field = {
    "kvt_oid", FieldKind::kReference, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
    nullptr,   print_oid_field,       nullptr, nullptr, nullptr};
inline constexpr FieldType k_timer_field = {"timer", FieldKind::kTimer, nullptr, nullptr, nullptr, nullptr, nullptr,
                                            nullptr, nullptr,           nullptr, nullptr, nullptr, nullptr};

}  // namespace kvt

// Enumerated types: objects of 12 bytes, a header and a 32-bit value. The header part serves flag types as well.
#pragma once

#include "frame/call_frame.h"
#include "platform/super_fast_hash.h"

namespace kvt {

void* scalar_create_internal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn);
void* scalar_create_cr(const EnumDesc& type, kvt_handle* h);
void scalar_initialize(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object,
                       const kvt_type_record* record, int announce, int flags, int* err);
// `marks`: enumerated types tell the database of the destruction, flag types do not.
void scalar_destroy_internal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int free_it,
                             bool marks);
void scalar_set_embedded(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object);
std::uint32_t scalar_get_oid_count(const EnumDesc& type, kvt_handle* h, const void* object, int* err);
void scalar_get_object_references(const EnumDesc& type, kvt_handle* h, const void* object, int* err);

void* enum_get(kvt_handle* h, std::uint32_t txn, void* object);
std::uint32_t enum_get_value(kvt_handle* h, const void* object, int* err);
void enum_set(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, const void* source, int* err);
void enum_set_value(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t value,
                    int* err);
bool enum_is_valid(const EnumDesc& type, kvt_handle* h, std::int32_t value);
inline std::int32_t enum_compare(const void* a, const void* b) {
  if (!a || !b) return a ? 1 : b ? -1 : 0;
  return static_cast<std::int32_t>(load<std::uint32_t>(at_offset(a, kEnumValueOffset)) -
                                   load<std::uint32_t>(at_offset(b, kEnumValueOffset)));
}
inline std::uint32_t enum_hash(const void* object, std::uint32_t seed) {
  return object ? hash_bytes<sizeof(std::uint32_t)>(at_offset(object, kEnumValueOffset), seed) : seed;
}

}  // namespace kvt

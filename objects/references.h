// References between objects: the operations of reference fields, and what an object holds of them.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

// `field` is the reference's place in the type's field table.
void* reference_get(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* object,
                    int* err);
void reference_set(const StructDesc& type, std::uint32_t field, kvt_handle* h, std::uint32_t txn, void* object,
                   void* target, int* err);

std::uint32_t struct_get_oid_count(const StructDesc& type, kvt_handle* h, const void* object, int* err);
// The tables that the object refers to, in schema order; 0 stands for a field that refers to none.
void struct_get_object_references(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const void* object,
                                  void** out, int* err);
// Empties the fields that refer to tables; the counts are the caller's business.
void clear_table_references(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object);

}  // namespace kvt

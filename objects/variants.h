// Variants and the places of nested objects.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

// 1 if the field of that index may be used: by the domain alone (bit 0 of `domain_only`), or by domain and object.
std::uint32_t struct_is_valid(const StructDesc& type, kvt_handle* h, const void* object, std::uint32_t index,
                              std::uint32_t domain_only);
// Tells the runtime where the state bytes of each nested object are; `anchor` is the object's own block.
void offset_update(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void* anchor);
// The same, and what the runtime had to say: 0, or the last error, which it is then. A nested object whose place nobody
// knows must not come to be: its marks would go to other fields.
int offset_update_told(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, void* anchor);
void offset_remove(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, int* err);

}  // namespace kvt

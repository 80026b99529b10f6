// Copies a whole object into another of its type. What becomes of old strings: docs/design/copy.md.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

void* struct_get(kvt_handle* h, std::uint32_t txn, void* object);
void struct_set(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* dest, const void* source, int* err);
// Gives every string of `dest` content of its own after a raw copy; the last step of struct_set. Returns the handle.
void* post_copyout_cleanup(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* dest, const void* source,
                           int* err);

}  // namespace kvt

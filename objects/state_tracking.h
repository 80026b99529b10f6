// State bytes: where an object's block lies, who may read and mark it.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

// The address of the object's state block; null if the runtime should know the place and doesn't, or if it would lie
// outside an older object. Reads the tag again unless the runtime keeps the place.
std::uint8_t* state_block(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object);
// The object's plain size as the handle sees it: by its built variant; the top size without a descriptor.
std::uint32_t plain_size(const StructDesc& type, const kvt_handle* h, const void* object);

std::uint8_t state_flag_get(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                            int* err);
void state_flag_set(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                    int variant, bool scalar, std::uint32_t value, int* err);
void state_set_all(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint8_t value);

bool mark_tracked(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                  int* err);
// What an accessor's write does to the field's byte: nothing on an untracked handle.
// @return false when the object has no block though the handle tracks; the slot says EINVAL
inline bool mark_written(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t state,
                         int* err) {
  if (tracking_of(h, type) != Tracking::kOn) return true;
  return mark_tracked(type, h, txn, object, state, err);
}

}  // namespace kvt

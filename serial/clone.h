// Copies an object in depth by way of its binary form: what has no bytes there is not copied, and nothing is shared. A
// copy that nobody watches takes a shorter way to the same result.
#pragma once

#include "serial/binary.h"

namespace kvt {

// Where nobody can tell it from the way through the binary form: copies the object's bytes and then what its fields
// own. false: the case is another one, and nothing was done.
bool clone_unseen(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const void* source, void** slot,
                  std::int32_t length, int* err);
// The object to read into: the one in the slot, or a new one. false: there is none, the slot of the error says so.
bool clone_target(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void** slot, int* err);
// After a failed read: the object goes, also one that the caller had placed in the slot.
void clone_drop(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void** slot);
// Makes the handle's scratch buffer one that holds any object of that length (T_len); false: it is so already, or
// cannot be.
bool grow_workspace(kvt_handle* h, std::uint32_t object_length, std::uint8_t** buffer, std::int32_t* length);

template <class D>
void struct_clone_internal(kvt_handle* h, std::uint32_t txn, const void* source, void** slot, std::uint8_t* buffer,
                           std::int32_t length, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  if (!slot || !buffer) {
    fail(h, kEnoent, err);
    return;
  }
  if (clone_unseen(D::kDesc, h, txn, source, slot, length, err)) return;
  const std::uint32_t written = struct_marshal<D>(h, txn, buffer, source, length, false, err);
  if (*err || !clone_target(D::kDesc, h, txn, slot, err)) return;
  struct_unmarshal<D>(h, txn, buffer, *slot, static_cast<std::int32_t>(written), 0, err);
  if (*err) clone_drop(D::kDesc, h, txn, slot);
}

template <class D>
void struct_clone(kvt_handle* h, std::uint32_t txn, const void* source, void** slot, std::uint8_t* buffer,
                  std::int32_t length, int* err) {
  if (slot) *slot = nullptr;
  struct_clone_internal<D>(h, txn, source, slot, buffer, length, err);
}

// The scratch buffer grows when it turns out to be too short, so that the usual clone doesn't ask for the length.
template <class D>
void* struct_clone_cr(kvt_handle* h, const void* source) {
  if (h->last_error) return nullptr;
  void* clone = nullptr;
  std::uint8_t* buffer = nullptr;
  std::int32_t length = 0;
  kvtlib_get_handle_ws(h, &buffer, &length);
  struct_clone_internal<D>(h, h->default_txn, source, &clone, buffer, length, &h->last_error);
  if (h->last_error == kEmsgsize && grow_workspace(h, struct_len<D>(h, source, h->default_txn), &buffer, &length)) {
    kvt_clear_last_error(h);
    struct_clone_internal<D>(h, h->default_txn, source, &clone, buffer, length, &h->last_error);
  }
  return clone;
}

}  // namespace kvt

#include "serial/clone.h"

#include <algorithm>
#include <limits>

#include "objects/struct_lifecycle.h"
#include "objects/struct_tree.h"

namespace kvt {
namespace {

// What the object may take on the wire, or more: all but the bytes of texts takes less there than in the object.
std::uint64_t most_bytes(const StructDesc& type, const void* object) {
  std::uint64_t bytes = type.top_plain();
  for (const OwnedField& f : type.tree->owned) {
    if (f.kind <= OwnedKind::kSecret) bytes += load<kvt_vstring>(at_offset(object, f.offset)).length;
  }
  return bytes;
}

}  // namespace

bool clone_unseen(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const void* source, void** slot,
                  std::int32_t length, int* err) {
  if (*slot || !source || h->containment || h->cr_create || !tree_is_unseen(type, h)) return false;
  const TreeCopy how = tree_copied_by_bytes(*type.tree, source);
  if (how == TreeCopy::kNo) return false;
  if (length < 0 || most_bytes(type, source) > static_cast<std::uint32_t>(length)) return false;
  start_trace(*type.module);
  void* clone = h->store_alloc(h->store, txn, type.top_plain());
  if (!clone) {
    fail(h, kEnomem, err);
    return true;
  }
  tree_copy_bytes(type, clone, source, how);
  tree_count(*type.tree, false);
  owned_separate(h, txn, clone, source, type.tree->owned, err);
  *slot = clone;
  if (*err) clone_drop(type, h, txn, slot);
  return true;
}

bool clone_target(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void** slot, int* err) {
  if (*slot) return true;
  start_trace(*type.module);
  *slot = struct_create_internal(type, h, txn);
  if (*slot) return true;
  fail(h, kEnomem, err);
  return false;
}

void clone_drop(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void** slot) {
  if (*slot != type.failure_object()) struct_destroy_internal(type, h, txn, *slot, 1);
  *slot = nullptr;
}

bool grow_workspace(kvt_handle* h, std::uint32_t object_length, std::uint8_t** buffer, std::int32_t* length) {
  // A length doesn't count remote-access data: 9 bytes more for an object that counts with 6 or more.
  constexpr std::uint64_t kFactor = 3, kMost = std::numeric_limits<std::int32_t>::max();
  const std::int32_t before = *length;
  *length = static_cast<std::int32_t>(std::min(kFactor * object_length, kMost));
  kvtlib_get_handle_ws(h, buffer, length);
  return *length > before;
}

}  // namespace kvt

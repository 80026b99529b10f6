#include "serial/clone.h"

#include <algorithm>
#include <limits>

#include "objects/struct_lifecycle.h"

namespace kvt {

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

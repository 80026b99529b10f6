// Side data of objects: where state blocks begin.
#include <cerrno>

#include "platform/handle.h"
#include "platform/object_flags.h"
#include "platform/ref_map.h"

namespace kvt {
namespace {

StoreRoots* roots_of(kvt_handle* handle) { return handle->runtime->store->roots(); }

}  // namespace
}  // namespace kvt

using kvt::cage_ref;

int32_t kvtlib_get_sttr_offset(kvt_handle* handle, uint32_t, const void* object) {
  const uint32_t* offset = kvt::ref_map_find(kvt::roots_of(handle)->sides, cage_ref(object));
  return offset ? static_cast<int32_t>(*offset) : 0;
}

void kvtlib_update_sttr_offset(kvt_handle* handle, uint32_t txn, void* object, int32_t offset) {
  int error = kvt::ref_map_put(*handle->runtime->store, txn, &kvt::roots_of(handle)->sides, cage_ref(object),
                               static_cast<uint32_t>(offset));
  if (error) return kvt_store_err(handle, error);
  kvt::set_object_flag(handle, txn, object, KVT_OBJ_STTR_OFFSET, true);
}

void kvt_hd_mapping_destroy(kvt_handle* handle, uint32_t txn, void* object, int* err) {
  if (*err || !object) return;
  kvt::ref_map_remove(*handle->runtime->store, txn, &kvt::roots_of(handle)->sides, cage_ref(object));
}

int kvtlib_validate_object_flags(const void* object, int a, int) {
  if (!object) return EINVAL;
  uint8_t refused = KVT_OBJ_NESTED | (a ? KVT_OBJ_EMBEDDED : 0);
  return kvt::object_flags(object) & refused ? EINVAL : 0;
}

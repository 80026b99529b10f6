// Side data of objects: where state blocks begin, and the identities of objects.
#include <cerrno>
#include <cstring>
#include <new>

#include "platform/handle.h"
#include "platform/ref_map.h"

namespace kvt {
namespace {

constexpr std::size_t kFlagsAt = 6;

struct OidEntry {  // stored format
  std::uint32_t object;
  std::uint32_t references;
  std::uint8_t oid[40];
};
STORED_SIZE(OidEntry, 48);

struct OidBytes {    // stored format: what an oid holds
  std::uint64_t id;  // counts from 1 in each store
  std::uint32_t kind;
  std::uint32_t dynamic;
  std::uint32_t ior;
  std::uint32_t reserved[5];
};
STORED_SIZE(OidBytes, 40);

StoreRoots* roots_of(kvt_handle* handle) { return handle->runtime->store->roots(); }

void set_flag(kvt_handle* handle, std::uint32_t txn, void* object, std::uint8_t flag, bool on) {
  void* at = at_offset(object, kFlagsAt);
  std::uint8_t flags = load<std::uint8_t>(at);
  std::uint8_t after = static_cast<std::uint8_t>(on ? flags | flag : flags & ~flag);
  if (after != flags) store_announced(handle, txn, at, after);
}

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
  kvt::set_flag(handle, txn, object, KVT_OBJ_STTR_OFFSET, true);
}

void kvt_hd_mapping_destroy(kvt_handle* handle, uint32_t txn, void* object, int* err) {
  if (*err || !object) return;
  kvt::ref_map_remove(*handle->runtime->store, txn, &kvt::roots_of(handle)->sides, cage_ref(object));
}

int kvtlib_validate_object_flags(const void* object, int a, int) {
  if (!object) return EINVAL;
  uint8_t refused = KVT_OBJ_NESTED | (a ? KVT_OBJ_EMBEDDED : 0);
  return kvt::load<uint8_t>(kvt::at_offset(object, kvt::kFlagsAt)) & refused ? EINVAL : 0;
}

int kvt_oid_mapping_create(kvt_handle* handle, uint32_t txn, void* object, int kind, uint32_t dynamic, uint32_t ior,
                           int* err) {
  if (*err) return 0;
  kvt::Store& store = *handle->runtime->store;
  kvt::StoreRoots* roots = store.roots();
  int error = 0;
  void* block = nullptr;
  if (!store.announce_range(&roots->oid_last, sizeof roots->oid_last, txn)) {
    error = EPERM;
  } else if (kvt::ref_map_find(roots->oids, cage_ref(object))) {
    error = EEXIST;
  } else {
    // Of the transaction even where the caller has no write context for it: abort takes the object away too.
    block = store.alloc(store.open_txn(), sizeof(kvt::OidEntry));
    error = block ? kvt::ref_map_put(store, txn, &roots->oids, cage_ref(object), cage_ref(block)) : ENOMEM;
  }
  if (error) {
    if (block) store.free(store.open_txn(), block);
    kvt_store_epoch_err(handle, error, err);
    return 0;
  }
  kvt::OidBytes oid{++roots->oid_last, static_cast<uint32_t>(kind), dynamic, ior, {}};
  auto* entry = new (block) kvt::OidEntry{cage_ref(object), 0, {}};
  std::memcpy(entry->oid, &oid, sizeof oid);
  kvt::set_flag(handle, txn, object, KVT_OBJ_OID_MAPPED, true);
  return 1;
}

int kvt_request_oid_mapping_destroy(kvt_handle* handle, uint32_t txn, void* object, int* err) {
  if (*err) return 0;
  kvt::Store& store = *handle->runtime->store;
  kvt::StoreRoots* roots = store.roots();
  const uint32_t* found = kvt::ref_map_find(roots->oids, cage_ref(object));
  if (!found) return 1;
  void* entry = kvt::cage_at(*found);
  if (!kvt::ref_map_remove(store, txn, &roots->oids, cage_ref(object))) {
    kvt_store_epoch_err(handle, EPERM, err);
    return 0;
  }
  store.free(store.open_txn(), entry);
  kvt::set_flag(handle, txn, object, KVT_OBJ_OID_MAPPED, false);
  return 1;
}

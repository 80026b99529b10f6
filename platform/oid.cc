// The mappings between identities and objects, their counts, and the destroys that wait for a count to fall.
#include "platform/oid.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>

#include "platform/handle.h"
#include "platform/object_flags.h"
#include "platform/ref_map.h"
#include "platform/registry.h"
#include "platform/wire_inline.h"

namespace kvt {
namespace {

constexpr std::uint64_t kFirstLocator = 256;  // below are the empty reference and the marked one
constexpr std::uint64_t kMarkedLocator = 1;
constexpr std::int32_t kPrintedSize = 33;

// The map keeps neighbouring keys together, as objects in a block are; numbers in a row would crowd in one place.
std::uint32_t key_of(std::uint64_t serial) { return static_cast<std::uint32_t>(serial) * 0x9E3779B1u; }

Store& store_of(kvt_handle* handle) { return *handle->runtime->store; }

OidEntry* entry_at(const std::uint32_t* reference) {
  return reference ? static_cast<OidEntry*>(cage_at(*reference)) : nullptr;
}
OidEntry* entry_of(const Store& store, const void* object) {
  return entry_at(ref_map_find(store.roots()->oids, cage_ref(object)));
}

// Whether an identity that others keep may stand for this address: it lies in the handle's own store, where the end of
// its block is seen, and where a block of it can begin.
bool can_be_mapped(kvt_handle* handle, const void* object) {
  if (!object || cage_ref(object) % 8 || !in_cage(object)) return false;
  return Store::of(handle->store) != handle->runtime->store || store_of(handle).in_range(object);
}

bool unlink_due(Store& store, std::uint32_t txn, OidEntry* entry) {
  std::uint32_t* link = &store.roots()->oids_due;
  while (*link && *link != cage_ref(entry)) link = &static_cast<OidEntry*>(cage_at(*link))->next_due;
  if (!store.announce_range(entry, sizeof *entry, txn)) return false;
  if (*link && !store.write(link, entry->next_due, txn)) return false;
  entry->flags &= ~kOidDue;
  entry->next_due = 0;
  return true;
}

int remove_entry(Store& store, std::uint32_t txn, OidEntry* entry) {
  if (!store.announce_range(entry, sizeof *entry, txn)) return EPERM;
  StoreRoots* roots = store.roots();
  if (entry->flags & kOidDue) unlink_due(store, txn, entry);
  if (entry->object) ref_map_remove(store, txn, &roots->oids, entry->object);
  if (entry->random) ref_map_remove(store, txn, &roots->oids_by_serial, key_of(entry->serial));
  store.free(store.open_txn(), entry);
  return 0;
}

int add_entry(Store& store, std::uint32_t txn, const void* object, std::uint32_t kind, std::uint32_t dynamic,
              std::uint32_t ior, OidEntry** made) {
  StoreRoots* roots = store.roots();
  if (!store.announce_range(&roots->oid_last, sizeof roots->oid_last, txn)) return EPERM;
  // Of the transaction even where the caller has no write context for it: abort takes the object away too.
  void* block = store.alloc(store.open_txn(), sizeof(OidEntry));
  if (!block) return ENOMEM;
  if (int error = ref_map_put(store, txn, &roots->oids, cage_ref(object), cage_ref(block))) {
    store.free(store.open_txn(), block);
    return error;
  }
  *made = new (block) OidEntry{cage_ref(object), 0, ++roots->oid_last, kind, dynamic, ior, 0, 0, 0, 0};
  return 0;
}

// Random bytes tell this store's identities from those of every other one, and an identity from the one that an abort
// took back.
bool make_random(void* at, int length) { return RAND_bytes(static_cast<unsigned char*>(at), length) == 1; }

int name_store(Store& store, std::uint32_t txn) {
  std::uint8_t* identity = store.roots()->identity;
  constexpr int kSize = sizeof store.roots()->identity;
  if (std::any_of(identity, identity + kSize, [](std::uint8_t byte) { return byte != 0; })) return 0;
  if (!store.announce_range(identity, kSize, txn)) return EPERM;
  return make_random(identity, kSize) ? 0 : EIO;
}

// Before an identity leaves the store it can be found again.
int publish(Store& store, std::uint32_t txn, OidEntry* entry) {
  if (entry->random) return 0;
  StoreRoots* roots = store.roots();
  if (int error = name_store(store, txn)) return error;
  if (!store.announce_range(entry, sizeof *entry, txn)) return EPERM;
  if (!store.announce_range(&roots->oid_last, sizeof roots->oid_last, txn)) return EPERM;
  std::uint64_t random = 0;
  while (!random) {
    if (!make_random(&random, sizeof random)) return EIO;
  }
  // Serials whose lower halves are alike are four billion objects apart, but both may live.
  while (!key_of(entry->serial) || ref_map_find(roots->oids_by_serial, key_of(entry->serial))) {
    entry->serial = ++roots->oid_last;
  }
  if (int error = ref_map_put(store, txn, &roots->oids_by_serial, key_of(entry->serial), cage_ref(entry))) return error;
  entry->random = random;
  return 0;
}

kvt_oid_value value_of(const Store& store, const OidEntry& entry) {
  kvt_oid_value value{};
  value.locator = kFirstLocator + entry.serial;
  kvt::store(value.id, wire_order(entry.serial));
  kvt::store(value.id + 8, entry.random);
  std::memcpy(value.src, store.roots()->identity, sizeof value.src);
  return value;
}

// Takes the next entry off the list whose object is to be destroyed now. Objects of a module that this process has not
// loaded stay for one that has it.
OidEntry* take_due(Store& store, std::uint32_t txn, const kvt_static_type** type) {
  OidEntry* next;
  for (auto* entry = static_cast<OidEntry*>(cage_at(store.roots()->oids_due)); entry; entry = next) {
    next = static_cast<OidEntry*>(cage_at(entry->next_due));
    int err = 0;
    const kvt_type_record* record = kvt_get_manifested_type_info(cage_at(entry->object), &err);
    *type = record ? static_type_of(record) : nullptr;
    if (!entry->references && !*type) continue;
    if (!unlink_due(store, txn, entry)) return nullptr;
    if (entry->references) continue;  // taken anew: it waits again
    if ((*type)->destroy) return entry;
    entry->flags &= ~kOidDestroyWaits;
  }
  return nullptr;
}

std::uint32_t print_bytes(kvt_handle* handle, char* buffer, const void* bytes, std::int32_t room, int* err) {
  constexpr const char* kDigits = "0123456789abcdef";
  if (!wire_room(handle, kPrintedSize, room, err)) return 0;
  const auto* from = static_cast<const std::uint8_t*>(bytes);
  for (int i = 0; i < 16; i++) {
    buffer[2 * i] = kDigits[from[i] >> 4];
    buffer[2 * i + 1] = kDigits[from[i] & 15];
  }
  buffer[kPrintedSize - 1] = '\0';
  return kPrintedSize - 1;
}

}  // namespace

OidEntry* oid_find(const Store& store, const void* oid) {
  const StoreRoots* roots = store.roots();
  if (!roots->oids_by_serial.count) return nullptr;
  const auto value = load<kvt_oid_value>(oid);
  if (std::memcmp(value.src, roots->identity, sizeof value.src) != 0) return nullptr;
  const std::uint64_t serial = wire_order(load<std::uint64_t>(value.id));
  OidEntry* entry = entry_at(ref_map_find(roots->oids_by_serial, key_of(serial)));
  return entry && entry->serial == serial && entry->random == load<std::uint64_t>(value.id + 8) ? entry : nullptr;
}

int oid_take(Store& store, std::uint32_t txn, OidEntry* entry) {
  if (entry->references == UINT32_MAX) return EOVERFLOW;
  return store.write(&entry->references, entry->references + 1, txn) ? 0 : EPERM;
}

int oid_drop(Store& store, std::uint32_t txn, OidEntry* entry) {
  if (!entry->references) return 0;
  if (!store.announce_range(entry, sizeof *entry, txn)) return EPERM;
  if (--entry->references) return 0;
  if (!entry->object) return remove_entry(store, txn, entry);
  if ((entry->flags & kOidDestroyWaits) && !(entry->flags & kOidDue)) {
    std::uint32_t* head = &store.roots()->oids_due;
    entry->next_due = *head;
    entry->flags |= kOidDue;
    store.write(head, cage_ref(entry), txn);
  }
  return 0;
}

void forget_oids(Store& store, std::uint32_t txn, std::uint32_t begin, std::uint32_t length) {
  const RefMapHead& oids = store.roots()->oids;
  while (std::uint32_t key = ref_map_key_in(oids, begin, length)) {
    OidEntry* entry = entry_at(ref_map_find(oids, key));
    if (!entry->references) {
      if (remove_entry(store, txn, entry)) return;
      continue;
    }
    if (!store.announce_range(entry, sizeof *entry, txn) || !ref_map_remove(store, txn, &store.roots()->oids, key)) {
      return;
    }
    if (entry->flags & kOidDue) unlink_due(store, txn, entry);
    entry->object = 0;
    entry->flags = 0;
  }
}

}  // namespace kvt

using namespace kvt;

int kvt_oid_mapping_create(kvt_handle* handle, uint32_t txn, void* object, int kind, uint32_t dynamic, uint32_t ior,
                           int* err) {
  if (*err) return 0;
  Store& store = store_of(handle);
  OidEntry* entry = nullptr;
  int error = EEXIST;
  if (!can_be_mapped(handle, object)) {
    error = EINVAL;
  } else if (!entry_of(store, object)) {
    error = add_entry(store, txn, object, static_cast<uint32_t>(kind), dynamic, ior, &entry);
  }
  if (error) {
    kvt_store_epoch_err(handle, error, err);
    return 0;
  }
  set_object_flag(handle, txn, object, KVT_OBJ_OID_MAPPED, true);
  return 1;
}

int kvt_request_oid_mapping_destroy(kvt_handle* handle, uint32_t txn, void* object, int* err) {
  if (*err) return 0;
  Store& store = store_of(handle);
  OidEntry* entry = entry_of(store, object);
  if (!entry) return 1;
  if (entry->references) {
    if (!store.write(&entry->flags, entry->flags | kOidDestroyWaits, txn)) kvt_store_epoch_err(handle, EPERM, err);
    return 0;
  }
  if (int error = remove_entry(store, txn, entry)) {
    kvt_store_epoch_err(handle, error, err);
    return 0;
  }
  set_object_flag(handle, txn, object, KVT_OBJ_OID_MAPPED, false);
  return 1;
}

kvt_oid_value kvt_handle_to_oid(kvt_handle* handle, uint32_t txn, void* target, int kind, int add_ref, int* err) {
  kvt_oid_value value{};
  if (*err) return value;
  if (target == KVT_REF_MARKER) {
    value.locator = kMarkedLocator;
    return value;
  }
  Store& store = store_of(handle);
  int error = can_be_mapped(handle, target) && !(object_flags(target) & KVT_OBJ_NESTED) ? 0 : EINVAL;
  OidEntry* entry = error ? nullptr : entry_of(store, target);
  if (!error && !entry) {
    error = add_entry(store, txn, target, static_cast<uint32_t>(kind), 0, 0, &entry);
    if (!error) set_object_flag(handle, txn, target, KVT_OBJ_OID_MAPPED, true);
  }
  if (!error) error = publish(store, txn, entry);
  if (!error && add_ref) error = oid_take(store, txn, entry);
  if (error) {
    kvt_store_epoch_err(handle, error, err);
    return value;
  }
  return value_of(store, *entry);
}

void* kvt_oid_to_handle(kvt_handle* handle, uint32_t, const void* oid, int* err) {
  if (*err || kvt_oid_id_is_zero(at_offset(oid, offsetof(kvt_oid_value, id)))) return nullptr;
  const OidEntry* entry = oid_find(store_of(handle), oid);
  if (!entry || !entry->object) {
    kvt_store_epoch_err(handle, ENOENT, err);
    return nullptr;
  }
  return cage_at(entry->object);
}

void* kvtlib_oid_id_mapping_get(kvt_handle* handle, uint32_t, const void* oid, int* err) {
  return *err ? nullptr : oid_find(store_of(handle), oid);
}

void kvtlib_update_oid_ref_count(kvt_handle* handle, uint32_t txn, void* entry, int add, int* err) {
  if (*err || !entry) return;
  auto* at = static_cast<OidEntry*>(entry);
  Store& store = store_of(handle);
  if (int error = add ? oid_take(store, txn, at) : oid_drop(store, txn, at)) kvt_store_epoch_err(handle, error, err);
}

void kvtlib_lookup_and_update_oid_ref_count(kvt_handle* handle, uint32_t txn, void* object, int add, int* err) {
  if (*err || !object) return;
  OidEntry* entry = entry_of(store_of(handle), object);
  if (!entry) return kvt_store_epoch_err(handle, ENOENT, err);
  kvtlib_update_oid_ref_count(handle, txn, entry, add, err);
}

void kvtlib_oid_settle(kvt_handle* handle, uint32_t txn) {
  kvt_runtime* runtime = handle->runtime;
  Store& store = *runtime->store;
  if (!store.roots()->oids_due || runtime->settling || !store.can_write()) return;
  const int32_t last_error = handle->last_error;
  const uint32_t gc_active = handle->gc_active;
  runtime->settling = true;
  handle->gc_active = 1;
  const kvt_static_type* type = nullptr;
  // What a destroy drops joins the list, however long the chain: no recursion.
  while (const OidEntry* entry = take_due(store, txn, &type)) {
    void* object = cage_at(entry->object);
    // An object that is no block of this store stands in memory of the caller's.
    type->destroy(handle, txn, object, !store.in_range(object) || store.block_size(object));
  }
  handle->gc_active = gc_active;
  runtime->settling = false;
  handle->last_error = last_error;
}

uint32_t kvtlib_oid_id_print(kvt_handle* handle, uint32_t, char* buffer, const void* id, int32_t room, int* err) {
  return print_bytes(handle, buffer, id, room, err);
}

uint32_t kvtlib_oid_src_print(kvt_handle* handle, uint32_t, char* buffer, const void* src, int32_t room, int* err) {
  return print_bytes(handle, buffer, src, room, err);
}

// Identities of objects and the references that are counted on them. See docs/design/references.md.
#pragma once

#include "kvt/primitives.h"
#include "platform/store.h"

namespace kvt {

// In the flags of an entry: its object is destroyed when nothing refers to it any more; it is in the list of these.
inline constexpr std::uint32_t kOidDestroyWaits = 1, kOidDue = 2;

struct OidEntry {        // stored format: what an identity stands for
  std::uint32_t object;  // 0: it went while references were left
  std::uint32_t references;
  std::uint64_t serial;  // the first half of the identity
  std::uint32_t kind;
  std::uint32_t dynamic;
  std::uint32_t ior;
  std::uint32_t flags;
  std::uint32_t next_due;
  std::uint32_t reserved;
  std::uint64_t random;  // the second half; 0: the identity was not given out yet
};
STORED_SIZE(OidEntry, 48);
STORED_FIELD(OidEntry, serial, 8, std::uint64_t);
STORED_FIELD(OidEntry, flags, 28, std::uint32_t);
STORED_FIELD(OidEntry, random, 40, std::uint64_t);

// The entry that the 40 bytes of an identity lead to; null for an empty, marked, damaged or another store's identity.
OidEntry* oid_find(const Store& store, const void* oid);
// Takes and drops one reference. 0, EPERM where the store may not be written, EOVERFLOW. A count of 0 is not dropped
// further; one that falls to 0 may leave an object to be destroyed to the next kvtlib_oid_settle.
int oid_take(Store& store, std::uint32_t txn, OidEntry* entry);
int oid_drop(Store& store, std::uint32_t txn, OidEntry* entry);
// A block goes: no identity leads into it any more.
void forget_oids(Store& store, std::uint32_t txn, std::uint32_t begin, std::uint32_t length);

}  // namespace kvt

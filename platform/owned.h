// What the objects of a tree own, field by field, and how all of it is copied or given back in one go where nobody can
// tell that from one call for each field.
#pragma once

#include <cstdint>
#include <span>

#include "kvt/handle.h"

namespace kvt {

enum class OwnedKind : std::uint8_t { kText, kSecret, kReference, kTimer };  // bytes are a text here
struct OwnedField {
  std::uint16_t offset;
  OwnedKind kind;
};
using OwnedFields = std::span<const OwnedField>;

// Whether the handle is one over a private store of the runtime whose members nobody has replaced: what is allocated,
// stored and given back is heard of by nobody.
KVT_EXPORT bool store_is_unheard(const kvt_handle* h);
// After a raw copy of `source` to `object`: gives the fields contents and counts of their own; a timer is stopped.
// The handle's store is unheard. After an error (ENOMEM, EIO, EOVERFLOW) that field and those behind it are empty.
KVT_EXPORT void owned_separate(kvt_handle* h, std::uint32_t txn, void* object, const void* source, OwnedFields fields,
                               int* err);
// Gives back the contents, leaves their fields empty, and drops the counts of references, whose fields stay. The
// handle's store is unheard; such a store refuses nothing.
KVT_EXPORT void owned_release(kvt_handle* h, std::uint32_t txn, void* object, OwnedFields fields);

}  // namespace kvt

// The block that a string field owns: how it is made, replaced and given back. The three string types differ only in
// what stands in the block.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvt/handle.h"

namespace kvt {

constexpr std::size_t kMaxContent = 0x7FFFFFFF;

// A block of `size` bytes from the handle's store, not zeroed. NULL with ENOMEM reported. A store that hands out memory
// which no stored reference can reach breaks its contract, and the process stops.
void* content_alloc(kvt_handle* handle, std::uint32_t txn, std::size_t size, int* err);

// Announces a field and stores it, all of it in one piece.
template <class Field>
void content_store(kvt_handle* handle, std::uint32_t txn, void* field, const Field& value) {
  if (handle->set_range != kvt_set_range_private) handle->set_range(handle, field, sizeof value, txn, nullptr);
  __builtin_memcpy(field, &value, sizeof value);
}

// -1, 0 or 1: bytes as unsigned, a prefix first.
std::int32_t bytes_compare(const void* a, std::size_t a_length, const void* b, std::size_t b_length);

}  // namespace kvt

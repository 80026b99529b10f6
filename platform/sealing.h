// The sealed form of a secret: key id, nonce, tag, then as many bytes as the text has. See docs/formats/wire.md.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvt/handle.h"
#include "platform/keyring.h"

namespace kvt {

constexpr std::size_t kSealOverhead = 36;

// The identity of the key that sealed it: a sealed form begins with it.
inline const std::uint8_t* sealing_key_id(const std::uint8_t* sealed) { return sealed; }

// Seals `length` bytes into `sealed`, which has room for kSealOverhead more. False: no randomness, or no memory.
bool seal(const Key& key, const void* plain, std::size_t length, std::uint8_t* sealed);
// Opens a sealed form into `plain`. False, and nothing readable left in `plain`, when no key of this process opens it.
KVT_EXPORT bool unseal(const std::uint8_t* sealed, std::size_t sealed_length, std::uint8_t* plain);

}  // namespace kvt

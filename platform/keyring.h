// The keys with which this process seals and opens secrets. A key lives as long as the process.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvt {

constexpr std::size_t kKeySize = 32;
constexpr std::size_t kKeyIdSize = 8;

struct Key {
  std::uint8_t id[kKeyIdSize];  // the first bytes of the key's SHA-256
  std::uint8_t bytes[kKeySize];
  const Key* next;
};

// The key that seals: that of the key file opened last; without one a random key of this process. NULL: no randomness.
const Key* keyring_sealing_key();
// NULL when this process has no such key.
const Key* keyring_find(const std::uint8_t* id);
// Whether `id` is that of this process's random key while a key file is open by now. What that key sealed could not be
// opened any more once the process has ended.
bool keyring_is_outdated(const std::uint8_t* id);

}  // namespace kvt

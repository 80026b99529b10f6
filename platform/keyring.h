// The keys with which this process opens secrets. A key is there as long as somebody holds it: the stores that seal
// under it, and whoever is opening a secret with it. The last one to let go wipes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kvt {

constexpr std::size_t kKeySize = 32;
constexpr std::size_t kKeyIdSize = 8;

struct Key {
  Key() = default;
  ~Key();
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;

  std::uint8_t id[kKeyIdSize];  // the first bytes of the key's SHA-256
  std::uint8_t bytes[kKeySize];
};

using KeyHold = std::shared_ptr<const Key>;

// A hold on the key with these bytes; NULL when there is no memory.
KeyHold keyring_add(const std::uint8_t* bytes);
// NULL when this process has no such key.
KeyHold keyring_find(const std::uint8_t* id);
// The random key of this process, for private stores that were given none. It is made anew when nobody held it any
// more. NULL: no randomness.
KeyHold keyring_process_key();

}  // namespace kvt

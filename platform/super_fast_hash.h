// SuperFastHash, the public 32-bit hash, with a start value of the caller's: docs/formats/hash.md. Inline, so that the
// hash of a whole object compiles to arithmetic on its fields.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvt {

// Bytes count from the lowest on any host.
inline std::uint32_t hash_pair(const std::uint8_t* at) { return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8; }

// The last byte of an odd length counts as signed.
inline std::uint32_t hash_odd(const std::uint8_t* at) {
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<std::int8_t>(*at)));
}

inline std::uint32_t hash_four(std::uint32_t hash, const std::uint8_t* at) {
  const std::uint32_t sum = hash + hash_pair(at);
  const std::uint32_t mixed = sum << 16 ^ sum ^ hash_pair(at + 2) << 11;
  return mixed + (mixed >> 11);
}

inline std::uint32_t hash_rest(std::uint32_t hash, const std::uint8_t* at, std::size_t bytes) {
  switch (bytes) {
    case 3:
      hash += hash_pair(at);
      hash ^= hash << 16;
      hash ^= hash_odd(at + 2) << 18;
      return hash + (hash >> 11);
    case 2:
      hash += hash_pair(at);
      hash ^= hash << 11;
      return hash + (hash >> 17);
    case 1:
      hash += hash_odd(at);
      hash ^= hash << 10;
      return hash + (hash >> 1);
    default:
      return hash;
  }
}

inline std::uint32_t hash_end(std::uint32_t hash) {
  hash ^= hash << 3;
  hash += hash >> 5;
  hash ^= hash << 4;
  hash += hash >> 17;
  hash ^= hash << 25;
  return hash + (hash >> 6);
}

// No bytes at all still mix the start value, so that a chain of hashes counts its empty links.
inline std::uint32_t super_fast_hash(const void* data, std::size_t length, std::uint32_t start) {
  const auto* at = static_cast<const std::uint8_t*>(data);
  std::uint32_t hash = start;
  for (; length >= 4; length -= 4, at += 4) hash = hash_four(hash, at);
  return hash_end(hash_rest(hash, at, length));
}

// The same over a number of bytes that is known beforehand.
template <std::size_t kBytes>
std::uint32_t hash_bytes(const void* p, std::uint32_t start) {
  const auto* at = static_cast<const std::uint8_t*>(p);
  std::uint32_t hash = start;
  if constexpr (kBytes >= 4) hash = hash_four(hash, at);
  if constexpr (kBytes >= 8) hash = hash_four(hash, at + 4);
  static_assert(kBytes < 12);
  return hash_end(hash_rest(hash, at + kBytes / 4 * 4, kBytes % 4));
}

// All values but 0 are alike.
inline std::uint32_t hash_boolean(std::uint32_t value, std::uint32_t seed) {
  const std::uint8_t byte = value != 0;
  return hash_bytes<1>(&byte, seed);
}

// Text whose length is not fixed starts above the seed by its length, as in the public form, so that zero bytes count
// under any seed.
inline std::uint32_t hash_content(const void* data, std::size_t length, std::uint32_t seed) {
  return super_fast_hash(data, length, seed + static_cast<std::uint32_t>(length));
}

}  // namespace kvt

// What a chunk of the heap looks like: 8 bytes of header {size and flags, size of the chunk before it}, then the block,
// or in a free chunk the links of its bin.
#pragma once

#include <bit>
#include <cstdint>

namespace kvt {

inline constexpr std::uint32_t kChunkHeader = 8;
inline constexpr std::uint32_t kChunkMinimum = 16;  // header and two links
inline constexpr std::uint32_t kChunkUsed = 1;
inline constexpr std::uint32_t kChunkPending = 2;  // freed, and kept until nobody needs it
inline constexpr std::uint32_t kChunkWaiting = 4;  // freed, with kChunkUsed: neighbours leave it alone
inline constexpr std::uint32_t kChunkFlags = 7;
inline constexpr std::uint32_t kExactLimit = 4096;
inline constexpr std::uint32_t kExactBins = kExactLimit / 8 - 1;

// The bin that free chunks of that size are in.
inline std::uint32_t bin_of(std::uint32_t size) {
  if (size <= kExactLimit) return size / 8 - 2;
  const std::uint32_t log = 31 - static_cast<std::uint32_t>(std::countl_zero(size));
  return kExactBins + (log - 12) * 4 + ((size >> (log - 2)) & 3);
}

}  // namespace kvt

// The cage's map: which ranges of its 4 GiB serve what, and the process-wide allocator of whole segments for private
// stores. What lies inside a segment is the heap's affair.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/ref.h"

#if defined(__SANITIZE_ADDRESS__)
#define KVT_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KVT_ASAN 1
#endif
#endif

#ifdef KVT_ASAN
#define KVT_NO_ASAN __attribute__((no_sanitize("address")))
#else
#define KVT_NO_ASAN
#endif

namespace kvt {

inline constexpr std::uint32_t kSegmentSize = 1u << 20;
// Below this nothing is ever mapped, so that a small integer used as a reference faults.
inline constexpr std::uint32_t kStaticBegin = 0x10000;
inline constexpr std::uint32_t kProbeBegin = 0x400000;  // [kProbeBegin, kStoreBegin): one area for each thread
inline constexpr std::uint32_t kStoreBegin = 0xE00000;  // [kStoreBegin, kPrivateBegin): what handle->store points at
inline constexpr std::uint32_t kPrivateBegin = 0x1000000;
inline constexpr std::uint32_t kDatabaseBegin = 0x50000000;
inline constexpr std::uint32_t kSlotSize = 0x10000000;
inline constexpr std::uint32_t kNumberBegin =
    KVT_STATIC_NUMBERS;  // from here on a word is the number of a static record
static_assert(kDatabaseBegin + std::uint64_t{kSlotSize} * KVT_DATABASE_SLOTS == kNumberBegin);

inline constexpr bool is_static_number(std::uint32_t word) { return word >= kNumberBegin; }

// False where the process may not have so much address space: then there is the static zone and no store.
bool cage_is_whole();
// Takes `count` neighbouring private segments for `owner`, readable, writable and zero. 0 when there is no such run.
std::uint32_t segments_take(std::uint32_t count, const void* owner);
// Gives back every segment of the owner.
void segments_release(const void* owner);
inline constexpr std::uint32_t kPrivateSegments = (kDatabaseBegin - kPrivateBegin) / kSegmentSize;
extern std::array<std::atomic<const void*>, kPrivateSegments> segment_owners;  // segments_take and _release write it
// Whom the private segment around an address belongs to; null for other addresses.
inline const void* segment_owner(const void* address) {
  const std::uint32_t at = cage_ref(address);
  if (!in_cage(address) || at < kPrivateBegin || at >= kDatabaseBegin) return nullptr;
  return segment_owners[(at - kPrivateBegin) / kSegmentSize].load(std::memory_order_relaxed);
}

// Hides freed memory from the program in builds that watch addresses; nothing otherwise.
#ifdef KVT_ASAN
void memory_hide(void* at, std::size_t size);
void memory_show(void* at, std::size_t size);
#else
inline void memory_hide(void*, std::size_t) {}
inline void memory_show(void*, std::size_t) {}
#endif

}  // namespace kvt

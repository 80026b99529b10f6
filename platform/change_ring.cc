#include "platform/change_ring.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace kvt {
namespace {

constexpr std::uint32_t kHead = sizeof(ChangeEntry);
constexpr std::uint32_t kMostKept = 256;  // bytes of a key

template <class T>
T get(T& word, std::memory_order order = std::memory_order_relaxed) {
  return std::atomic_ref(word).load(order);
}
template <class T>
void put(T& word, T value, std::memory_order order = std::memory_order_relaxed) {
  std::atomic_ref(word).store(value, order);
}

// Entries are copied word by word, since a reader may meet a writer. Who sees a word of a new entry also sees that the
// old ones were given up.
void copy_in(std::uint64_t* words, std::uint64_t at, const void* bytes, std::uint32_t length) {
  for (std::uint32_t i = 0; i < length; i += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, static_cast<const char*>(bytes) + i, std::min(length - i, 8u));
    put(words[(at + i) % kRingBytes / 8], word, std::memory_order_release);
  }
}
void copy_out(std::uint64_t* words, std::uint64_t at, void* bytes, std::uint32_t length) {
  for (std::uint32_t i = 0; i < length; i += 8) {
    const std::uint64_t word = get(words[(at + i) % kRingBytes / 8], std::memory_order_acquire);
    std::memcpy(static_cast<char*>(bytes) + i, &word, std::min(length - i, 8u));
  }
}

std::uint32_t room_at(std::uint64_t at) { return kRingBytes - static_cast<std::uint32_t>(at % kRingBytes); }

// Bytes from an entry to the next one; 0 where none can stand.
std::uint32_t step_of(const ChangeEntry& entry, std::uint64_t at) {
  if (!entry.number) return room_at(at);
  return entry.length >= kHead && entry.length % 8 == 0 && entry.length <= room_at(at) ? entry.length : 0;
}

ChangeEntry entry_at(std::uint64_t* words, std::uint64_t at) {
  ChangeEntry entry{};
  copy_out(words, at, &entry, std::min(kHead, room_at(at)));  // what does not fit begins with the number 0
  return entry;
}

}  // namespace

void ChangeRing::settle() {
  // A transaction that filled the ring and was undone has pushed out all before it.
  if (oldest > ready_end && oldest - ready_end <= kRingBytes && oldest % 8 == 0) ready_end = oldest;
  const bool sound = oldest <= ready_end && ready_end - oldest <= kRingBytes && oldest % 8 == 0 && ready_end % 8 == 0;
  if (!sound) {
    put(oldest, std::uint64_t{0});
    ready_end = 0;
  }
  if (!ready_next || ready_next < next) ready_next = next ? next : 1;
  if (end != ready_end || next != ready_next) show();
}

void ChangeRing::show() {
  put(end, ready_end, std::memory_order_release);
  put(next, ready_next, std::memory_order_release);
}

void ChangeRing::skip() {
  ready_next = next + 1;
  put(next, ready_next, std::memory_order_release);
}

// Gives up the oldest entries until there is room up to the position.
void ChangeRing::drop_until(std::uint64_t position) {
  std::uint64_t at = oldest;
  while (position - at > kRingBytes) {
    const std::uint32_t step = step_of(entry_at(words, at), at);
    at = step ? at + step : ready_end;
  }
  if (at != oldest) put(oldest, at);
}

void ChangeRing::append(ChangeEntry entry, const std::uint8_t* key) {
  const std::uint32_t kept = std::min(entry.key_length, kMostKept);
  entry.length = kHead + ((kept + 7) & ~7u);
  std::uint64_t at = ready_end;
  if (entry.length > room_at(at)) {
    drop_until(at + room_at(at));
    put(words[at % kRingBytes / 8], std::uint64_t{0}, std::memory_order_release);
    at += room_at(at);
    ready_end = at;
  }
  drop_until(at + entry.length);
  entry.number = ready_next++;
  copy_in(words, at, &entry, kHead);
  copy_in(words, at + kHead, key, kept);
  ready_end = at + entry.length;
}

std::uint64_t ChangeRing::first() {
  for (;;) {
    const std::uint64_t shown = get(end, std::memory_order_acquire);
    const std::uint64_t from = get(oldest, std::memory_order_acquire);
    std::uint64_t number = std::max<std::uint64_t>(get(next, std::memory_order_acquire), 1);
    for (std::uint64_t at = from; at < shown && shown - from <= kRingBytes;) {
      const ChangeEntry entry = entry_at(words, at);
      if (entry.number) {
        number = entry.number;
        break;
      }
      at += room_at(at);
    }
    if (get(oldest) == from && get(end) == shown) return number;
  }
}

ChangeRing::Found ChangeRing::read(std::uint64_t* at, std::uint64_t* number, ChangeEntry* entry, std::uint8_t* key,
                                   std::uint32_t room) {
  const auto miss = [&](std::uint64_t up_to) {
    *number = up_to;
    return Found::kMissed;
  };
  for (;;) {
    const std::uint64_t shown = get(end, std::memory_order_acquire);
    const std::uint64_t first = get(oldest, std::memory_order_acquire);
    // Nothing to read, or, in a damaged file, nothing that can be.
    const bool none = first >= shown || shown - first > kRingBytes;
    if (*at < first || *at > shown || none) *at = none ? shown : first;
    if (*at == shown) {
      const std::uint64_t coming = get(next, std::memory_order_acquire);
      if (get(end, std::memory_order_acquire) != shown) continue;
      return coming > *number ? miss(coming) : Found::kNone;
    }
    *entry = entry_at(words, *at);
    const std::uint32_t step = step_of(*entry, *at);
    const std::uint32_t kept = step > kHead ? std::min({entry->key_length, step - kHead, room}) : 0;
    copy_out(words, *at + kHead, key, kept);
    if (get(oldest) > *at) continue;
    if (!step || step > shown - *at) {  // damaged: go on behind it
      *at = shown;
      continue;
    }
    if (entry->number > *number) return miss(entry->number);
    *at += step;
    if (!entry->number || entry->number < *number) continue;
    ++*number;
    return Found::kEntry;
  }
}

}  // namespace kvt

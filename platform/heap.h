// The one allocator: private stores, loose memory in the cage and databases. Boundary tags, exact bins for small sizes,
// a wilderness that grows by whole segments. It knows no transactions: every change of its own words is announced to
// its backing first, and the backing decides what that means. Where nobody asks for announcements, small blocks that
// are freed wait in lists by size for the next that want one: neither joined with their neighbours nor cut anew.
// With a backing that logs, free memory is zero but for headers and links: the allocator wipes its own words there, and
// who frees a block its inside.
#pragma once

#include <array>
#include <cstdint>

#include "platform/cage.h"
#include "platform/heap_format.h"

namespace kvt {

inline constexpr std::uint32_t kHeapBins = 592;

struct HeapMeta {                               // stored format: lies in the first segment of a store
  std::uint64_t filled[(kHeapBins + 63) / 64];  // a bit for each bin that is not empty
  std::uint32_t bins[kHeapBins];                // first free chunk of each bin
  std::uint32_t top;                            // the wilderness, a free chunk that is in no bin; 0 if used up
  std::uint32_t end;                            // where the newest region ends
};
STORED_SIZE(HeapMeta, 80 + kHeapBins * 4 + 8);

// Chunks that wait to be used again, in private memory that is zero at first.
struct WaitingChunks {
  static constexpr std::uint32_t kMostBytes = 64 * 1024;
  std::uint32_t lists[kExactLimit / 8 + 1];  // one for each size; the link is the block's first word
  std::uint32_t bytes;
};

class HeapBacking {
 public:
  virtual void announce(std::uint32_t at, std::uint32_t length) = 0;
  // Free memory, zero now, is about to go to an owner, who writes it without a word. Only of a heap that is logged.
  virtual void hand_out(std::uint32_t, std::uint32_t) {}
  // Whole segments in one run, if possible at `wanted`, which is 0 for no wish. 0 when there are none.
  virtual std::uint32_t grow(std::uint32_t segments, std::uint32_t wanted) = 0;
  // Whether the segment around `at` was given by grow.
  virtual bool holds(std::uint32_t at) const = 0;

 protected:
  ~HeapBacking() = default;
};

// For each stretch of that many bytes the first chunk that starts in it, so that a block is found from an address
// within it: offset / 8 + 1, or 0 where none starts. Kept under the same announcements as the heap itself.
inline constexpr std::uint32_t kCardShift = 12;
using HeapCard = std::uint16_t;

class Heap {
 public:
  // `cards`, which may be null, has an entry for every stretch from `cards_base` on.
  void attach(HeapMeta* meta, HeapBacking* backing, bool logged, bool hide_free, HeapCard* cards = nullptr,
              std::uint32_t cards_base = 0);
  // For a heap that isn't logged and has private segments only, those of `owner`.
  void keep_waiting(WaitingChunks* waiting, const void* owner) {
    waiting_ = waiting;
    owner_ = owner;
  }
  // Adds a region to allocate from: [begin, begin + length), both multiples of 8.
  void add_region(std::uint32_t begin, std::uint32_t length);
  // 8-aligned, not zeroed; null when the backing has no more.
  void* alloc(std::uint32_t size) {
    if (size > kLargest) return nullptr;
    const std::uint32_t need =
        size <= kChunkMinimum - kChunkHeader ? kChunkMinimum : ((size + 7u) & ~7u) + kChunkHeader;
    const std::uint32_t waiting = take_waiting(need);
    const std::uint32_t chunk = waiting ? waiting : take(need);
    if (!chunk) return nullptr;
    void* block = cage_at(chunk + kChunkHeader);
    if (hide_free_) memory_show(block, size);
    return block;
  }
  // An address for which is_block holds. Of the block's bytes the first 8 may be changed, and announced, here.
  void free(void* block) {
    const std::uint32_t chunk = cage_ref(block) - kChunkHeader;
    const std::uint32_t size = size_of(chunk);
    if (hide_free_) memory_hide(block, size - kChunkHeader);
    if (!wait(chunk, size)) give_back(chunk, size);
  }
  // False for what is no allocated block of this heap, as far as can be told from its neighbours.
  bool is_block(const void* block) const { return has_flags(block, kChunkUsed); }
  bool is_pending(const void* block) const { return has_flags(block, kChunkUsed | kChunkPending); }
  // 0 for what is no allocated block.
  std::uint32_t block_size(const void* block) const {
    return is_block(block) ? size_of(cage_ref(block) - kChunkHeader) - kChunkHeader : 0;
  }
  // For who looks after a database.
  HeapCard* cards() const { return cards_; }
  static std::uint32_t card_value(std::uint32_t chunk) { return chunk % (1u << kCardShift) / 8 + 1; }
  // The allocated block that holds the address, pending ones too; 0 if none does. Needs cards.
  std::uint32_t block_around(std::uint32_t at) const;
  // Keeps a block out of use without giving it away: it counts as freed, but its bytes stay.
  void mark_pending(void* block);
  void clear_pending(void* block);
  // Makes the lists anew from the free chunks, given by address and size; `top` becomes the wilderness.
  void relink(const std::array<std::uint32_t, 2>* chunks, std::size_t count, std::uint32_t top);
  // Gives back whole segments at the end of the newest region as far as nothing is in them. @return where the region
  // ends now; 0 when nothing can be given back
  std::uint32_t give_back_end();
  // Takes a free chunk out of use, as a block that is pending; 0 when none begins there.
  std::uint32_t set_aside(std::uint32_t chunk);
  // The same of the wilderness, up to that place.
  std::uint32_t set_aside_top(std::uint32_t up_to);
  std::uint32_t top() const { return meta_->top; }
  std::uint32_t end() const { return meta_->end; }
  std::uint32_t top_size() const;

 private:
  static constexpr std::uint32_t kLargest = 0x40000000;

  // Headers and links of hidden memory are the allocator's own, so these do not ask whether an address is hidden.
  KVT_NO_ASAN static std::uint32_t get(std::uint32_t at) {
    return *reinterpret_cast<std::uint32_t*>(kvt_cage_base + at);
  }
  KVT_NO_ASAN static void put(std::uint32_t at, std::uint32_t value) {
    *reinterpret_cast<std::uint32_t*>(kvt_cage_base + at) = value;
  }
  static std::uint32_t size_of(std::uint32_t chunk) { return get(chunk) & ~kChunkFlags; }
  static bool is_used(std::uint32_t chunk) { return get(chunk) & kChunkUsed; }
  static std::uint32_t previous_size(std::uint32_t chunk) { return get(chunk + 4); }

  bool has_flags(const void* block, std::uint32_t flags) const {
    const std::uint32_t chunk = cage_ref(block) - kChunkHeader;
    if (!in_cage(block) || chunk % 8 || !holds(chunk)) return false;
    const std::uint32_t size = size_of(chunk);
    if ((get(chunk) & kChunkFlags) != flags || size < kChunkMinimum || size > kNumberBegin - chunk) return false;
    const bool same_segment = chunk / kSegmentSize == (chunk + size) / kSegmentSize;
    return (same_segment || holds(chunk + size)) && previous_size(chunk + size) == size;
  }
  // These give chunks of at least `need` bytes, marked as used; 0 when there is none.
  std::uint32_t take(std::uint32_t need);  // also from memory that the backing has to give
  std::uint32_t take_free(std::uint32_t need);
  std::uint32_t take_waiting(std::uint32_t need) {
    if (!waiting_ || need > kExactLimit) return 0;
    std::uint32_t& list = waiting_->lists[need / 8];
    const std::uint32_t chunk = list;
    if (!chunk) return 0;
    list = get(chunk + kChunkHeader);
    waiting_->bytes -= need;
    put(chunk, need | kChunkUsed);
    return chunk;
  }
  // False: the chunk isn't to wait.
  bool wait(std::uint32_t chunk, std::uint32_t size) {
    if (!waiting_ || size > kExactLimit || waiting_->bytes + size > WaitingChunks::kMostBytes) return false;
    std::uint32_t& list = waiting_->lists[size / 8];
    put(chunk + kChunkHeader, list);
    put(chunk, size | kChunkUsed | kChunkWaiting);
    list = chunk;
    waiting_->bytes += size;
    return true;
  }
  bool join_waiting();
  void give_back(std::uint32_t chunk, std::uint32_t size);
  bool holds(std::uint32_t at) const { return owner_ ? segment_owner(cage_at(at)) == owner_ : backing_->holds(at); }
  std::uint32_t take_from_bins(std::uint32_t need);
  std::uint32_t take_from_top(std::uint32_t need, bool for_use = true);
  void set(std::uint32_t at, std::uint32_t value);
  void set_meta(std::uint32_t* at, std::uint32_t value);
  void set_header(std::uint32_t chunk, std::uint32_t size_and_flags, std::uint32_t previous);
  void flip_filled(std::uint32_t bin);
  void set_card(std::uint32_t card, std::uint32_t value);
  void begin_chunk(std::uint32_t chunk);
  void end_chunk(std::uint32_t chunk, std::uint32_t next);
  void push(std::uint32_t chunk, std::uint32_t size);
  void unlink(std::uint32_t chunk, std::uint32_t size);
  void wipe(std::uint32_t at, std::uint32_t length);
  void hand_out(std::uint32_t at, std::uint32_t length) {
    if (logged_ && length) backing_->hand_out(at, length);
  }
  void announce(const void* at, std::uint32_t length) {
    if (logged_) backing_->announce(cage_ref(at), length);
  }

  HeapMeta* meta_ = nullptr;
  HeapBacking* backing_ = nullptr;
  WaitingChunks* waiting_ = nullptr;
  const void* owner_ = nullptr;
  bool logged_ = false;
  bool hide_free_ = false;
  HeapCard* cards_ = nullptr;
  std::uint32_t cards_base_ = 0;
};

}  // namespace kvt

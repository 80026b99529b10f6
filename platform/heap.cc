// Boundary-tag allocator. A chunk is 8 bytes of header {size and flags, size of the chunk before it} and the block; a
// free chunk holds the links of its bin in the block. Each region ends with a header that counts as used.
#include "platform/heap.h"

#include <bit>
#include <cstring>
#include <iterator>

namespace kvt {
namespace {

constexpr std::uint32_t kHeader = 8;
constexpr std::uint32_t kMinimum = 16;  // header and two links
constexpr std::uint32_t kUsed = 1;
constexpr std::uint32_t kPending = 2;
constexpr std::uint32_t kFlags = 7;
constexpr std::uint32_t kExactLimit = 4096;
constexpr std::uint32_t kExactBins = kExactLimit / 8 - 1;
constexpr std::uint32_t kLargest = 0x40000000;
constexpr int kScanLimit = 32;  // chunks looked at in a bin of mixed sizes before a larger bin is taken

// Headers and links of hidden memory are the allocator's own, so these do not ask whether an address is hidden.
KVT_NO_ASAN std::uint32_t get(std::uint32_t at) { return *reinterpret_cast<std::uint32_t*>(kvt_cage_base + at); }
KVT_NO_ASAN void put(std::uint32_t at, std::uint32_t value) {
  *reinterpret_cast<std::uint32_t*>(kvt_cage_base + at) = value;
}

std::uint32_t size_of(std::uint32_t chunk) { return get(chunk) & ~kFlags; }
bool is_used(std::uint32_t chunk) { return get(chunk) & kUsed; }
std::uint32_t previous_size(std::uint32_t chunk) { return get(chunk + 4); }

std::uint32_t bin_of(std::uint32_t size) {
  if (size <= kExactLimit) return size / 8 - 2;
  std::uint32_t log = 31 - static_cast<std::uint32_t>(std::countl_zero(size));
  return kExactBins + (log - 12) * 4 + ((size >> (log - 2)) & 3);
}

}  // namespace

void Heap::attach(HeapMeta* meta, HeapBacking* backing, bool logged, bool hide_free) {
  meta_ = meta;
  backing_ = backing;
  logged_ = logged;
  hide_free_ = hide_free;
}

std::uint32_t Heap::top_size() const { return meta_->top ? size_of(meta_->top) : 0; }

void Heap::set(std::uint32_t at, std::uint32_t value) {
  if (logged_) backing_->announce(at, 4);
  put(at, value);
}

void Heap::set_meta(std::uint32_t* at, std::uint32_t value) {
  announce(at, 4);
  *at = value;
}

void Heap::set_header(std::uint32_t chunk, std::uint32_t size_and_flags, std::uint32_t previous) {
  if (logged_) backing_->announce(chunk, kHeader);
  put(chunk, size_and_flags);
  put(chunk + 4, previous);
}

void Heap::flip_filled(std::uint32_t bin) {
  announce(&meta_->filled[bin / 64], 8);
  meta_->filled[bin / 64] ^= std::uint64_t{1} << (bin % 64);
}

void Heap::push(std::uint32_t chunk, std::uint32_t size) {
  std::uint32_t bin = bin_of(size);
  std::uint32_t head = meta_->bins[bin];
  if (logged_) backing_->announce(chunk + kHeader, 8);
  put(chunk + 8, head);
  put(chunk + 12, 0);
  if (head) {
    set(head + 12, chunk);
  } else {
    flip_filled(bin);
  }
  set_meta(&meta_->bins[bin], chunk);
}

void Heap::unlink(std::uint32_t chunk, std::uint32_t size) {
  // The links lie in what becomes a block, where the owner writes without announcing: they are saved with the header.
  if (logged_) backing_->announce(chunk, kMinimum);
  std::uint32_t next = get(chunk + 8);
  std::uint32_t previous = get(chunk + 12);
  if (previous) {
    set(previous + 8, next);
  } else {
    std::uint32_t bin = bin_of(size);
    set_meta(&meta_->bins[bin], next);
    if (!next) flip_filled(bin);
  }
  if (next) set(next + 12, previous);
}

// What a neighbour has swallowed. In a heap that isn't logged nobody looks at free memory.
void Heap::wipe(std::uint32_t at, std::uint32_t length) {
  if (!logged_) return;
  backing_->announce(at, length);
  std::memset(cage_at(at), 0, length);
}

void Heap::add_region(std::uint32_t begin, std::uint32_t length) {
  std::uint32_t chunk = begin;
  std::uint32_t previous = 0;
  std::uint32_t size = length - kHeader;
  std::uint32_t top = meta_->top;
  if (meta_->end == begin) {  // the old end mark becomes the header of the new chunk
    chunk = begin - kHeader;
    size = length;
    if (logged_) backing_->announce(chunk, kHeader);
    if (top) {
      size += size_of(top);
      chunk = top;
      previous = previous_size(top);
      top = 0;
    } else if (previous = previous_size(chunk); previous && !is_used(chunk - previous)) {
      unlink(chunk - previous, previous);
      wipe(chunk - previous + kHeader, kMinimum - kHeader);
      chunk -= previous;
      size += previous;
      previous = previous_size(chunk);
    }
    if (chunk != begin - kHeader) wipe(begin - kHeader, kHeader);
  }
  if (hide_free_) memory_hide(cage_at(begin), length);
  if (top) {
    set(top + size_of(top) + 4, size_of(top));
    push(top, size_of(top));
  }
  set_header(begin + length - kHeader, kHeader | kUsed, size);
  set_header(chunk, size, previous);
  set_meta(&meta_->top, chunk);
  set_meta(&meta_->end, begin + length);
}

std::uint32_t Heap::take_from_bins(std::uint32_t need) {
  std::uint32_t bin = bin_of(need);
  std::uint32_t chunk = meta_->bins[bin];
  for (int looked = 0; chunk && size_of(chunk) < need; chunk = get(chunk + 8)) {
    if (++looked == kScanLimit) {
      chunk = 0;
      break;
    }
  }
  if (!chunk) {
    std::uint32_t from = bin + 1;
    std::uint64_t bits =
        from / 64 < std::size(meta_->filled) ? meta_->filled[from / 64] >> (from % 64) << (from % 64) : 0;
    for (std::uint32_t word = from / 64;;) {
      if (bits) {
        chunk = meta_->bins[word * 64 + static_cast<std::uint32_t>(std::countr_zero(bits))];
        break;
      }
      if (++word >= std::size(meta_->filled)) return 0;
      bits = meta_->filled[word];
    }
  }
  std::uint32_t size = size_of(chunk);
  unlink(chunk, size);
  std::uint32_t rest = size - need;
  hand_out(chunk + kMinimum, (rest < kMinimum ? size : need) - kMinimum);
  if (rest < kMinimum) {
    put(chunk, size | kUsed);
    return chunk;
  }
  put(chunk, need | kUsed);
  set_header(chunk + need, rest, need);
  set(chunk + size + 4, rest);
  push(chunk + need, rest);
  return chunk;
}

std::uint32_t Heap::take_from_top(std::uint32_t need) {
  std::uint32_t chunk = meta_->top;
  std::uint32_t size = top_size();
  if (!chunk || size < need) return 0;
  std::uint32_t rest = size - need;
  hand_out(chunk + kHeader, rest < kMinimum ? size - kHeader : need);  // with the header of the rest
  if (rest < kMinimum) {
    // The end mark learns of its neighbour only now: while the wilderness lies before it, nobody asks.
    set(chunk + size + 4, size);
    set(chunk, size | kUsed);
    set_meta(&meta_->top, 0);
    return chunk;
  }
  set_header(chunk + need, rest, need);
  set(chunk, need | kUsed);
  set_meta(&meta_->top, chunk + need);
  return chunk;
}

void* Heap::alloc(std::uint32_t size) {
  if (size > kLargest) return nullptr;
  std::uint32_t need = ((size + 7u) & ~7u) + kHeader;
  if (need < kMinimum) need = kMinimum;
  std::uint32_t chunk = take_from_bins(need);
  if (!chunk) chunk = take_from_top(need);
  if (!chunk) {
    std::uint32_t segments = (need + 2 * kHeader + kSegmentSize - 1) / kSegmentSize;
    // Word first: a backing that logs must have an entry before it marks segments as taken.
    announce(&meta_->top, 8);
    std::uint32_t begin = backing_->grow(segments, meta_->end);
    if (!begin) return nullptr;
    add_region(begin, segments * kSegmentSize);
    chunk = take_from_top(need);
  }
  void* block = cage_at(chunk + kHeader);
  if (hide_free_) memory_show(block, size);
  return block;
}

bool Heap::is_block(const void* block) const {
  std::uint32_t chunk = cage_ref(block) - kHeader;
  if (!in_cage(block) || chunk % 8 || !backing_->holds(chunk)) return false;
  std::uint32_t size = size_of(chunk);
  if ((get(chunk) & kFlags) != kUsed || size < kMinimum || size > kNumberBegin - chunk) return false;
  return backing_->holds(chunk + size) && previous_size(chunk + size) == size;
}

std::uint32_t Heap::block_size(const void* block) const {
  return is_block(block) ? size_of(cage_ref(block) - kHeader) - kHeader : 0;
}

void Heap::mark_pending(void* block) {
  std::uint32_t chunk = cage_ref(block) - kHeader;
  set(chunk, get(chunk) | kPending);
}

void Heap::clear_pending(void* block) {
  std::uint32_t chunk = cage_ref(block) - kHeader;
  set(chunk, get(chunk) & ~kPending);
}

void Heap::free(void* block) {
  std::uint32_t chunk = cage_ref(block) - kHeader;
  std::uint32_t size = size_of(chunk);
  if (hide_free_) memory_hide(block, size - kHeader);
  std::uint32_t next = chunk + size;
  std::uint32_t previous = previous_size(chunk);
  // Cleared even where the header is swallowed by its neighbour, so that a second free of the block is seen.
  set(chunk, size);
  if (previous && !is_used(chunk - previous)) {
    wipe(chunk, kMinimum);
    chunk -= previous;
    unlink(chunk, previous);
    size += previous;
    previous = previous_size(chunk);
  }
  if (next == meta_->top) {
    size += size_of(next);
    wipe(next, kHeader);
    wipe(chunk + kHeader, kMinimum - kHeader);
    set_header(chunk, size, previous);
    set_meta(&meta_->top, chunk);
    return;
  }
  if (!is_used(next)) {
    const std::uint32_t more = size_of(next);
    unlink(next, more);
    wipe(next, kMinimum);
    size += more;
    next = chunk + size;
  }
  set_header(chunk, size, previous);
  set(next + 4, size);
  push(chunk, size);
}

}  // namespace kvt

// Boundary-tag allocator over chunks (see heap_format.h). Each region ends with a header that counts as used.
#include "platform/heap.h"

#include <bit>
#include <iterator>

#include "platform/heap_format.h"

namespace kvt {
namespace {

constexpr int kScanLimit = 32;  // chunks looked at in a bin of mixed sizes before a larger bin is taken

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
  if (logged_) backing_->announce(chunk, kChunkHeader);
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
  if (logged_) backing_->announce(chunk + kChunkHeader, 8);
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
  if (logged_) backing_->announce(chunk, kChunkMinimum);
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

void Heap::add_region(std::uint32_t begin, std::uint32_t length) {
  std::uint32_t chunk = begin;
  std::uint32_t previous = 0;
  std::uint32_t size = length - kChunkHeader;
  std::uint32_t top = meta_->top;
  if (meta_->end == begin) {  // the old end mark becomes the header of the new chunk
    chunk = begin - kChunkHeader;
    size = length;
    if (logged_) backing_->announce(chunk, kChunkHeader);
    if (top) {
      size += size_of(top);
      chunk = top;
      previous = previous_size(top);
      top = 0;
    } else if (previous = previous_size(chunk); previous && !is_used(chunk - previous)) {
      unlink(chunk - previous, previous);
      chunk -= previous;
      size += previous;
      previous = previous_size(chunk);
    }
  }
  if (hide_free_) memory_hide(cage_at(begin), length);
  if (top) {
    set(top + size_of(top) + 4, size_of(top));
    push(top, size_of(top));
  }
  set_header(begin + length - kChunkHeader, kChunkHeader | kChunkUsed, size);
  set_header(chunk, size, previous);
  set_meta(&meta_->top, chunk);
  set_meta(&meta_->end, begin + length);
}

void Heap::relink(const std::array<std::uint32_t, 2>* chunks, std::size_t count, std::uint32_t top) {
  announce(meta_, sizeof *meta_);
  for (std::uint64_t& bits : meta_->filled) bits = 0;
  for (std::uint32_t& bin : meta_->bins) bin = 0;
  meta_->top = top;
  for (std::size_t i = 0; i < count; i++) {
    if (chunks[i][0] != top) push(chunks[i][0], chunks[i][1]);
  }
}

std::uint32_t Heap::give_back_end() {
  const std::uint32_t top = meta_->top, size = top_size();
  if (!top || top + size + kChunkHeader != meta_->end) return 0;
  // The wilderness stays a chunk, and an end mark behind it.
  const std::uint32_t end = (top + kChunkMinimum + kChunkHeader + kSegmentSize - 1) / kSegmentSize * kSegmentSize;
  if (end >= meta_->end) return 0;
  set_header(end - kChunkHeader, kChunkHeader | kChunkUsed, end - kChunkHeader - top);
  set(top, end - kChunkHeader - top);
  set_meta(&meta_->end, end);
  return end;
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
  if (rest < kChunkMinimum) {
    put(chunk, size | kChunkUsed);
    return chunk;
  }
  put(chunk, need | kChunkUsed);
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
  if (rest < kChunkMinimum) {
    // The end mark learns of its neighbour only now: while the wilderness lies before it, nobody asks.
    set(chunk + size + 4, size);
    set(chunk, size | kChunkUsed);
    set_meta(&meta_->top, 0);
    return chunk;
  }
  set_header(chunk + need, rest, need);
  set(chunk, need | kChunkUsed);
  set_meta(&meta_->top, chunk + need);
  return chunk;
}

// Gives all waiting chunks back to the bins. False: there were none.
bool Heap::join_waiting() {
  if (!waiting_ || !waiting_->bytes) return false;
  for (std::uint32_t& list : waiting_->lists) {
    while (const std::uint32_t chunk = list) {
      list = get(chunk + kChunkHeader);
      give_back(chunk, size_of(chunk));
    }
  }
  waiting_->bytes = 0;
  return true;
}

std::uint32_t Heap::take_free(std::uint32_t need) {
  const std::uint32_t chunk = take_from_bins(need);
  return chunk ? chunk : take_from_top(need);
}

std::uint32_t Heap::take(std::uint32_t need) {
  std::uint32_t chunk = take_free(need);
  if (!chunk && join_waiting()) chunk = take_free(need);
  if (chunk) return chunk;
  std::uint32_t segments = (need + 2 * kChunkHeader + kSegmentSize - 1) / kSegmentSize;
  // Word first: a backing that logs must have an entry before it marks segments as taken.
  announce(&meta_->top, 8);
  std::uint32_t begin = backing_->grow(segments, meta_->end);
  if (!begin) return 0;
  add_region(begin, segments * kSegmentSize);
  return take_from_top(need);
}

void Heap::mark_pending(void* block) {
  std::uint32_t chunk = cage_ref(block) - kChunkHeader;
  set(chunk, get(chunk) | kChunkPending);
}

void Heap::clear_pending(void* block) {
  std::uint32_t chunk = cage_ref(block) - kChunkHeader;
  set(chunk, get(chunk) & ~kChunkPending);
}

void Heap::give_back(std::uint32_t chunk, std::uint32_t size) {
  std::uint32_t next = chunk + size;
  std::uint32_t previous = previous_size(chunk);
  // Cleared even where the header is swallowed by its neighbour, so that a second free of the block is seen.
  set(chunk, size);
  if (previous && !is_used(chunk - previous)) {
    chunk -= previous;
    unlink(chunk, previous);
    size += previous;
    previous = previous_size(chunk);
  }
  if (next == meta_->top) {
    size += size_of(next);
    set_header(chunk, size, previous);
    set_meta(&meta_->top, chunk);
    return;
  }
  if (!is_used(next)) {
    unlink(next, size_of(next));
    size += size_of(next);
    next = chunk + size;
  }
  set_header(chunk, size, previous);
  set(next + 4, size);
  push(chunk, size);
}

}  // namespace kvt

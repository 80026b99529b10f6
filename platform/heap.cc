// Boundary-tag allocator over chunks (see heap_format.h). Each region ends with a header that counts as used.
#include "platform/heap.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

#include "platform/heap_format.h"

namespace kvt {
namespace {

constexpr int kScanLimit = 32;  // chunks looked at in a bin of mixed sizes before a larger bin is taken

}  // namespace

void Heap::attach(HeapMeta* meta, HeapBacking* backing, bool logged, bool hide_free, HeapCard* cards,
                  std::uint32_t cards_base) {
  meta_ = meta;
  cards_ = cards;
  cards_base_ = cards_base;
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

void Heap::set_card(std::uint32_t card, std::uint32_t value) {
  announce(&cards_[card], sizeof(HeapCard));
  cards_[card] = static_cast<HeapCard>(value);
}

void Heap::begin_chunk(std::uint32_t chunk) {
  if (!cards_) return;
  const std::uint32_t card = (chunk - cards_base_) >> kCardShift, value = card_value(chunk);
  if (!cards_[card] || cards_[card] > value) set_card(card, value);
}

// A chunk is swallowed by the one before it; `next` is the header that follows now.
void Heap::end_chunk(std::uint32_t chunk, std::uint32_t next) {
  if (!cards_) return;
  const std::uint32_t card = (chunk - cards_base_) >> kCardShift;
  if (cards_[card] != card_value(chunk)) return;
  const bool same_card = (next - cards_base_) >> kCardShift == card;
  set_card(card, same_card && size_of(next) >= kChunkMinimum ? card_value(next) : 0);
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

// What a neighbour has swallowed. In a heap that isn't logged nobody looks at free memory.
void Heap::wipe(std::uint32_t at, std::uint32_t length) {
  if (!logged_) return;
  backing_->announce(at, length);
  std::memset(cage_at(at), 0, length);
}

void Heap::add_region(std::uint32_t begin, std::uint32_t length) {
  std::uint32_t chunk = begin;
  std::uint32_t previous = 0;
  std::uint32_t size = length - kChunkHeader;
  std::uint32_t top = meta_->top;
  wipe(begin, kChunkMinimum);  // the region may have been in use before
  if (meta_->end == begin) {   // the old end mark becomes the header of the new chunk
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
      wipe(chunk - previous + kChunkHeader, kChunkMinimum - kChunkHeader);
      chunk -= previous;
      size += previous;
      previous = previous_size(chunk);
    }
    if (chunk != begin - kChunkHeader) wipe(begin - kChunkHeader, kChunkHeader);
  }
  if (hide_free_) memory_hide(cage_at(begin), length);
  if (top) {
    set(top + size_of(top) + 4, size_of(top));
    push(top, size_of(top));
  }
  set_header(begin + length - kChunkHeader, kChunkHeader | kChunkUsed, size);
  set_header(chunk, size, previous);
  begin_chunk(chunk);
  set_meta(&meta_->top, chunk);
  set_meta(&meta_->end, begin + length);
}

void Heap::relink(const std::array<std::uint32_t, 2>* chunks, std::size_t count, std::uint32_t top) {
  announce(meta_, sizeof *meta_);
  for (std::uint64_t& bits : meta_->filled) bits = 0;
  for (std::uint32_t& bin : meta_->bins) bin = 0;
  meta_->top = top;
  if (top) wipe(top + kChunkHeader, kChunkMinimum - kChunkHeader);
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
  hand_out(end - kChunkHeader, kChunkHeader);
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
  // From its first byte on, although the links have been saved: the log shows by it which chunks were made use of.
  hand_out(chunk + kChunkHeader, (rest < kChunkMinimum ? size : need) - kChunkHeader);
  if (rest < kChunkMinimum) {
    put(chunk, size | kChunkUsed);
    return chunk;
  }
  put(chunk, need | kChunkUsed);
  set_header(chunk + need, rest, need);
  begin_chunk(chunk + need);
  set(chunk + size + 4, rest);
  push(chunk + need, rest);
  return chunk;
}

std::uint32_t Heap::take_from_top(std::uint32_t need, bool for_use) {
  std::uint32_t chunk = meta_->top;
  std::uint32_t size = top_size();
  if (!chunk || size < need) return 0;
  std::uint32_t rest = size - need;
  if (for_use) {
    hand_out(chunk + kChunkHeader, rest < kChunkMinimum ? size - kChunkHeader : need);  // with the header of the rest
  }
  if (rest < kChunkMinimum) {
    // The end mark learns of its neighbour only now: while the wilderness lies before it, nobody asks.
    set(chunk + size + 4, size);
    set(chunk, size | kChunkUsed);
    set_meta(&meta_->top, 0);
    return chunk;
  }
  set_header(chunk + need, rest, need);
  begin_chunk(chunk + need);
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

std::uint32_t Heap::block_around(std::uint32_t at) const {
  if (at < cards_base_ || !backing_->holds(at)) return 0;
  std::uint32_t card = (at - cards_base_) >> kCardShift;
  if (cards_[card] > card_value(at & ~7u)) {
    if (!card--) return 0;
  }
  while (!cards_[card]) {
    if (!card || !backing_->holds(cards_base_ + (card << kCardShift))) return 0;
    --card;
  }
  std::uint32_t chunk = cards_base_ + (card << kCardShift) + (cards_[card] - 1u) * 8;
  for (std::uint32_t size; at - chunk >= (size = size_of(chunk)); chunk += size) {
    if (size < kChunkMinimum || !backing_->holds(chunk + size)) return 0;
  }
  return is_used(chunk) && at - chunk >= kChunkHeader && size_of(chunk) >= kChunkMinimum ? chunk + kChunkHeader : 0;
}

void Heap::mark_pending(void* block) {
  std::uint32_t chunk = cage_ref(block) - kChunkHeader;
  set(chunk, get(chunk) | kChunkPending);
}

void Heap::clear_pending(void* block) {
  std::uint32_t chunk = cage_ref(block) - kChunkHeader;
  set(chunk, get(chunk) & ~kChunkPending);
}

std::uint32_t Heap::set_aside(std::uint32_t chunk) {
  const std::uint32_t size = size_of(chunk);
  if (is_used(chunk) || size < kChunkMinimum || size > kLargest) return 0;
  // What was free inside of a larger chunk may still look like one; the bin knows.
  std::uint32_t in_bin = meta_->bins[bin_of(size)];
  while (in_bin && in_bin != chunk) in_bin = get(in_bin + 8);
  if (!in_bin) return 0;
  unlink(chunk, size);
  put(chunk, size | kChunkUsed | kChunkPending);
  return chunk + kChunkHeader;
}

std::uint32_t Heap::set_aside_top(std::uint32_t up_to) {
  const std::uint32_t top = meta_->top, size = top_size();
  if (!top || up_to <= top) return 0;
  const std::uint32_t chunk = take_from_top(std::min(std::max(up_to - top, kChunkMinimum), size), /*for_use=*/false);
  put(chunk, get(chunk) | kChunkPending);
  return chunk + kChunkHeader;
}

void Heap::give_back(std::uint32_t chunk, std::uint32_t size) {
  const std::uint32_t freed = chunk;
  std::uint32_t next = chunk + size;
  std::uint32_t previous = previous_size(chunk);
  // Cleared even where the header is swallowed by its neighbour, so that a second free of the block is seen.
  set(chunk, size);
  if (previous && !is_used(chunk - previous)) {
    wipe(chunk, kChunkMinimum);
    chunk -= previous;
    unlink(chunk, previous);
    size += previous;
    previous = previous_size(chunk);
  }
  if (next == meta_->top) {
    size += size_of(next);
    if (chunk != freed) end_chunk(freed, chunk + size);
    end_chunk(next, chunk + size);
    wipe(next, kChunkHeader);
    wipe(chunk + kChunkHeader, kChunkMinimum - kChunkHeader);
    set_header(chunk, size, previous);
    set_meta(&meta_->top, chunk);
    return;
  }
  if (!is_used(next)) {
    const std::uint32_t more = size_of(next);
    unlink(next, more);
    wipe(next, kChunkMinimum);
    size += more;
    if (chunk != freed) end_chunk(freed, chunk + size);
    end_chunk(next, chunk + size);
    next = chunk + size;
  } else if (chunk != freed) {
    end_chunk(freed, next);
  }
  set_header(chunk, size, previous);
  set(next + 4, size);
  push(chunk, size);
}

}  // namespace kvt

// Memory of a database that readers may still stand on: what a transaction freed, and what one that was taken back had
// been given. While somebody reads it goes to limbo, a ring of pages that hold {block, generation}, oldest first, which
// later transactions drain as far as every reader came after.
#include <algorithm>

#include "platform/database.h"
#include "platform/heap_format.h"
#include "platform/store_blocks.h"

namespace kvt {
namespace {

// Undo log for the release of one block, and for a page of limbo.
constexpr std::uint32_t kReleaseStep = 4096;
constexpr std::uint32_t kPushStep = 256;
// A reader that holds back a block for this many generations is looked at, and again after as many commits.
constexpr std::uint32_t kPatience = 16;

}  // namespace

// After something was taken back, down to that entry of the log: readers that are here now may stand on what had been
// handed out. It goes to limbo, all under the log. That is of the wilderness what lies before the place `top`, where it
// began last, or was handed out by the entries, or all of it with the segments that became heap; and every free chunk
// that was made use of, as a whole. Where the log has no room for it memory is free at once. @return the segments that
// stay heap
std::bitset<256> Database::keep_from_use(std::uint32_t entry, std::uint32_t top, const std::bitset<256>& segments,
                                         std::uint32_t generation) {
  std::vector<std::uint32_t> aside;
  std::bitset<256> kept;
  const auto put_aside = [&aside](std::uint32_t block) {
    if (block) aside.push_back(block);
  };
  constexpr std::uint32_t kWhole = ~0u;
  const std::uint32_t last = header_->log_last;
  const auto for_each_wiped = [last, entry](auto visit) {
    for (std::uint32_t at = last; at != entry;) {
      const auto* saved = static_cast<const LogEntry*>(cage_at(at));
      at = saved->previous;
      if (saved->wiped()) visit(*saved);
    }
  };
  // Who is put aside has room to be remembered, too.
  const auto has_room = [&] {
    return reserve_log(kReleaseStep + static_cast<std::uint32_t>(aside.size()) * kPushStep);
  };
  for (std::uint32_t i = 1; i < header_->segments && has_room(); i++) {
    if (!segments[i]) continue;
    std::uint32_t run = 1;
    while (i + run < header_->segments && segments[i + run]) run++;
    const std::uint32_t begin = base_ + i * kSegmentSize;
    if (begin != heap_.end()) put_aside(heap_.set_aside_top(kWhole));
    heap_.add_region(begin, run * kSegmentSize);
    top = kWhole;  // in memory that is not known to be zero behind it
    for (const std::uint32_t end = i + run; i < end; i++) kept.set(i);
  }
  const std::uint32_t wilderness = heap_.top(), end = wilderness ? wilderness + heap_.top_size() : 0;
  for_each_wiped([&](const LogEntry& saved) {
    if (saved.at >= wilderness && saved.at < end) top = std::max(top, saved.at + saved.wiped());
  });
  if (has_room()) put_aside(heap_.set_aside_top(top));
  for_each_wiped([&](const LogEntry& saved) {
    if (has_room()) put_aside(heap_.set_aside(saved.at - kChunkHeader));
  });
  while (limbo_room() < aside.size() && add_spare_page()) {
  }
  for (std::uint32_t block : aside) {
    if (!limbo_push(block, generation)) release_block(block);  // no page for it
  }
  return kept | (segments_of(Segment::kNewHeap) & ~segments);  // the pages may have taken some
}

// A page of limbo; null for a word that leads to none.
LimboPage* Database::page_at(std::uint32_t at) const {
  if (!at || heap_.block_size(cage_at(at)) < sizeof(LimboPage)) return nullptr;
  auto* page = static_cast<LimboPage*>(cage_at(at));
  return page->first <= page->count && page->count <= kLimboEntries ? page : nullptr;
}

std::size_t Database::limbo_room() const {
  const LimboPage* newest = page_at(roots_->limbo);
  return (newest ? kLimboEntries - newest->count : 0) + spare_pages_.size() * kLimboEntries;
}

bool Database::add_spare_page() {
  if (!reserve_log(kReleaseStep)) return false;
  void* page = heap_.alloc(sizeof(LimboPage));
  if (page) spare_pages_.push_back(cage_ref(page));
  return page != nullptr;
}

bool Database::limbo_push(std::uint32_t block, std::uint32_t generation) {
  LimboPage* newest = page_at(roots_->limbo);
  if (!newest || newest->count == kLimboEntries) {
    if (spare_pages_.empty()) return false;
    const std::uint32_t at = spare_pages_.back();
    spare_pages_.pop_back();
    auto* page = static_cast<LimboPage*>(cage_at(at));
    page->first = page->count = page->reserved = 0;
    page->next = newest ? newest->next : at;
    if (newest) write(&newest->next, at);
    write(&roots_->limbo, at);
    newest = page;
  }
  auto& entry = newest->entries[newest->count];
  announce(cage_ref(&entry), sizeof entry);
  entry = {block, generation};
  write(&newest->count, newest->count + 1);
  return true;
}

// Releases what no reader stands on any more, as a transaction of its own: what is handed out again afterwards must not
// come back to limbo by an abort.
void Database::limbo_drain(Store* store) {
  const LimboPage* newest = page_at(roots_->limbo);
  const LimboPage* front = newest ? page_at(newest->next) : nullptr;
  if (!front || front->first == front->count) return;
  const std::uint32_t next = next_generation(), held = front->entries[front->first].generation;
  std::uint32_t oldest = readers_.oldest(next);
  if (is_before(oldest, held)) {
    if (next - held < kPatience || stuck_++ % kPatience) return;
    readers_.clear_dead(store->fd(), store->reader().slot, held);
    oldest = readers_.oldest(next);
    if (is_before(oldest, held)) return;
  }
  stuck_ = 0;
  begin_log();
  for (LimboPage* last; (last = page_at(roots_->limbo));) {
    LimboPage* page = page_at(last->next);
    if (!page) break;
    while (page->first < page->count && !is_before(oldest, page->entries[page->first].generation)) {
      if (!reserve_log(kReleaseStep)) break;
      void* block = cage_at(page->entries[page->first].block);
      if (heap_.is_pending(block)) release_block(cage_ref(block));
      write(&page->first, page->first + 1);
    }
    if (page->first < page->count) break;
    if (page == last) {  // it stays
      write(&page->first, 0u);
      write(&page->count, 0u);
      break;
    }
    write(&last->next, page->next);
    release_block(cage_ref(page));
  }
  int error = 0;
  if (!end_log(&error)) roll_back();
  error ? to_wipe_.clear() : wipe_released();
  if (!header_->log_last) end_change();
}

// At commit, still under the log: what was freed goes, or to limbo if anybody reads. Where there is no page for it, it
// goes as well: a full disk is no reason to lose memory, and a reader follows nothing out of the file.
void Database::settle_pending() {
  if (!pending_.empty() && readers_.any()) {
    while (limbo_room() < pending_.size() && add_spare_page()) {
    }
  }
  const bool held = readers_.any();
  for (std::uint32_t at : pending_) {
    if (!need_log(kReleaseStep)) return;
    if (!held || !limbo_push(at, next_generation())) release_block(at);
  }
  for (std::uint32_t at : spare_pages_) {
    if (!need_log(kReleaseStep)) return;
    heap_.free(cage_at(at));
  }
  pending_.clear();
  spare_pages_.clear();
}

}  // namespace kvt

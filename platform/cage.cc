// Reserves the cage, hands out private segments, and serves the calls that take memory in the cage without a store.
#include "platform/cage.h"

#include <sys/mman.h>

#include <cerrno>
#include <mutex>

#include "kvt/frame.h"
#include "platform/heap.h"
#include "platform/messages.h"

#ifdef KVT_ASAN
#include <sanitizer/asan_interface.h>
#endif

char* kvt_cage_base;

namespace kvt {

std::array<std::atomic<const void*>, kPrivateSegments> segment_owners;  // guarded for writing by segments_mutex

namespace {

constexpr std::size_t kCageSize = std::size_t{1} << 32;

std::mutex segments_mutex;
std::uint32_t first_hole;  // no free segment lies below this one

std::mutex static_mutex;
std::uint32_t static_at = kStaticBegin;

constexpr int kReserve = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
bool is_whole;

// Null where the process may not have so much address space.
char* reserve_whole() {
  void* got = mmap(nullptr, 2 * kCageSize, PROT_NONE, kReserve, -1, 0);
  if (got == MAP_FAILED) return nullptr;
  char* begin = static_cast<char*>(got);
  std::size_t skip = -reinterpret_cast<std::uintptr_t>(begin) & (kCageSize - 1);
  if (skip) munmap(begin, skip);
  munmap(begin + skip + kCageSize, kCageSize - skip);
  // A dump of the process would otherwise walk 4 GiB of nothing.
  madvise(begin + skip, kCageSize, MADV_DONTDUMP);
  return begin + skip;
}

// What every process with a module needs, so that opening a store can fail in words.
char* reserve_static_zone() {
  for (std::uintptr_t at = 1; at < 1024; ++at) {
    void* wanted = reinterpret_cast<void*>(at * kCageSize);
    void* got = mmap(wanted, kPrivateBegin, PROT_NONE, kReserve | MAP_FIXED_NOREPLACE, -1, 0);
    if (got == wanted) return static_cast<char*>(got);
    if (got != MAP_FAILED) munmap(got, kPrivateBegin);
  }
  return nullptr;
}

// Before every other constructor: static objects of a module may already lie in the cage.
__attribute__((constructor(101))) void reserve_cage() {
  if (kvt_cage_base) return;
  char* begin = reserve_whole();
  is_whole = begin;
  if (!begin) begin = reserve_static_zone();
  if (!begin || mprotect(begin + kStaticBegin, kPrivateBegin - kStaticBegin, PROT_READ | PROT_WRITE)) {
    stop(Message::kNoCage);
  }
  madvise(begin + kStaticBegin, kPrivateBegin - kStaticBegin, MADV_DODUMP);
  kvt_cage_base = begin;
}

char* segment_at(std::uint32_t index) { return kvt_cage_base + kPrivateBegin + std::size_t{index} * kSegmentSize; }

// The store behind kvt_cage_alloc: one heap for the process.
class LooseMemory : public HeapBacking {
 public:
  LooseMemory() { heap_.attach(&meta_, this, /*logged=*/false, /*hide_free=*/true); }
  void* alloc(std::size_t size) {
    if (size > kDatabaseBegin) return nullptr;
    std::lock_guard lock(mutex_);
    return heap_.alloc(static_cast<std::uint32_t>(size));
  }
  void free(void* p) {
    std::lock_guard lock(mutex_);
    if (!heap_.is_block(p)) stop(Message::kBadFree);
    heap_.free(p);
  }
  void announce(std::uint32_t, std::uint32_t) override {}
  std::uint32_t grow(std::uint32_t segments, std::uint32_t) override { return segments_take(segments, this); }
  bool holds(std::uint32_t at) const override { return segment_owner(cage_at(at)) == this; }

 private:
  std::mutex mutex_;
  HeapMeta meta_{};
  Heap heap_;
};

LooseMemory& loose_memory() {
  static LooseMemory* memory = new LooseMemory;  // never destroyed: blocks may outlive every static destructor
  return *memory;
}

}  // namespace

bool cage_is_whole() { return is_whole; }

std::uint32_t segments_take(std::uint32_t count, const void* owner) {
  if (!is_whole) return 0;
  std::lock_guard lock(segments_mutex);
  std::uint32_t run = 0;
  for (std::uint32_t i = first_hole; i < kPrivateSegments; i++) {
    run = segment_owners[i].load(std::memory_order_relaxed) ? 0 : run + 1;
    if (run < count) continue;
    std::uint32_t first = i + 1 - count;
    if (mprotect(segment_at(first), std::size_t{count} * kSegmentSize, PROT_READ | PROT_WRITE)) return 0;
    madvise(segment_at(first), std::size_t{count} * kSegmentSize, MADV_DODUMP);
    for (std::uint32_t j = first; j <= i; j++) segment_owners[j].store(owner, std::memory_order_relaxed);
    if (first == first_hole) first_hole = i + 1;
    return kPrivateBegin + first * kSegmentSize;
  }
  return 0;
}

void segments_release(const void* owner) {
  std::lock_guard lock(segments_mutex);
  for (std::uint32_t i = 0; i < kPrivateSegments; i++) {
    if (segment_owners[i].load(std::memory_order_relaxed) != owner) continue;
    memory_show(segment_at(i), kSegmentSize);
    // A new mapping over the old one gives the pages back and makes a stale reference fault.
    void* got =
        mmap(segment_at(i), kSegmentSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
    if (got == MAP_FAILED) stop(Message::kNoCage);
    segment_owners[i].store(nullptr, std::memory_order_relaxed);
    if (i < first_hole) first_hole = i;
  }
}

#ifdef KVT_ASAN
void memory_hide(void* at, std::size_t size) { __asan_poison_memory_region(at, size); }
void memory_show(void* at, std::size_t size) { __asan_unpoison_memory_region(at, size); }
#endif

}  // namespace kvt

uint32_t kvt_ref_of(const void* pointer) {
  if (!pointer) return 0;
  if (!kvt::in_cage(pointer)) kvt::stop(kvt::Message::kOutsideCage);
  return kvt::cage_ref(pointer);
}

void* kvt_ref_at(uint32_t reference) { return kvt::cage_at(reference); }

void* kvt_cage_alloc(size_t size) { return kvt::loose_memory().alloc(size); }

void kvt_cage_free(void* pointer) {
  if (pointer) kvt::loose_memory().free(pointer);
}

void* kvt_cage_static(size_t size) {
  std::lock_guard lock(kvt::static_mutex);
  if (size > kvt::kProbeBegin - kvt::static_at) return nullptr;
  void* p = kvt::cage_at(kvt::static_at);
  kvt::static_at += (static_cast<uint32_t>(size) + 15u) & ~15u;
  return p;
}

// Copies of a database's file and back, and room given back to the file system. All of it under the write lock.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/database.h"
#include "platform/files.h"
#include "platform/heap_format.h"

namespace kvt {
namespace {

constexpr std::uint32_t kLogSlack = 256 * 1024;  // entry headers and what the heap's own changes log

int read_all(int fd, void* bytes, std::size_t length, off_t at) {
  char* to = static_cast<char*>(bytes);
  while (length) {
    const ssize_t n = pread(fd, to, length, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n ? errno : EINVAL;
    to += n;
    at += n;
    length -= static_cast<std::size_t>(n);
  }
  return 0;
}

}  // namespace

// As the open transaction found it. What the undo log holds is not of the state, and stays behind.
int Database::copy_to(int fd) const {
  const off_t size = off_t{header_->segments} * kSegmentSize + kFileTail;
  if (const int error = allocate_file(fd, 0, size)) return error;
  DatabaseHeader head = *header_;
  head.log_last = 0;
  if (const int error = write_all(fd, &head, sizeof head, 0)) return error;
  if (const int error = write_all(fd, cage_base() + kRootsAt, kReadersAt - kRootsAt, kRootsAt)) return error;
  if (const int error = write_all(fd, cage_base() + kRingAt, kLogAt - kRingAt, kRingAt)) return error;
  if (const int error =
          write_all(fd, cage_base() + kFirstPermanentAt, kSegmentSize - kFirstPermanentAt, kFirstPermanentAt)) {
    return error;
  }
  for (std::uint32_t i = 1; i < header_->segments; ++i) {
    if (header_->kinds[i] == Segment::kLog || header_->kinds[i] == Segment::kFree) continue;
    const std::uint32_t at = i * kSegmentSize;
    if (const int error = write_all(fd, cage_base() + at, kSegmentSize, at)) return error;
  }
  return fsync(fd) ? errno : 0;
}

// Permanent memory stays as it is: processes remember places in it, and what the backup's heap refers to there only
// grew since. Segments that the backup does not know become free memory.
int Database::restore_from(const DatabaseHeader& backup, int fd, const char** reason) {
  const auto is_heap = [](const DatabaseHeader& header, std::uint32_t i) {
    return i < header.segments && (header.kinds[i] == Segment::kHeap || header.kinds[i] == Segment::kNewHeap);
  };
  for (std::uint32_t i = 1; i < header_->segments; ++i) {
    if (header_->kinds[i] == Segment::kLog && is_heap(backup, i)) free_segment(i);
  }
  use_log_areas();
  // An entry first: without one the segments that are taken would stay taken after a death.
  log(base_ + kRootsAt, 8);
  const DatabaseHeader before = *header_;
  std::uint64_t logged = kLogAt - kRootsAt + kLogSlack;
  for (std::uint32_t i = 1; i < std::size(backup.kinds); ++i) {
    if (!is_heap(backup, i)) continue;
    if (is_heap(before, i)) {
      logged += kSegmentSize + kSegmentSize / 256;
    } else if (i < before.segments && before.kinds[i] != Segment::kFree) {
      *reason = "memory that the backup needs serves another purpose now";
      return EFBIG;
    } else if (!take_segments(1, Segment::kNewHeap, base_ + i * kSegmentSize)) {
      *reason = "the file cannot grow";
      return ENOSPC;
    }
  }
  // No segment of the backup is taken for the log, they are all in use by now.
  if (logged > kSlotSize || !reserve_log(static_cast<std::uint32_t>(logged))) {
    *reason = "the undo log has no room for the state that is replaced";
    return EFBIG;
  }
  auto roots = std::unique_ptr<StoreRoots>(new (std::nothrow) StoreRoots);
  if (!roots) return ENOMEM;
  if (const int error = read_all(fd, roots.get(), sizeof *roots, kRootsAt)) return error;
  announce(base_ + kRootsAt, sizeof *roots);
  std::copy(std::begin(roots_->permanent_keys), std::end(roots_->permanent_keys), roots->permanent_keys);
  roots->oid_last = std::max(roots->oid_last, roots_->oid_last);
  std::memcpy(roots_, roots.get(), sizeof *roots);
  for (std::uint32_t i = 1; i < backup.segments; ++i) {
    if (!is_heap(backup, i)) continue;
    const std::uint32_t at = i * kSegmentSize;
    if (is_heap(before, i)) announce(base_ + at, kSegmentSize);
    if (const int error = read_all(fd, cage_base() + at, kSegmentSize, at)) return error;
  }
  announce(base_ + kCardsAt, kCardsEnd - kCardsAt);
  if (const int error = read_all(fd, cage_base() + kCardsAt, kCardsEnd - kCardsAt, kCardsAt)) return error;
  for (std::uint32_t i = 1; i < before.segments; ++i) {
    if (!is_heap(before, i) || is_heap(backup, i)) continue;
    const std::uint32_t at = base_ + i * kSegmentSize;
    heap_.add_region(at, kSegmentSize);
    to_wipe_.push_back({at + kChunkMinimum, at + kSegmentSize - kChunkHeader});
  }
  return 0;
}

void Database::give_up_top() {
  const std::uint32_t before = roots_->heap.end, end = heap_.give_back_end();
  if (!end) return;
  for (std::uint32_t i = (end - base_) / kSegmentSize; i < (before - base_) / kSegmentSize; ++i) {
    header_->kinds[i] = Segment::kOldHeap;
  }
}

// In a transaction that has changed nothing yet.
std::uint64_t Database::shorten_file() {
  std::uint32_t segments = header_->segments;
  // Where whole pages are logged, the first stretch of log alone would do for nothing.
  bool keep = is_machine_durable();
  for (std::uint32_t i = 1; i < header_->segments; ++i) {
    if (header_->kinds[i] == Segment::kLog && !std::exchange(keep, false)) free_segment(i);
  }
  use_log_areas();
  while (segments > 1 && header_->kinds[segments - 1] == Segment::kFree) --segments;
  const std::uint64_t freed = std::uint64_t{header_->segments - segments} * kSegmentSize;
  if (!freed) return 0;
  // Nobody who copies the file or reads in it may find its end moved. Who begins to read from here on sees the new one.
  const int fd = writer()->fd();
  if (lock_byte(fd, kCopyLockAt, F_WRLCK, false)) return 0;
  const std::uint32_t before = header_->segments;
  publish(&header_->segments, segments);
  bool shorter = false;
  if (readers_.any() || (is_machine_durable() && sync(header_, sizeof *header_))) {
    publish(&header_->segments, before);
  } else {
    shorter = ftruncate(fd, off_t{segments} * kSegmentSize + kFileTail) == 0;
  }
  lock_byte(fd, kCopyLockAt, F_UNLCK, true);
  return shorter ? freed : 0;
}

}  // namespace kvt

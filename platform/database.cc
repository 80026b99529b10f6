// Transactions over a mapped database: lock, undo log, segments, permanent memory. Files are opened in
// database_open.cc.
//
// The undo log holds {place, length, entry before, bytes} for each range that was announced, the newest one named by
// the header, and an entry without bytes for free memory that was given out: that is zero when it is free. An entry is
// complete before the header names it, and a range changes only after that, so that the death of the writer at any
// instruction leaves a log that leads back to the last commit.
#include "platform/database.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/files.h"
#include "platform/messages.h"
#include "platform/timer_tree.h"

namespace kvt {
namespace {

constexpr std::uint32_t kEntryHeader = 16;
constexpr std::uint32_t kKeptLogSegments = 4;
constexpr std::uint32_t kWatcherCheck = 64;  // transactions
// What one change of the allocator may log, and what is kept back for what can't be refused.
constexpr std::uint32_t kHeapStep = 4096;
constexpr std::uint32_t kLogReserve = 128 * 1024;
// With machine durability ranges are logged by whole pages: the room that short ones take at most, all together.
constexpr std::uint32_t kPage = 4096;
constexpr std::uint32_t kPagesRoom = 128 * (kPage + kEntryHeader);
constexpr std::uint32_t kWipeStep = 32 * 1024;  // fresh memory is logged in steps of that size

constexpr std::uint32_t kWipe = 0x80000000;

struct LogEntry {  // stored format
  std::uint32_t at;
  std::uint32_t length;  // of the bytes that follow; with kWipe, of memory that was free, and zero
  std::uint32_t previous;
  std::uint32_t checksum;  // with machine durability, else 0

  std::uint32_t bytes() const { return length & kWipe ? 0 : length; }
  std::uint32_t wiped() const { return length & kWipe ? length & ~kWipe : 0; }
};
STORED_SIZE(LogEntry, 16);

struct PermanentBlock {  // stored format, before each permanent block
  std::uint32_t size;    // of the block, without this header
  std::uint32_t next;    // in the list of freed blocks
};
STORED_SIZE(PermanentBlock, 8);

std::uint32_t rounded(std::uint32_t size) { return (size + 7u) & ~7u; }

// The order of these stores is what a dead writer's successor relies on; the processor keeps it, the compiler must too.
void publish(std::uint32_t* at, std::uint32_t value) { std::atomic_ref(*at).store(value, std::memory_order_release); }

std::uint32_t checksum_of(const LogEntry& entry, std::uint32_t txn) {
  std::uint32_t sum = 2166136261u ^ txn;
  const auto add = [&sum](const void* bytes, std::uint32_t length) {
    for (std::uint32_t i = 0; i < length; i++) sum = (sum ^ static_cast<const unsigned char*>(bytes)[i]) * 16777619u;
  };
  add(&entry, offsetof(LogEntry, checksum));
  add(&entry + 1, entry.bytes());
  return sum;
}

struct flock byte_lock(short type, off_t at) {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = at;
  region.l_len = 1;
  return region;
}

int lock_file(int fd, short type) {
  struct flock region = byte_lock(type, 0);
  int result;
  do {
    result = fcntl(fd, F_OFD_SETLKW, &region);
  } while (result && errno == EINTR);
  return result ? errno : 0;
}

}  // namespace

int Database::begin(Store* store, kvt_handle* handle, std::uint32_t* txn, bool even_damaged) {
  const bool heard = !even_damaged && events_heard();  // before any lock: it asks the loader
  {
    std::unique_lock lock(turn_mutex_);
    if (turn_of_ == std::this_thread::get_id() || writer() == store) return EDEADLK;
    turn_.wait(lock, [this] { return turn_of_ == std::thread::id(); });
    turn_of_ = std::this_thread::get_id();
  }
  if (int error = lock_file(store->fd(), F_WRLCK)) {
    release_lock();
    return error;
  }
  writer_.store(store, std::memory_order_relaxed);
  const bool left_open = header_->log_last;
  int error = !header_is_sound() ? EIO : left_open ? roll_back() : 0;
  const bool heap_sound = !error && heap_is_sound();
  if (!error && !heap_sound && !even_damaged) error = EIO;
  if (error) {
    lock_file(store->fd(), F_UNLCK);
    release_lock();
    return error;
  }
  if (!left_open) settle_segments(true);
  txn_ = header_->txn_last + 1;
  if (txn_ == KVT_NO_TXN || txn_ == 0) txn_ = 1;
  header_->txn_last = txn_;
  use_log_areas();
  logged_.fill(0);
  doomed_ = 0;
  // What is wilderness now holds nothing that an abort must bring back, but for the header before it.
  fresh_begin_ = heap_sound && heap_.top() ? heap_.top() + 8 : 0;
  fresh_end_ = heap_sound ? heap_.top() + heap_.top_size() : 0;
  fresh_used_ = fresh_begin_;
  ring()->settle();
  heard_ = heard;
  watched_ = !even_damaged && has_watchers(store);
  recorded_ = false;
  if (heard_ || watched_) events_.begin(this, &heap_, handle);
  *txn = txn_;
  return 0;
}

// A dead reader is found out now and then, which costs a call of the system. Until then changes are kept for nobody.
bool Database::has_watchers(const Store* store) {
  std::atomic_ref watchers(ring()->watchers);
  std::uint32_t seen = watchers.load(std::memory_order_acquire);
  if (!seen || ++begins_ % kWatcherCheck) return seen;
  struct flock region = byte_lock(F_WRLCK, kWatchLockAt);
  if (fcntl(store->fd(), F_OFD_GETLK, &region) || region.l_type != F_UNLCK) return true;
  // A reader that came in between has changed the number.
  return !watchers.compare_exchange_strong(seen, 0);
}

void Database::raise_events(kvt_handle* handle) {
  if (!heard_) return;
  const std::uint16_t tenant = mt_get_tenant_id();
  events_.for_each([&](const RecordChange& event) {
    int err = 0;
    mt_set_tenant_id(event.tenant);  // what the handler looks up is the record's
    event.type->shape->events->raise(handle, txn_, event.kind, cage_at(event.table), cage_at(event.record), &err);
    if (err) trace(Message::kHandlerFailed, std::int64_t{err});
  });
  mt_set_tenant_id(tenant);
}

void Database::record_changes() {
  if (!watched_) return;
  ChangeRing& to = *ring();
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  ChangeEntry entry{};
  entry.time = static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
  entry.txn = txn_;
  if (!reserve_log(kHeapStep)) return;  // no room to take them back: the transaction counts as one that nobody watched
  announce(cage_ref(&to.ready_end), 2 * sizeof to.ready_end);
  events_.for_each([&](const RecordChange& event) {
    entry.type = event.type_link;
    entry.table = event.table;
    entry.record = event.record;
    entry.key_length = event.key_length;
    entry.tenant = event.tenant;
    entry.source = event.source;
    entry.kind = static_cast<std::uint8_t>(event.kind);
    to.append(entry, event.key);
  });
  recorded_ = true;
}

int Database::commit() {
  // Blocks freed in the transaction were kept, since an abort needs their bytes; now they go, still under the log.
  for (std::uint32_t at : pending_) {
    if (!need_log(kHeapStep)) break;
    give_back(at);
  }
  if (!recorded_ && header_->log_last) ring()->skip();
  const bool must_sync = is_machine_durable() && header_->log_last;
  if (must_sync && !doomed_) doomed_ = sync_file();
  if (const int error = doomed_) {
    abort();
    return error;
  }
  pending_.clear();
  publish(&header_->log_last, 0);
  ring()->show();
  const int error = must_sync ? sync(header_, sizeof *header_) : 0;
  error ? to_wipe_.clear() : tidy_up();
  lock_file(writer()->fd(), F_UNLCK);
  // Stores into the mapping wake nobody; a write to the file does. Failing that, a reader learns of it at the next one.
  if (std::atomic_ref(ring()->watchers).load(std::memory_order_relaxed))
    (void)write_all(writer()->fd(), "", 1, kRingAt + offsetof(ChangeRing, bell));
  release_lock();
  return error;
}

void Database::tidy_up() {
  // Nobody asks for these bytes any more.
  for (const Area& area : to_wipe_) std::memset(cage_at(area.begin), 0, area.end - area.begin);
  to_wipe_.clear();
  settle_segments(true);
  std::uint32_t kept = 0;
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    if (header_->kinds[i] == Segment::kLog && ++kept > kKeptLogSegments) free_segment(i);
  }
}

void Database::give_back(std::uint32_t block) {
  void* address = cage_at(block);
  heap_.clear_pending(address);
  to_wipe_.push_back({block + 8, block + heap_.block_size(address)});
  heap_.free(address);
}

void Database::abort() {
  pending_.clear();
  to_wipe_.clear();
  // What the disk does not take stays for the next one who gets the lock.
  if (roll_back() && !log_is_sound()) stop(Message::kBadLog);
  end_watched(base_, kSlotSize);  // what the transaction made is no more
  lock_file(writer()->fd(), F_UNLCK);
  release_lock();
}

void Database::release_lock() {
  std::lock_guard lock(turn_mutex_);
  events_.end();
  writer_.store(nullptr, std::memory_order_relaxed);
  txn_ = KVT_NO_TXN;
  turn_of_ = std::thread::id();
  turn_.notify_one();
}

// What the file says of itself, as far as a writer would follow it out of the file.
bool Database::header_is_sound() const {
  const std::uint32_t segments = header_->segments, end = base_ + segments * kSegmentSize;
  if (segments < 1 || segments > std::size(header_->kinds)) return false;
  for (std::uint32_t i = 0; i < std::size(header_->kinds); i++) {
    const bool has_kind = i > 0 && i < segments;
    if (header_->kinds[i] > (has_kind ? Segment::kOldHeap : Segment::kFree)) return false;
  }
  const std::uint32_t at = header_->permanent_at, permanent_end = header_->permanent_end;
  // No end is what a death between two segments leaves.
  return !permanent_end || (at % 8 == 0 && permanent_end % 8 == 0 && at >= base_ + kFirstPermanentAt &&
                            at <= permanent_end && permanent_end <= end);
}

bool Database::heap_is_sound() const {
  const std::uint32_t top = heap_.top(), end = base_ + header_->segments * kSegmentSize;
  return !top || (top % 8 == 0 && holds(top) && heap_.top_size() <= end - top);
}

// Bytes from a place in the log to the end of its stretch.
std::uint32_t Database::stretch_left(std::uint32_t at) const {
  at -= base_;
  return at < kSegmentSize ? kFirstPermanentAt - at : kSegmentSize - at % kSegmentSize;
}

// Whether the log leads back to its begin by entries that lie in it, and changes nothing that it stands on itself.
bool Database::log_is_sound() const {
  const std::uint32_t file = header_->segments * kSegmentSize;
  const auto is_log = [this](std::uint32_t at) { return header_->kinds[at / kSegmentSize] == Segment::kLog; };
  std::uint32_t entries = 0;
  std::uint64_t wiped = 0;  // no memory is given out twice, but for a header behind a block
  for (std::uint32_t next = header_->log_last; next; entries++) {
    const std::uint32_t at = next - base_;
    if (at % 8 || at < kLogAt || at >= file || entries > file / kEntryHeader) return false;
    if (at < kSegmentSize ? at >= kFirstPermanentAt : !is_log(at)) return false;
    const std::uint32_t room = stretch_left(next);
    const auto* entry = static_cast<const LogEntry*>(cage_at(next));
    const std::uint32_t to = entry->at - base_, length = entry->length;
    next = entry->previous;
    if (room < kEntryHeader) return false;
    if (is_heap(entry->at, entry->wiped()) && (wiped += entry->wiped()) <= 2ull * file) continue;
    if (length < 1 || length > room - kEntryHeader) return false;
    if (to < kRootsAt || to >= file || length > file - to) return false;
    const auto within = [&](std::uint32_t begin, std::uint32_t end) { return to >= begin && to + length <= end; };
    constexpr std::uint32_t kReady = kRingAt + offsetof(ChangeRing, ready_end);
    if (to < kFirstPermanentAt && !within(kRootsAt, kRootsEnd) && !within(kCardsAt, kCardsEnd) &&
        !within(kReady, kReady + 2 * sizeof(std::uint64_t))) {
      return false;
    }
    if (is_log(to) || is_log(to + length - 1)) return false;
  }
  return true;
}

bool Database::is_heap(std::uint32_t at, std::uint32_t length) const {
  const std::uint32_t file = header_->segments * kSegmentSize, from = at - base_;
  if (from < kSegmentSize || from >= file || !length || length > file - from) return false;
  for (std::uint32_t i = from / kSegmentSize; i <= (from + length - 1) / kSegmentSize; ++i) {
    const Segment kind = header_->kinds[i];
    if (kind == Segment::kFree || kind == Segment::kLog || kind == Segment::kPermanent) return false;
  }
  return true;
}

// After a loss of power the disk may have entries that the header does not name yet, but what they cover has changed.
void Database::find_log_end() {
  for (std::uint32_t at = header_->log_last; at;) {
    const std::uint32_t taken = kEntryHeader + rounded(static_cast<const LogEntry*>(cage_at(at))->bytes());
    const std::uint32_t room = stretch_left(at) - taken;
    const auto* next = static_cast<const LogEntry*>(cage_at(at + taken));
    if (room <= kEntryHeader || next->previous != at || next->bytes() > room - kEntryHeader) return;
    if (next->checksum != checksum_of(*next, header_->txn_last)) return;
    publish(&header_->log_last, at += taken);
  }
}

// Can be interrupted and begun again: until the last store the log stays as it is.
int Database::roll_back() {
  const bool must_sync = is_machine_durable() && header_->log_last;
  if (!log_is_sound()) return EIO;
  if (must_sync) {
    find_log_end();
    if (!log_is_sound()) return EIO;
  }
  for (std::uint32_t at = header_->log_last; at;) {
    const auto* entry = static_cast<const LogEntry*>(cage_at(at));
    if (entry->bytes()) {
      std::memcpy(cage_at(entry->at), entry + 1, entry->length);
    } else {
      std::memset(cage_at(entry->at), 0, entry->wiped());
    }
    at = entry->previous;
  }
  settle_segments(false);
  if (must_sync) {
    if (const int error = sync_file()) return error;
  }
  publish(&header_->log_last, 0);
  return must_sync ? sync(header_, sizeof *header_) : 0;
}

int Database::sync(const void* at, std::size_t length) const {
  const auto begin = reinterpret_cast<std::uintptr_t>(at) & ~std::uintptr_t{kPage - 1};
  const std::size_t end = reinterpret_cast<std::uintptr_t>(at) + length;
  return msync(reinterpret_cast<void*>(begin), end - begin, MS_SYNC) ? errno : 0;
}

int Database::sync_file() const { return fdatasync(writer()->fd()) ? errno : 0; }

void Database::order() {
  if (is_machine_durable() && !doomed_) doomed_ = sync_file();
}

// In a transaction that has changed nothing yet.
int Database::set_durability(Durability durability) {
  if (durability == kMachineDurability) {
    if (const int error = sync_file()) return error;
  }
  publish(&header_->durability, durability);
  return sync(header_, sizeof *header_);
}

void Database::settle_segments(bool committed) {
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    Segment& kind = header_->kinds[i];
    const Segment free_now = committed ? Segment::kOldHeap : Segment::kNewHeap;
    if (kind == free_now) {
      free_segment(i);
    } else if (kind == Segment::kNewHeap || kind == Segment::kOldHeap) {
      kind = Segment::kHeap;
    }
  }
}

// Free segments are zero throughout. Pages that nobody wrote to are left alone.
void Database::free_segment(std::uint32_t segment) {
  constexpr std::uint32_t kPage = 4096;
  char* page = cage_base() + segment * kSegmentSize;
  for (const char* end = page + kSegmentSize; page < end; page += kPage) {
    if (page[0] || std::memcmp(page, page + 1, kPage - 1) != 0) std::memset(page, 0, kPage);
  }
  header_->kinds[segment] = Segment::kFree;
}

void Database::use_log_areas() {
  areas_.assign(1, {base_ + kLogAt, base_ + kFirstPermanentAt});
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    std::uint32_t begin = base_ + i * kSegmentSize;
    if (header_->kinds[i] == Segment::kLog) areas_.push_back({begin, begin + kSegmentSize});
  }
  area_ = 0;
  log_at_ = areas_[0].begin;
  log_left_ = 0;
  for (const Area& area : areas_) log_left_ += area.end - area.begin;
}

bool Database::add_log_area() {
  std::uint32_t begin = take_segments(1, Segment::kLog, 0);
  if (!begin) return false;
  areas_.push_back({begin, begin + kSegmentSize});
  log_left_ += kSegmentSize;
  return true;
}

bool Database::reserve_log(std::uint32_t bytes) {
  const std::uint32_t kept = is_machine_durable() ? kLogReserve + kPagesRoom : kLogReserve;
  while (log_left_ < std::uint64_t{bytes} + kept) {
    if (doomed_ || !add_log_area()) return false;
  }
  return true;
}

bool Database::need_log(std::uint32_t bytes) {
  if (!doomed_ && !reserve_log(bytes)) doomed_ = ENOSPC;
  return !doomed_;
}

// What the next entry may take, with its header.
std::uint32_t Database::log_room() {
  for (;;) {
    const std::uint32_t room = areas_[area_].end - log_at_;
    if (room >= kEntryHeader + 8) return room;
    if (area_ + 1 == areas_.size() && !add_log_area()) stop(Message::kLogFull);
    log_at_ = areas_[++area_].begin;
    log_left_ -= room;
  }
}

void Database::append(std::uint32_t at, std::uint32_t length, std::uint32_t wiped) {
  auto* entry = static_cast<LogEntry*>(cage_at(log_at_));
  *entry = {at, length | wiped, header_->log_last, 0};
  std::memcpy(entry + 1, cage_at(at), length);
  const bool ordered = is_machine_durable();
  if (ordered) {
    entry->checksum = checksum_of(*entry, txn_);
    if (const int error = sync(entry, kEntryHeader + length)) doomed_ = error;
  }
  publish(&header_->log_last, log_at_);
  // The entries that follow in the stretch are found without the header.
  if (ordered && log_at_ == areas_[area_].begin) {
    if (const int error = sync(header_, sizeof *header_)) doomed_ = error;
  }
  std::atomic_signal_fence(std::memory_order_seq_cst);  // the caller's store comes after
  log_at_ += kEntryHeader + rounded(length);
  log_left_ -= kEntryHeader + rounded(length);
}

void Database::log(std::uint32_t at, std::uint32_t length) {
  while (length) {
    const std::uint32_t part = std::min(length, log_room() - kEntryHeader);
    append(at, part, 0);
    at += part;
    length -= part;
  }
}

void Database::log_wipe(std::uint32_t at, std::uint32_t length) {
  log_room();
  append(at, 0, kWipe | length);
}

void Database::hand_out(std::uint32_t at, std::uint32_t length) {
  if (at < fresh_begin_ || at >= fresh_end_) {
    // Heap of this transaction is wiped as a whole.
    if (!is_fresh(at, length)) log_wipe(at, length);
    return;
  }
  const std::uint32_t end = std::min(at + length, fresh_end_);
  if (end <= fresh_used_) return;
  const std::uint32_t used = std::min(std::max(end, fresh_used_ + kWipeStep), fresh_end_);
  log_wipe(fresh_used_, used - fresh_used_);
  fresh_used_ = used;
}

bool Database::is_fresh(std::uint32_t at, std::uint32_t length) const {
  if (at >= fresh_begin_ && at < fresh_end_ && length <= fresh_end_ - at) return true;
  return kind_of(at) == Segment::kNewHeap && kind_of(at + length - 1) == Segment::kNewHeap;
}

void Database::announce(std::uint32_t at, std::uint32_t length) {
  if (!length || is_fresh(at, length)) return;
  if (is_machine_durable()) widen(&at, &length);
  // The first bytes logged are the ones that count, so an equal range need not be logged again.
  std::uint64_t range = (std::uint64_t{at} << 32) | length;
  std::uint64_t& before = logged_[(at >> 2 ^ at >> 11) % logged_.size()];
  if (before == range) return;
  need_log(length);
  log(at, length);
  before = range;
}

// A range is on the disk before it is stored into, which costs the same for a few bytes as for a page: what lies beside
// it goes along, up to what no abort takes back.
void Database::widen(std::uint32_t* at, std::uint32_t* length) const {
  std::uint32_t begin = *at & ~(kPage - 1), end = (*at + *length + kPage - 1) & ~(kPage - 1);
  if (*at - base_ < kCardsAt) {
    const std::uint32_t roots = base_ + kRootsAt;
    const std::uint32_t names = roots + static_cast<std::uint32_t>(offsetof(StoreRoots, permanent_keys));
    const std::uint32_t tables = roots + static_cast<std::uint32_t>(offsetof(StoreRoots, tables));
    begin = *at < names ? roots : tables;
    end = *at < names ? names : roots + static_cast<std::uint32_t>(sizeof(StoreRoots));
    if (*at < begin || *at + *length > end) return;
  } else if (*at - base_ >= kCardsEnd && !holds(*at)) {
    return;
  }
  *at = begin;
  *length = end - begin;
}

bool Database::announce_range(const Store* store, void* at, std::uint32_t length, std::uint32_t txn, bool told) {
  if (!in_slot(at)) return true;  // memory of the process, which no transaction covers
  if (!may_write(store, txn)) return false;
  if (length > kSlotSize - (cage_ref(at) - base_)) return false;
  if (txn == KVT_NO_TXN && is_permanent(cage_ref(at))) return true;
  if (told && events_.collecting()) [[unlikely]]
    events_.touch(cage_ref(at), length);
  announce(cage_ref(at), length);
  return true;
}

bool Database::is_permanent(std::uint32_t at) const {
  if (at < base_ || at - base_ >= kSlotSize) return false;
  if (at - base_ < kSegmentSize) return at - base_ >= kFirstPermanentAt;
  return kind_of(at) == Segment::kPermanent;
}

const kvt_type_record* Database::type_at(std::uint32_t link) const {
  constexpr std::uint32_t kLast = sizeof(kvt_type_record) - 1;
  const bool may_lead =
      link >= KVT_STATIC_NUMBERS || (link % 4 == 0 && is_permanent(link) && is_permanent(link + kLast));
  const kvt_type_record* record = may_lead ? kvt_type_link_at(link) : nullptr;
  return record && record->magic == KVT_TYPE_MAGIC ? record : nullptr;
}

bool Database::holds(std::uint32_t at) const {
  if (at - base_ < kSegmentSize || at - base_ >= header_->segments * kSegmentSize) return false;
  return kind_of(at) == Segment::kHeap || kind_of(at) == Segment::kNewHeap;
}

void* Database::alloc(std::uint32_t size) {
  if (size > kSlotSize || !need_log(kHeapStep)) return nullptr;
  return heap_.alloc(size);
}

void Database::free(void* block) {
  std::uint32_t at = cage_ref(block);
  if (in_slot(block) && is_permanent(at)) return free_permanent(at);
  if (!heap_.is_block(block)) stop(Message::kBadFree);
  if (is_fresh(at, 1)) {
    if (!need_log(kHeapStep)) return;
    std::memset(block, 0, heap_.block_size(block));
    heap_.free(block);
    return;
  }
  if (!need_log(kHeapStep)) return;
  heap_.mark_pending(block);
  pending_.push_back(at);
}

std::uint32_t Database::block_size(const void* block) const {
  if (!in_slot(block) || !is_permanent(cage_ref(block))) return heap_.block_size(block);
  return (static_cast<const PermanentBlock*>(block) - 1)->size;
}

// Nothing of the permanent memory is ever rolled back: each step alone must leave it whole.
void* Database::alloc_permanent(std::uint32_t size) {
  if (size > kSlotSize) return nullptr;
  size = std::max(rounded(size), 8u);
  for (std::uint32_t* link = &header_->permanent_free; *link && *link % 8 == 0 && is_permanent(*link);) {
    auto* block = static_cast<PermanentBlock*>(cage_at(*link));
    if (block->size == size) {
      publish(link, block->next);
      return block + 1;
    }
    link = &block->next;
  }
  std::uint32_t need = size + static_cast<std::uint32_t>(sizeof(PermanentBlock));
  std::uint32_t room =
      header_->permanent_end > header_->permanent_at ? header_->permanent_end - header_->permanent_at : 0;
  if (room < need) {
    std::uint32_t segments = (need + kSegmentSize - 1) / kSegmentSize;
    std::uint32_t begin = take_segments(segments, Segment::kPermanent, 0);
    if (!begin) return nullptr;
    // Empty in between, so that a death there loses room and nothing else.
    publish(&header_->permanent_end, 0);
    publish(&header_->permanent_at, begin);
    publish(&header_->permanent_end, begin + segments * kSegmentSize);
  }
  auto* block = static_cast<PermanentBlock*>(cage_at(header_->permanent_at));
  publish(&header_->permanent_at, header_->permanent_at + need);
  *block = {size, 0};
  return block + 1;
}

void Database::free_permanent(std::uint32_t at) {
  auto* block = static_cast<PermanentBlock*>(cage_at(at)) - 1;
  block->next = header_->permanent_free;
  order();
  publish(&header_->permanent_free, cage_ref(block));
}

std::uint32_t Database::grow(std::uint32_t segments, std::uint32_t wanted) {
  // Not the log is what runs out first.
  if (!reserve_log(kLogReserve)) return 0;
  // Where it cannot be continued, the wilderness becomes a chunk like others.
  if (fresh_used_ < fresh_end_) hand_out(fresh_used_, fresh_end_ - fresh_used_);
  return take_segments(segments, Segment::kNewHeap, wanted);
}

std::uint32_t Database::take_segments(std::uint32_t count, Segment kind, std::uint32_t wanted) {
  auto run_at = [&](std::uint32_t first) {
    std::uint32_t n = 0;
    while (n < count && first + n < std::size(header_->kinds) && header_->kinds[first + n] == Segment::kFree) n++;
    return n;
  };
  std::uint32_t first = wanted > base_ ? (wanted - base_) / kSegmentSize : 0;
  if (!first || run_at(first) < count) {
    for (first = 1; first + count <= std::size(header_->kinds); first++) {
      std::uint32_t run = run_at(first);
      if (run == count) break;
      first += run;
    }
    if (first + count > std::size(header_->kinds)) return 0;
  }
  if (first + count > header_->segments && !extend_file(first + count)) return 0;
  for (std::uint32_t i = first; i < first + count; i++) header_->kinds[i] = kind;
  return base_ + first * kSegmentSize;
}

// Room on the disk first: a store into a hole of the file on a full disk would be a signal, not an error.
bool Database::extend_file(std::uint32_t segments) {
  off_t from = off_t{header_->segments} * kSegmentSize;
  off_t length = off_t{segments} * kSegmentSize - from;
  if (allocate_file(writer()->fd(), from, length)) return false;
  // The header must not be on the disk before the room that it tells of.
  if (is_machine_durable() && sync_file()) return false;
  publish(&header_->segments, segments);
  return true;
}

}  // namespace kvt

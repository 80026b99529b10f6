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

struct PermanentBlock {  // stored format, before each permanent block
  std::uint32_t size;    // of the block, without this header
  std::uint32_t next;    // in the list of freed blocks
};
STORED_SIZE(PermanentBlock, 8);

std::uint32_t rounded(std::uint32_t size) { return (size + 7u) & ~7u; }

}  // namespace

// The lock of the process, then that of the file.
int Database::take_turn(Store* store, bool wait) {
  {
    std::unique_lock lock(turn_mutex_);
    if (turn_of_ == std::this_thread::get_id() || writer() == store) return EDEADLK;
    if (!wait && turn_of_ != std::thread::id()) return EAGAIN;
    turn_.wait(lock, [this] { return turn_of_ == std::thread::id(); });
    turn_of_ = std::this_thread::get_id();
  }
  const int error = lock_.take(store->fd(), &store->number(), wait);
  if (error) {
    std::lock_guard lock(turn_mutex_);
    turn_of_ = std::thread::id();
    turn_.notify_one();
  } else {
    writer_.store(store, std::memory_order_relaxed);
  }
  return error;
}

void Database::give_turn() {
  std::lock_guard lock(turn_mutex_);
  lock_.give();
  events_.end();
  writer_.store(nullptr, std::memory_order_relaxed);
  txn_ = KVT_NO_TXN;
  turn_of_ = std::thread::id();
  turn_.notify_one();
}

// Under the lock: the last committed state, whatever became of the writer before.
int Database::recover(bool even_damaged) {
  const bool left_open = header_->log_last;
  if (!header_is_sound()) return EIO;
  if (const int error = left_open ? roll_back() : 0) return error;
  if (!heap_is_sound() && !even_damaged) return EIO;
  if (left_open) {
    readers_.area()->undone = 1;
  } else {
    settle_segments(true);
  }
  end_change();
  return 0;
}

int Database::begin(Store* store, kvt_handle* handle, std::uint32_t* txn, bool even_damaged) {
  if (snapshot_) return EROFS;
  const bool heard = !even_damaged && events_heard();  // before any lock: it asks the loader
  if (int error = store->make_own()) return error;
  if (int error = take_turn(store, true)) return error;
  std::uint32_t& owner = readers_.area()->owner;
  if (int error = recover(even_damaged)) {
    give_turn();
    return error;
  }
  // Perhaps it was a reader who took it back.
  std::uint32_t& undone = readers_.area()->undone;
  store->recovery() = {owner, owner ? undone : 0};
  undone = 0;
  if (owner) trace(Message::kWriterDied, std::int64_t{owner});
  owner = store->process();
  if (!even_damaged) limbo_drain(store);
  if (header_->log_last) {  // which the disk did not take, nor that it was taken back
    owner = 0;
    give_turn();
    return EIO;
  }
  begin_log();
  pending_.clear();
  spare_pages_.clear();
  savepoints_.clear();
  ring()->settle();
  heard_ = heard;
  watched_ = !even_damaged && has_watchers(store);
  recorded_ = false;
  if (heard_ || watched_) events_.begin(this, &heap_, handle);
  *txn = txn_;
  return 0;
}

std::uint32_t Database::checksum_of(const LogEntry& entry) const {
  std::uint32_t sum = 2166136261u ^ header_->txn_last;
  const auto add = [&sum](const void* bytes, std::uint32_t length) {
    for (std::uint32_t i = 0; i < length; i++) sum = (sum ^ static_cast<const unsigned char*>(bytes)[i]) * 16777619u;
  };
  add(&entry, offsetof(LogEntry, checksum));
  add(&entry + 1, entry.bytes());
  return sum;
}

std::uint32_t Database::next_txn() const {
  const std::uint32_t next = header_->txn_last + 1;
  return next == KVT_NO_TXN || next == 0 ? 1 : next;
}

// An empty log, under a number that no entry of an older one has been summed up with.
void Database::begin_log() {
  header_->txn_last = txn_ = next_txn();
  doomed_ = 0;
  use_log_areas();
  fresh_used_ = 0;
  use_wilderness();
}

// What is wilderness now holds nothing that going back must bring back, but for the header before it. All else is
// logged from here on, also what was logged before.
void Database::use_wilderness() {
  const bool has_top = heap_is_sound() && heap_.top();
  fresh_begin_ = has_top ? heap_.top() + 8 : 0;
  fresh_end_ = has_top ? heap_.top() + heap_.top_size() : 0;
  if (fresh_used_ < fresh_begin_ || fresh_used_ > fresh_end_) fresh_used_ = fresh_begin_;
  fresh_segments_.reset();
  forget_logged();
}

// All that was logged before is logged again when it changes again.
void Database::forget_logged() {
  if (++logged_turn_ <= kMostLoggedTurns) return;
  logged_turn_ = 1;
  logged_.fill(0);
}

// A dead reader is found out now and then, which costs a call of the system. Until then changes are kept for nobody.
bool Database::has_watchers(const Store* store) {
  std::atomic_ref watchers(ring()->watchers);
  std::uint32_t seen = watchers.load(std::memory_order_acquire);
  if (!seen || ++begins_ % kWatcherCheck) return seen;
  if (is_byte_locked(store->fd(), kWatchLockAt)) return true;
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
  settle_pending();
  if (!recorded_ && header_->log_last) ring()->skip();
  int error = 0;
  if (!end_log(&error)) {
    error = doomed_;
    abort();
    return error;
  }
  ring()->show();
  error ? to_wipe_.clear() : tidy_up();
  const int fd = writer()->fd();
  end_turn();
  // Stores into the mapping wake nobody; a write to the file does. Failing that, a reader learns of it at the next one.
  if (std::atomic_ref(ring()->watchers).load(std::memory_order_relaxed))
    (void)write_all(fd, "", 1, kRingAt + offsetof(ChangeRing, bell));
  return error;
}

bool Database::end_log(int* error) {
  const bool must_sync = is_machine_durable() && header_->log_last;
  if (must_sync && !doomed_) doomed_ = sync_file();
  if (doomed_) return false;
  publish(&header_->log_last, 0);
  *error = must_sync ? sync_header() : 0;
  return true;
}

void Database::tidy_up() {
  wipe_released();
  settle_segments(true);
  std::uint32_t kept = 0;
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    if (header_->kinds[i] == Segment::kLog && ++kept > kKeptLogSegments) free_segment(i);
  }
}

// The end of a transaction, for readers and for the next writer.
void Database::end_turn() {
  if (!header_->log_last) end_change();
  readers_.area()->owner = 0;
  give_turn();
}

// Of a block that has been in use.
void Database::release_block(std::uint32_t block) {
  void* address = cage_at(block);
  if (heap_.is_pending(address)) heap_.clear_pending(address);
  to_wipe_.push_back({block + 8, block + heap_.block_size(address)});
  heap_.free(address);
}

// When no undo log needs these bytes any more.
void Database::wipe_released() {
  for (const Area& area : to_wipe_) std::memset(cage_at(area.begin), 0, area.end - area.begin);
  to_wipe_.clear();
}

void Database::abort() {
  // What the disk does not take stays for the next one who gets the lock.
  if (roll_back() && !log_is_sound()) stop(Message::kBadLog);
  end_watched(base_, kSlotSize);  // what the transaction made is no more
  end_turn();
}

std::uint32_t Database::savepoint() {
  use_wilderness();
  savepoints_.push_back({header_->log_last, area_, log_at_, pending_.size(), spare_pages_, fresh_begin_, fresh_end_,
                         fresh_used_, segments_of(Segment::kNewHeap)});
  return static_cast<std::uint32_t>(savepoints_.size());
}

bool Database::roll_back_to(std::uint32_t mark) {
  if (mark < 1 || mark > savepoints_.size()) return false;
  savepoints_.resize(mark);
  const Savepoint to = savepoints_.back();
  if (header_->log_last == to.log_last) return true;
  const std::uint32_t top = heap_.top();
  undo_to(to.log_last);
  // What was wilderness at the mark; part of it may have been in the log before.
  const bool same = to.fresh_begin <= fresh_used_ && fresh_used_ <= to.fresh_end;
  if (to.fresh_begin) std::memset(cage_at(to.fresh_begin), 0, (same ? fresh_used_ : to.fresh_end) - to.fresh_begin);
  end_watched(base_, kSlotSize);
  // Readers of what is taken back must learn that what they will meet is another change.
  publish(&header_->generation, header_->generation + 2);
  pending_.resize(to.pending);
  spare_pages_ = to.spare_pages;
  fresh_begin_ = to.fresh_begin;
  fresh_end_ = to.fresh_end;
  fresh_used_ = to.fresh_used;
  fresh_segments_.reset();
  forget_logged();
  std::bitset<256> segments = segments_of(Segment::kNewHeap) & ~to.new_heap;
  const bool held = readers_.any();
  if (held) segments &= ~keep_from_use(to.log_last, top, segments, header_->generation);
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    if (segments[i]) free_segment(i);
  }
  wipe_released();     // before anybody can take it
  if (!held) order();  // what the entries to be written over have taken back
  if (held || doomed_) {
    // An abort has to know what is held from use, so the log stays, and the mark is here now.
    savepoints_.pop_back();
    savepoint();
    return true;
  }
  // Under another number, so that no entry of before is taken for one that follows.
  header_->txn_last = next_txn();
  publish(&header_->log_last, to.log_last);
  if (is_machine_durable()) doomed_ = sync_header();
  if (!doomed_) go_on_in_log(to.area, to.log_at);
  return true;
}

// The one place where readers learn that a change begins: before it, and before the log speaks of it.
void Database::begin_change() {
  std::atomic_ref(header_->generation).store(header_->generation | 1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
}

void Database::end_change() {
  if (header_->generation & 1) publish(&header_->generation, header_->generation + 1);
}

bool Database::prepare_read(Store* store, std::uint32_t* generation) {
  ReaderPlace& place = store->reader();
  if (place.slot < 0 && (store->make_own() || !readers_.take(store->fd(), &place))) return false;
  *generation = generation_now();
  if (!(*generation & 1) || writer() == store) return true;
  constexpr std::uint32_t kPatience = 64;
  place.unsound = place.unsound_generation == *generation ? place.unsound + 1 : 1;
  place.unsound_generation = *generation;
  if (place.unsound % kPatience == 0) {
    recover_if_dead(store);
    *generation = generation_now();
  }
  return true;
}

void Database::forget_reader(Store* store) {
  if (store->reader().slot >= 0 && store->is_own()) readers_.leave(store->reader());
}

// Nobody but a writer brings an unfinished change to an end; where it died and no other one comes, a reader does it.
void Database::recover_if_dead(Store* store) {
  if (take_turn(store, false)) return;
  recover(false);
  give_turn();
}

// What the file says of itself, as far as a writer would follow it out of the file.
bool Database::header_is_sound() const {
  const std::uint32_t segments = header_->segments, end = this->end();
  if (segments < 1 || segments > kMostSegments) return false;
  static constexpr Segment kNone[sizeof DatabaseHeader::kinds] = {};
  const Segment* kinds = header_->kinds;
  if (kinds[0] != kNone[0] || std::memcmp(kinds + segments, kNone, std::size(kNone) - segments) != 0) return false;
  if (std::any_of(kinds + 1, kinds + segments, [](Segment kind) { return kind > Segment::kOldHeap; })) return false;
  if (!readers_.is_sound()) return false;
  const std::uint32_t at = header_->permanent_at, permanent_end = header_->permanent_end;
  // No end is what a death between two segments leaves.
  return !permanent_end || (at % 8 == 0 && permanent_end % 8 == 0 && at >= base_ + kFirstPermanentAt &&
                            at <= permanent_end && permanent_end <= end);
}

bool Database::heap_is_sound() const {
  const std::uint32_t top = heap_.top();
  return !top || (top % 8 == 0 && holds(top) && heap_.top_size() <= end() - top);
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
  // No memory is given out twice, but for a header behind a block, and a step after each savepoint.
  std::uint64_t wiped = 0;
  const auto most_wiped = [file](std::uint64_t entries) { return 2ull * file + entries * kWipeStep; };
  for (std::uint32_t next = header_->log_last; next; entries++) {
    const std::uint32_t at = next - base_;
    if (at % 8 || at < kLogAt || at >= file || entries > file / kEntryHeader) return false;
    if (at < kSegmentSize ? at >= kFirstPermanentAt : !is_log(at)) return false;
    const std::uint32_t room = stretch_left(next);
    const auto* entry = static_cast<const LogEntry*>(cage_at(next));
    const std::uint32_t to = entry->at - base_, length = entry->bytes();
    next = entry->previous;
    if (room < kEntryHeader) return false;
    if (is_heap(entry->at, entry->wiped()) && (wiped += entry->wiped()) <= most_wiped(entries)) continue;
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
    // A segment may be free again already: who took it back died behind that.
    if (kind == Segment::kLog || kind == Segment::kPermanent) return false;
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
    if (next->checksum != checksum_of(*next)) return;
    publish(&header_->log_last, at += taken);
  }
}

// Can be interrupted and begun again: until the last store the log leads back to the same state.
int Database::roll_back() {
  const bool must_sync = is_machine_durable() && header_->log_last;
  if (!log_is_sound()) return EIO;
  if (header_->durability == kMachineDurability && header_->log_last) {
    const std::uint32_t named = header_->log_last;
    find_log_end();
    if (!log_is_sound()) {
      // A copy that was taken beside a writer may have entries for segments that it does not know yet.
      if (!snapshot_) return EIO;
      publish(&header_->log_last, named);
    }
  }
  undo_to(0);
  pending_.clear();
  spare_pages_.clear();
  to_wipe_.clear();
  std::bitset<256> kept;
  if (header_->log_last && !snapshot_ && heap_is_sound() && readers_.any()) {
    const auto segments = segments_of(Segment::kNewHeap);
    use_log_behind();
    doomed_ = 0;
    fresh_begin_ = fresh_end_ = 0;
    fresh_segments_.reset();
    forget_logged();
    kept = keep_from_use(0, 0, segments, next_generation());
  }
  settle_segments(false, kept);
  if (must_sync) {
    if (const int error = sync_file()) return error;
  }
  publish(&header_->log_last, 0);
  wipe_released();
  set_kinds(kept, Segment::kHeap);
  return must_sync ? sync_header() : 0;
}

int Database::sync(const void* at, std::size_t length) const {
  const auto begin = reinterpret_cast<std::uintptr_t>(at) & ~std::uintptr_t{kPage - 1};
  const std::size_t end = reinterpret_cast<std::uintptr_t>(at) + length;
  return msync(reinterpret_cast<void*>(begin), end - begin, MS_SYNC) ? errno : 0;
}

int Database::sync_file() const { return fdatasync(writer()->fd()) ? errno : 0; }

// The disk may name a log that is no more when this fails. Then it comes before the next log's first entry.
int Database::sync_header() {
  const int error = sync(header_, sizeof *header_);
  header_is_behind_ = error;
  return error;
}

void Database::order() {
  const int error = is_machine_durable() ? sync_file() : 0;
  if (!doomed_) doomed_ = error;
}

// In a transaction that has changed nothing yet.
int Database::set_durability(Durability durability) {
  if (durability == kMachineDurability) {
    if (const int error = sync_file()) return error;
  }
  publish(&header_->durability, durability);
  return sync(header_, sizeof *header_);
}

void Database::undo_to(std::uint32_t entry) {
  for (std::uint32_t at = header_->log_last; at != entry;) {
    const auto* saved = static_cast<const LogEntry*>(cage_at(at));
    if (saved->bytes()) {
      std::memcpy(cage_at(saved->at), saved + 1, saved->bytes());
    } else {
      std::memset(cage_at(saved->at), 0, saved->wiped());
    }
    at = saved->previous;
  }
}

// `kept`: segments that stay as they are.
void Database::settle_segments(bool committed, const std::bitset<256>& kept) {
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    Segment& kind = header_->kinds[i];
    const Segment free_now = committed ? Segment::kOldHeap : Segment::kNewHeap;
    if (kept[i]) continue;
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

void Database::set_kinds(const std::bitset<256>& segments, Segment kind) {
  for (std::uint32_t i = 1; segments.any() && i < header_->segments; i++) {
    if (segments[i]) header_->kinds[i] = kind;
  }
}

std::bitset<256> Database::segments_of(Segment kind) const {
  std::bitset<256> found;
  for (std::uint32_t i = 1; i < header_->segments; i++) found[i] = header_->kinds[i] == kind;
  return found;
}

void Database::use_log_areas() {
  areas_.assign(1, {base_ + kLogAt, base_ + kFirstPermanentAt});
  for (std::uint32_t i = 1; i < header_->segments; i++) {
    std::uint32_t begin = base_ + i * kSegmentSize;
    if (header_->kinds[i] == Segment::kLog) areas_.push_back({begin, begin + kSegmentSize});
  }
  go_on_in_log(0, areas_[0].begin);
}

void Database::go_on_in_log(std::size_t area, std::uint32_t at) {
  area_ = area;
  log_at_ = at;
  log_left_ = areas_[area].end - at;
  while (++area < areas_.size()) log_left_ += areas_[area].end - areas_[area].begin;
}

// Behind the log that is there, and in no stretch that it uses.
void Database::use_log_behind() {
  use_log_areas();
  const auto area_of = [this](std::uint32_t at) {
    std::size_t i = 0;
    while (at < areas_[i].begin || at >= areas_[i].end) i++;
    return i;
  };
  std::vector<bool> used(areas_.size());
  for (std::uint32_t at = header_->log_last; at; at = static_cast<const LogEntry*>(cage_at(at))->previous) {
    used[area_of(at)] = true;
  }
  const std::uint32_t last = header_->log_last;
  const std::uint32_t end = last + kEntryHeader + rounded(static_cast<const LogEntry*>(cage_at(last))->bytes());
  std::vector<Area> behind = {{end, areas_[area_of(last)].end}};
  for (std::size_t i = 0; i < areas_.size(); i++) {
    if (!used[i]) behind.push_back(areas_[i]);
  }
  areas_ = std::move(behind);
  go_on_in_log(0, end);
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
  if (!header_->log_last) begin_change();
  auto* entry = static_cast<LogEntry*>(cage_at(log_at_));
  *entry = {at, length | wiped, header_->log_last, 0};
  std::memcpy(entry + 1, cage_at(at), length);
  const bool ordered = is_machine_durable();
  if (ordered) {
    if (header_is_behind_ && sync_header()) doomed_ = EIO;
    entry->checksum = checksum_of(*entry);
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
  return fresh_segments_[(at - base_) / kSegmentSize] && fresh_segments_[(at + length - 1 - base_) / kSegmentSize];
}

void Database::announce(std::uint32_t at, std::uint32_t length) {
  if (!length || is_fresh(at, length)) return;
  if (is_machine_durable()) widen(&at, &length);
  // The first bytes logged are the ones that count, so an equal range need not be logged again.
  const std::uint64_t range = std::uint64_t{at - base_} << 36 | std::uint64_t{length} << 7 | logged_turn_;
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
  if (!need_log(kHeapStep)) return;
  // An abort needs the bytes of what is older than the transaction, and a reader may have met what is not.
  if (is_fresh(at, 1) && !readers_.any()) {
    std::memset(block, 0, heap_.block_size(block));
    heap_.free(block);
  } else {
    heap_.mark_pending(block);
    pending_.push_back(at);
  }
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
    while (n < count && first + n < kMostSegments && header_->kinds[first + n] == Segment::kFree) n++;
    return n;
  };
  std::uint32_t first = wanted > base_ ? (wanted - base_) / kSegmentSize : 0;
  if (!first || run_at(first) < count) {
    for (first = 1; first + count <= kMostSegments; first++) {
      std::uint32_t run = run_at(first);
      if (run == count) break;
      first += run;
    }
    if (first + count > kMostSegments) return 0;
  }
  if (first + count > header_->segments && !extend_file(first + count)) return 0;
  for (std::uint32_t i = first; i < first + count; i++) {
    header_->kinds[i] = kind;
    if (kind == Segment::kNewHeap) fresh_segments_.set(i);
  }
  // The log may speak of them before the header is on the disk for another reason.
  if (is_machine_durable()) {
    if (const int error = sync(header_, sizeof *header_)) doomed_ = error;
  }
  return base_ + first * kSegmentSize;
}

// Room on the disk first: a store into a hole of the file on a full disk would be a signal, not an error.
bool Database::extend_file(std::uint32_t segments) {
  off_t from = off_t{header_->segments} * kSegmentSize;
  off_t length = off_t{segments} * kSegmentSize + kFileTail - from;
  if (allocate_file(writer()->fd(), from, length)) return false;
  // The header must not be on the disk before the room that it tells of.
  if (is_machine_durable() && sync_file()) return false;
  publish(&header_->segments, segments);
  return true;
}

}  // namespace kvt

// A database: one file, mapped once in a process at the slot of the cage that the file names. Holds the write lock and
// the undo log of the open transaction. See the layout at DatabaseHeader.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <bitset>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/change_ring.h"
#include "platform/reach.h"
#include "platform/readers.h"
#include "platform/record_events.h"
#include "platform/store.h"
#include "platform/write_lock.h"

namespace kvt {

struct LimboPage;

// What a segment of the file serves.
enum class Segment : std::uint8_t {
  kFree = 0,
  kHeap = 1,
  kLog = 2,
  kPermanent = 3,
  kNewHeap = 4,  // became heap in the open transaction: kHeap by commit, kFree by abort
  kOldHeap = 5,  // given up by the open transaction: kFree by commit, kHeap by abort
};

// What a commit survives. See docs/design/durability.md.
enum Durability : std::uint32_t {
  kProcessDurability = 0,  // the death of processes
  kMachineDurability = 1,  // the loss of power too
};

struct DatabaseHeader {          // stored format, at the start of the file
  char magic[8];                 // offset 0
  std::uint32_t version;         // offset 8
  std::uint32_t slot;            // offset 12
  std::uint32_t segment_size;    // offset 16
  std::uint32_t checksum;        // offset 20, over the bytes before it
  std::uint32_t segments;        // offset 24, size of the file
  std::uint32_t log_last;        // offset 28, newest entry of the undo log; the store of 0 is the commit
  std::uint32_t txn_last;        // offset 32
  std::uint32_t permanent_at;    // offset 36, [permanent_at, permanent_end) is not handed out yet
  std::uint32_t permanent_end;   // offset 40
  std::uint32_t permanent_free;  // offset 44, list of freed permanent blocks
  std::uint64_t key_id;          // offset 48, the key under which secrets are sealed; 0 before the first open
  std::uint32_t generation;      // offset 56, odd while a transaction has changed something, each time another
  std::uint32_t durability;      // offset 60, a Durability
  Segment kinds[256];            // offset 64; the first segment is none of these
  std::uint8_t identity[16];     // offset 320, of the file, at random: a backup has its database's
};
STORED_SIZE(DatabaseHeader, 336);
STORED_FIELD(DatabaseHeader, identity, 320, std::uint8_t[16]);
STORED_FIELD(DatabaseHeader, segments, kSegmentsAt, std::uint32_t);
STORED_FIELD(DatabaseHeader, log_last, 28, std::uint32_t);
STORED_FIELD(DatabaseHeader, key_id, 48, std::uint64_t);
STORED_FIELD(DatabaseHeader, generation, 56, std::uint32_t);
STORED_FIELD(DatabaseHeader, durability, 60, std::uint32_t);

// Layout of the first segment.
inline constexpr std::uint32_t kRootsAt = kHeaderSize;
inline constexpr std::uint32_t kRootsEnd = 0x4000;
// From here to the log nothing is rolled back but the cards, and where the ring ends.
inline constexpr std::uint32_t kReadersAt = 0x4000;
inline constexpr std::uint32_t kRingAt = 0x5000;
inline constexpr std::uint32_t kCardsAt = 0x15000;
inline constexpr std::uint32_t kCardsEnd = 0x35000;
inline constexpr std::uint32_t kLogAt = 0x40000;
inline constexpr std::uint32_t kFirstPermanentAt = 0x90000;
// Bytes of the file behind its last segment: a reader that takes the end of a block for the beginning of a larger one
// stays in the file.
inline constexpr std::uint32_t kFileTail = 0x10000;
// The tail has to lie in the slot, too.
inline constexpr std::uint32_t kMostSegments = kSlotSize / kSegmentSize - 1;
inline constexpr std::uint32_t kFormatVersion = 2;
static_assert(kRootsAt + sizeof(StoreRoots) <= kRootsEnd);
static_assert(kRootsEnd <= kReadersAt && kReadersAt + sizeof(ReaderArea) <= kRingAt);
static_assert(kRingAt + sizeof(ChangeRing) <= kCardsAt);
static_assert((kSlotSize >> kCardShift) * sizeof(HeapCard) <= kCardsEnd - kCardsAt && kCardsEnd <= kLogAt);
// Byte of the file that every reader of the feed holds a shared lock on, as long as it lives.
inline constexpr std::uint32_t kWatchLockAt = kRingAt;

struct OpenRequest {
  const char* path;
  bool create;
  bool snapshot;
  int slot;
  char* message;
  std::size_t message_size;
  Durability durability = kProcessDurability;  // of a file that is made
};

// Reads and checks the head of a file. False, with `err` and the request's message, if it is no database that this
// library can read.
bool read_database_header(const OpenRequest& request, int fd, struct stat* file, DatabaseHeader* header, int* err);
// Bytes of the file that are locked in place of what they stand for. Far behind the end: one for each slot of readers
// (readers.cc), and one that who copies the file shares, so that it is not cut short under him.
inline constexpr off_t kCopyLockAt = off_t{1} << 41;

class Database final : public HeapBacking {
 public:
  // A store over the file; null, with `err` and the request's message, if it cannot be had.
  static Store* open(const OpenRequest& request, int* err);
  static void release(Database* database);
  static bool any_open();

  // Takes the lock; rolls back what a dead writer left. 0, EDEADLK, EIO for a damaged file, EROFS for a snapshot, or
  // what the system gives.
  // `even_damaged`: who looks after the file is let in although the heap's wilderness is damaged. What such a
  // transaction changes is told to nobody, but that readers of the feed missed it.
  int begin(Store* store, kvt_handle* handle, std::uint32_t* txn, bool even_damaged = false);
  // The two steps before a commit. Calls the process's handlers for the records that the transaction changed; what they
  // change belongs to it, too. Then records the changes for the readers of the feed.
  void raise_events(kvt_handle* handle);
  void record_changes();
  // 0; ENOSPC or EIO: the transaction was doomed (see announce) and has been rolled back.
  int commit();
  void abort();
  // A place in the open transaction to come back to; marks are numbered from 1, and those behind the one that was gone
  // back to are void.
  std::uint32_t savepoint();
  bool roll_back_to(std::uint32_t mark);

  // The guard of a reader; see kvt/read.h. False when all slots of readers are taken.
  bool read_begin(Store* store, std::uint32_t* generation) {
    ReaderPlace& place = store->reader();
    *generation = generation_now();
    if (snapshot_) return true;
    if ((place.slot < 0 || *generation & 1) && !prepare_read(store, generation)) return false;
    // A section within another one leaves the older generation in the slot.
    if (place.depth++ == 0) readers_.enter(place, *generation);
    return true;
  }
  bool read_valid(std::uint32_t generation) const {
    // What was read, with plain loads, was read before this.
    std::atomic_thread_fence(std::memory_order_acquire);
    return !(generation & 1) && generation_now() == generation;
  }
  void read_end(Store* store) {
    ReaderPlace& place = store->reader();
    if (place.depth && --place.depth == 0) readers_.leave(place);
  }
  void forget_reader(Store* store);

  Store* writer() const { return writer_.load(std::memory_order_relaxed); }
  std::uint32_t txn() const { return txn_; }
  bool may_write(const Store* store, std::uint32_t txn) const {
    return writer() == store && (txn == txn_ || txn == KVT_NO_TXN);
  }
  bool in_slot(const void* address) const { return cage_base() <= address && address < cage_base() + kSlotSize; }
  bool is_permanent(std::uint32_t at) const;
  StoreRoots* roots() const { return roots_; }
  DatabaseHeader* header() const { return header_; }
  ChangeRing* ring() const { return reinterpret_cast<ChangeRing*>(cage_base() + kRingAt); }
  // The type record that a word leads to, if it is a type link; else null. Any word will do.
  const kvt_type_record* type_at(std::uint32_t link) const;
  bool has_key() const;
  // Makes the key the database's, if it has none yet or `replace` is true. False when it has another one.
  bool adopt_key(const Key& key, bool replace);

  void* alloc(std::uint32_t size);
  void* alloc_permanent(std::uint32_t size);
  void free(void* block);
  std::uint32_t block_size(const void* block) const;  // 0 for what is no allocated block
  // Care for the file; the caller has the open transaction. See include/kvt/care.h.
  int copy_to(int fd) const;
  int restore_from(const DatabaseHeader& backup, int fd, const char** reason);
  void give_up_top();
  std::uint64_t shorten_file();
  int set_durability(Durability durability);
  Heap& heap() { return heap_; }
  const Heap& heap() const { return heap_; }

  bool announce_range(const Store* store, void* at, std::uint32_t length, std::uint32_t txn, bool told = true);
  // Room for `bytes` of undo log, beside what is always kept back. `need_log` dooms the transaction when there is none.
  bool reserve_log(std::uint32_t bytes);
  bool need_log(std::uint32_t bytes);
  // With machine durability: all that was stored so far reaches the disk before anything that is stored later. For
  // memory that no undo log covers.
  void order();

  // The file's present extent.
  std::uint32_t end() const { return base_ + header_->segments * kSegmentSize; }
  std::uint32_t base() const { return base_; }

  // Makes the range safe to be stored into. Nobody asks whether that worked, so it always does: when the log cannot
  // grow any more the range goes to the part of it that is kept back, and the transaction is doomed. From then on
  // nothing is allocated, and commit rolls back.
  void announce(std::uint32_t at, std::uint32_t length) override;
  void hand_out(std::uint32_t at, std::uint32_t length) override;
  std::uint32_t grow(std::uint32_t segments, std::uint32_t wanted) override;
  bool holds(std::uint32_t at) const override;

 private:
  struct Area {  // a stretch of undo log
    std::uint32_t begin, end;
  };
  static constexpr std::uint32_t kWipe = 0x80000000;
  struct LogEntry {  // stored format, before the bytes as they were
    std::uint32_t at;
    std::uint32_t length;  // of those bytes; with kWipe, of memory that was free, and zero
    std::uint32_t previous;
    std::uint32_t checksum;  // with machine durability, else 0

    std::uint32_t bytes() const { return length & kWipe ? 0 : length; }
    std::uint32_t wiped() const { return length & kWipe ? length & ~kWipe : 0; }
  };
  STORED_SIZE(LogEntry, 16);
  struct Savepoint {
    std::uint32_t log_last;
    std::size_t area;
    std::uint32_t log_at;
    std::size_t pending;
    std::vector<std::uint32_t> spare_pages;
    std::uint32_t fresh_begin, fresh_end, fresh_used;
    std::bitset<256> new_heap;
  };

  Database() = default;
  ~Database() = default;
  char* cage_base() const { return kvt_cage_base + base_; }
  Segment kind_of(std::uint32_t at) const { return header_->kinds[(at - base_) / kSegmentSize]; }
  bool is_fresh(std::uint32_t at, std::uint32_t length) const;
  std::uint32_t take_segments(std::uint32_t count, Segment kind, std::uint32_t wanted);
  bool extend_file(std::uint32_t segments);
  void use_log_areas();
  bool add_log_area();
  std::uint32_t stretch_left(std::uint32_t at) const;
  // An undo log entry that makes the range zero.
  void log_wipe(std::uint32_t at, std::uint32_t length);
  std::uint32_t log_room();
  void append(std::uint32_t at, std::uint32_t length, std::uint32_t wiped);
  void use_log_behind();
  void log(std::uint32_t at, std::uint32_t length);
  void widen(std::uint32_t* at, std::uint32_t* length) const;
  void find_log_end();
  int take_turn(Store* store, bool wait);
  void give_turn();
  int recover(bool even_damaged);
  void recover_if_dead(Store* store);
  int roll_back();
  std::uint32_t next_txn() const;
  void begin_log();
  void go_on_in_log(std::size_t area, std::uint32_t at);
  // What was changed is committed from here on, and the log empty; `error` if the disk does not know it. False: it
  // cannot be, for the transaction is doomed.
  bool end_log(int* error);
  void end_turn();
  std::uint32_t checksum_of(const LogEntry& entry) const;
  int sync(const void* at, std::size_t length) const;
  int sync_file() const;
  int sync_header();
  bool is_machine_durable() const { return header_->durability == kMachineDurability && !snapshot_; }
  bool has_watchers(const Store* store);
  void undo_to(std::uint32_t entry);
  void use_wilderness();
  void forget_logged();
  std::uint32_t generation_now() const { return std::atomic_ref(header_->generation).load(std::memory_order_acquire); }
  bool prepare_read(Store* store, std::uint32_t* generation);
  void begin_change();
  void end_change();
  std::uint32_t next_generation() const { return (header_->generation | 1) + 1; }
  bool header_is_sound() const;
  bool heap_is_sound() const;
  bool log_is_sound() const;
  bool is_heap(std::uint32_t at, std::uint32_t length) const;
  // What a transaction leaves when it is committed, on the disk too: bytes that an abort would have needed.
  void tidy_up();
  void settle_segments(bool committed, const std::bitset<256>& kept = {});
  void free_segment(std::uint32_t segment);
  void set_kinds(const std::bitset<256>& segments, Segment kind);
  std::bitset<256> segments_of(Segment kind) const;
  void free_permanent(std::uint32_t at);
  int copy_from(int fd);

  // Memory that readers may stand on: reclaim.cc.
  std::bitset<256> keep_from_use(std::uint32_t entry, std::uint32_t top, const std::bitset<256>& segments,
                                 std::uint32_t generation);
  void release_block(std::uint32_t at);
  void wipe_released();
  void settle_pending();
  LimboPage* page_at(std::uint32_t at) const;
  std::size_t limbo_room() const;
  bool add_spare_page();
  bool limbo_push(std::uint32_t block, std::uint32_t generation);
  void limbo_drain(Store* store);
  template <class T>
  void write(T* at, T value) {
    announce(cage_ref(at), sizeof value);
    *at = value;
  }

  // Set once, when the file is mapped.
  int references_ = 0;  // guarded by the table of databases
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::string path_;
  std::uint32_t slot_ = 0;
  std::uint32_t base_ = 0;
  DatabaseHeader* header_ = nullptr;
  StoreRoots* roots_ = nullptr;
  Heap heap_;
  Readers readers_;
  WriteLock lock_;
  bool snapshot_ = false;  // memory of this process alone, a copy of the file

  // One writer of this process at a time; the lock of the file keeps out other processes.
  std::mutex turn_mutex_;
  std::condition_variable turn_;
  std::thread::id turn_of_;

  // The open transaction.
  std::atomic<Store*> writer_{nullptr};
  std::uint32_t txn_ = KVT_NO_TXN;
  std::vector<Area> areas_;
  std::size_t area_ = 0;
  std::uint32_t log_at_ = 0;
  std::uint64_t log_left_ = 0;     // in all areas
  int doomed_ = 0;                 // the error that commit will give
  bool header_is_behind_ = false;  // on the disk, after an error
  std::uint32_t fresh_begin_ = 0;
  std::uint32_t fresh_end_ = 0;
  std::uint32_t fresh_used_ = 0;  // an abort wipes what lies before
  std::vector<Area> to_wipe_;     // free memory that the commit leaves, with what was in it before
  std::bitset<256> fresh_segments_;
  std::vector<std::uint32_t> pending_;
  std::vector<std::uint32_t> spare_pages_;  // of limbo, made in the transaction
  std::vector<Savepoint> savepoints_;
  std::uint32_t stuck_ = 0;  // commits in a row that one reader kept from freeing
  // Ranges logged before, by a hash of the range: place and length, and the turn that they are good for.
  std::array<std::uint64_t, 512> logged_{};
  static constexpr std::uint32_t kMostLoggedTurns = 127;
  static_assert(kSlotSize == 1u << 28);
  std::uint32_t logged_turn_ = 0;
  RecordEvents events_;
  bool heard_ = false;    // by a handler of the process
  bool watched_ = false;  // by a reader of the feed
  bool recorded_ = false;
  std::uint32_t begins_ = 0;

  friend struct DatabaseTable;
};

}  // namespace kvt

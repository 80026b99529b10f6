// A store: what handle->store points at. Private ones own segments of the process; one over a database shares the
// mapping with the process's other handles and holds the lock while it writes.
#pragma once

#include <cstdint>
#include <utility>

#include "kvt/read.h"
#include "kvt/table.h"
#include "platform/heap.h"
#include "platform/keyring.h"
#include "platform/readers.h"

namespace kvt {

class Database;

inline constexpr std::uint32_t kKeyBuckets = 256;

struct RefMapHead {       // stored format, see ref_map.h
  std::uint32_t entries;  // the array of {key, value}
  std::uint32_t capacity;
  std::uint32_t count;
  std::uint32_t reserved;
};
STORED_SIZE(RefMapHead, 16);

// Where everything begins that a store holds. In a database it lies at a fixed place.
struct StoreRoots {  // stored format
  HeapMeta heap;
  std::uint32_t keys[kKeyBuckets];            // named values, under the transaction
  std::uint32_t permanent_keys[kKeyBuckets];  // those that no abort takes back
  kvt_table_list tables;
  std::uint32_t contents;          // the table-of-contents object
  std::uint32_t contents_entries;  // list of TocEntry
  RefMapHead sides;                // object -> offset of its state block
  RefMapHead oids;                 // object -> OidEntry
  std::uint64_t oid_last;          // the serial given out last
  kvt_db_stats stats;
  RefMapHead oids_by_serial;  // lower half of a serial -> OidEntry, of the identities that were given out
  std::uint32_t oids_due;     // list of OidEntry: objects to destroy that nothing refers to any more
  std::uint32_t timer_trees;  // list of TimerTree
  std::uint32_t limbo;        // freed blocks that readers may stand on: newest page of a ring
  std::uint32_t reserved;
  std::uint8_t identity[16];  // of the store, at random; zero until it is needed
};
STORED_SIZE(StoreRoots, sizeof(HeapMeta) + 2 * kKeyBuckets * 4 + 16 + 32 + 8 + 64 + 48);

class Store : public HeapBacking {
 public:
  // Null when the process has too many of them, or no memory.
  static Store* make_private();
  static Store* make_shared(Database* database, int fd);
  void destroy();
  // The store behind a handle's word; null for a store of the caller's own.
  static Store* of(void* word);

  bool is_private() const { return !database_; }
  Database* database() const { return database_; }
  std::uint64_t serial() const { return serial_; }
  int fd() const { return fd_; }
  StoreRoots* roots() const { return roots_; }
  bool in_range(const void* address) const;
  bool can_write() const;  // the lock is held, or there is none
  std::uint32_t open_txn() const;
  // The key under which secrets lie in this store: the one it was given, else, in a private store, that of the process.
  // NULL: no randomness.
  const Key* sealing_key();
  void set_key(KeyHold key) { key_ = std::move(key); }
  ReaderPlace& reader() { return reader_; }
  // What the transaction begun last found of the writer before it.
  kvt_recovery& recovery() { return recovery_; }
  std::uint32_t process() const { return process_; }
  std::uint32_t& number() { return number_; }
  // A store that a forked child has from its parent gets an open file of its own, with locks and a place among readers.
  // 0 or an error.
  int make_own();
  bool is_own() const;

  void* alloc(std::uint32_t txn, std::uint32_t size) { return database_ ? alloc_shared(txn, size) : heap_.alloc(size); }
  // Memory that outlives an abort: for what the process remembers by address.
  void* alloc_permanent(std::uint32_t size);
  bool is_permanent(const void* address) const;
  // Stops the process at what is no block of the store. NULL is accepted.
  void free(std::uint32_t txn, void* block) {
    if (!block) return;
    const std::uint32_t size = database_ ? 0 : heap_.block_size(block);
    if (!size || roots_->sides.count || roots_->oids.count || roots_->timer_trees) return free_known(txn, block);
    heap_.free(block);
  }
  // Bytes of an allocated block; 0 for an address that is none.
  std::uint32_t block_size(const void* block) const;
  // True when the range may be written now; its bytes are then safe.
  bool announce_range(void* at, std::uint32_t length, std::uint32_t txn) {
    return !database_ || announce_shared(at, length, txn);
  }
  // The same for what a tree keeps in the nodes of others, which makes no change of the records that they lie in.
  bool announce_link(void* at, std::uint32_t length, std::uint32_t txn) {
    return !database_ || announce_shared(at, length, txn, /*told=*/false);
  }
  // For permanent memory: what was stored so far stands before what is stored later, on the disk too where the
  // database's durability asks for it.
  void order();
  // Whether `bytes` of undo log are at hand, for changes that must not be cut off half way.
  bool reserve(std::uint32_t bytes);
  template <class T>
  bool write(T* at, T value, std::uint32_t txn) {
    if (!announce_range(at, sizeof value, txn)) return false;
    *at = value;
    return true;
  }

  void announce(std::uint32_t, std::uint32_t) override {}
  std::uint32_t grow(std::uint32_t segments, std::uint32_t) override { return segments_take(segments, this); }
  bool holds(std::uint32_t at) const override { return segment_owner(cage_at(at)) == this; }

 private:
  Store() = default;
  static Store* make();
  void* alloc_shared(std::uint32_t txn, std::uint32_t size);
  void free_known(std::uint32_t txn, void* block);
  bool announce_shared(void* at, std::uint32_t length, std::uint32_t txn, bool told = true);

  bool alive_ = false;
  std::uint64_t serial_ = 0;  // no other store of the process has or had it
  Database* database_ = nullptr;
  int fd_ = -1;
  StoreRoots* roots_ = nullptr;
  Heap heap_;  // of a private store
  KeyHold key_;
  ReaderPlace reader_;
  kvt_recovery recovery_{};
  std::uint32_t process_ = 0, number_ = 0;  // of the process; of the handle, for the write lock
  std::uint32_t forks_ = 0;
  Store* next_free_ = nullptr;
};

// The handle's members over our own stores.
void* store_alloc(void* store, std::uint32_t txn, std::uint32_t size);
void store_free(void* store, std::uint32_t txn, void* address);
void* registry_alloc(void* pool, std::uint32_t txn, std::uint32_t size);
int set_range(kvt_handle* handle, void* address, std::uint32_t length, std::uint32_t txn, void* owner);
// Nothing that is private can be taken back, so there is nothing to save.
int set_counter(kvt_handle* handle, void* address, std::uint64_t amount, std::uint32_t txn);

}  // namespace kvt

// Stores, and the allocation and announcement members of a handle.
#include "platform/store.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <new>

#include "platform/database.h"
#include "platform/messages.h"
#include "platform/oid.h"
#include "platform/ref_map.h"
#include "platform/timer_tree.h"

namespace kvt {
namespace {

// Stores lie in a range of the cage of their own, so that a word can be told from a caller's store without reading it.
constexpr std::uint32_t kStoreRoom = 256;
static_assert(sizeof(Store) <= kStoreRoom);
std::mutex stores_mutex;
std::uint32_t stores_made;
std::uint64_t stores_opened;
Store* stores_free;

}  // namespace

Store* Store::make() {
  std::lock_guard lock(stores_mutex);
  void* room = stores_free;
  if (stores_free) {
    stores_free = stores_free->next_free_;
  } else if (stores_made < (kPrivateBegin - kStoreBegin) / kStoreRoom) {
    room = cage_at(kStoreBegin + stores_made++ * kStoreRoom);
  }
  if (!room) return nullptr;
  Store* store = new (room) Store;
  store->alive_ = true;
  store->serial_ = ++stores_opened;
  return store;
}

Store* Store::of(void* word) {
  std::uintptr_t at = reinterpret_cast<std::uintptr_t>(word) - reinterpret_cast<std::uintptr_t>(kvt_cage_base);
  if (at < kStoreBegin || at >= kPrivateBegin || at % kStoreRoom) return nullptr;
  Store* store = static_cast<Store*>(word);
  return store->alive_ ? store : nullptr;
}

Store* Store::make_private() {
  Store* store = make();
  if (!store) return nullptr;
  std::uint32_t first = segments_take(1, store);
  if (!first) {
    store->destroy();
    return nullptr;
  }
  store->roots_ = static_cast<StoreRoots*>(cage_at(first));
  store->heap_.attach(&store->roots_->heap, store, /*logged=*/false, /*hide_free=*/true);
  constexpr std::uint32_t kTaken = sizeof(StoreRoots) + (sizeof(WaitingChunks) + 7u) / 8 * 8;
  store->heap_.keep_waiting(static_cast<WaitingChunks*>(cage_at(first + sizeof(StoreRoots))), store);
  store->heap_.add_region(first + kTaken, kSegmentSize - kTaken);
  store->roots_->tables.last_link = cage_ref(&store->roots_->tables.first);
  return store;
}

namespace {

std::uint32_t forks;  // this process is so many forks away from the first one that had a database

}  // namespace

// The descriptor of a forked child is the parent's open file, and so are the locks that go with it.
int Store::make_own() {
  if (forks_ == forks) return 0;
  char name[32];
  std::snprintf(name, sizeof name, "/proc/self/fd/%d", fd_);
  const int own = open(name, O_RDWR | O_CLOEXEC);
  if (own < 0) return errno;
  const int moved = dup3(own, fd_, O_CLOEXEC);
  const int error = moved < 0 ? errno : 0;
  close(own);
  if (error) return error;
  forks_ = forks;
  process_ = static_cast<std::uint32_t>(getpid());
  number_ = 0;
  reader_ = {};
  return 0;
}

bool Store::is_own() const { return forks_ == forks; }

Store* Store::make_shared(Database* database, int fd) {
  Store* store = make();
  if (!store) return nullptr;
  store->database_ = database;
  store->fd_ = fd;
  [[maybe_unused]] static const int registered = pthread_atfork(nullptr, nullptr, [] { ++forks; });
  store->forks_ = forks;
  store->process_ = static_cast<std::uint32_t>(getpid());
  store->roots_ = database->roots();
  return store;
}

void Store::destroy() {
  if (database_) {
    database_->forget_reader(this);
    Database::release(database_);
    close(fd_);
  } else {
    segments_release(static_cast<const Store*>(this));
  }
  key_.reset();
  std::lock_guard lock(stores_mutex);
  alive_ = false;
  next_free_ = stores_free;
  stores_free = this;
}

bool Store::in_range(const void* address) const {
  if (database_) return database_->in_slot(address);
  return address && segment_owner(address) == this;
}

bool Store::can_write() const { return !database_ || database_->writer() == this; }

std::uint32_t Store::open_txn() const { return database_ ? database_->txn() : 0; }

const Key* Store::sealing_key() {
  if (!key_ && is_private()) key_ = keyring_process_key();
  return key_.get();
}

void* Store::alloc_shared(std::uint32_t txn, std::uint32_t size) {
  if (!database_->may_write(this, txn)) return nullptr;
  return txn == KVT_NO_TXN ? database_->alloc_permanent(size) : database_->alloc(size);
}

void* Store::alloc_permanent(std::uint32_t size) {
  if (!database_) return heap_.alloc(size);
  return database_->writer() == this ? database_->alloc_permanent(size) : nullptr;
}

bool Store::is_permanent(const void* address) const { return database_ && database_->is_permanent(cage_ref(address)); }

// Also drops what the store knows of objects in the block.
void Store::free_known(std::uint32_t txn, void* block) {
  if (database_ && !database_->may_write(this, txn)) {
    trace(Message::kFreeRefused);
    return;
  }
  const std::uint32_t size = block_size(block);
  if (!size) stop(Message::kBadFree);
  // An object that lost a variant goes without a word about the objects nested above it.
  while (const std::uint32_t object = ref_map_key_in(roots_->sides, cage_ref(block), size)) {
    if (!ref_map_remove(*this, txn, &roots_->sides, object)) break;
  }
  forget_oids(*this, txn, cage_ref(block), size);
  end_watched(cage_ref(block), size);
  // Permanent memory would be handed out again while an abort could still bring back the way to it.
  if (forget_timers(*this, txn, cage_ref(block), size) && is_permanent(block)) return;
  if (database_) {
    database_->free(block);
  } else {
    heap_.free(block);
  }
}

std::uint32_t Store::block_size(const void* block) const {
  return database_ ? database_->block_size(block) : heap_.block_size(block);
}

bool Store::announce_shared(void* at, std::uint32_t length, std::uint32_t txn, bool told) {
  return database_->announce_range(this, at, length, txn, told);
}

void Store::order() {
  if (database_) database_->order();
}

bool Store::reserve(std::uint32_t bytes) {
  return !database_ || (database_->writer() == this && database_->need_log(bytes));
}

void* store_alloc(void* store, std::uint32_t txn, std::uint32_t size) {
  return static_cast<Store*>(store)->alloc(txn, size);
}

void store_free(void* store, std::uint32_t txn, void* address) { static_cast<Store*>(store)->free(txn, address); }

void* registry_alloc(void* pool, std::uint32_t, std::uint32_t size) {
  return static_cast<Store*>(pool)->alloc_permanent(size);
}

int set_range(kvt_handle* handle, void* address, std::uint32_t length, std::uint32_t txn, void*) {
  return nadra_set_range(handle->store, address, length, txn);
}

int set_counter(kvt_handle* handle, void* address, std::uint64_t, std::uint32_t txn) {
  return nadra_set_range(handle->store, address, 8, txn);
}

}  // namespace kvt

int nadra_set_range(void* store, void* address, uint32_t length, uint32_t txn) {
  kvt::Store* own = kvt::Store::of(store);
  return !own || own->announce_range(address, length, txn) ? 1 : 0;
}

int kvt_set_range_private(kvt_handle*, void*, std::uint32_t, std::uint32_t, void*) { return 1; }

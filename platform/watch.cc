// Readers of the feed of committed changes. A reader is a position and a lock: while it lives, it holds a shared lock
// on one byte of the file, by which writers can tell that it does. It waits on a watch of the file itself.
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/database.h"
#include "platform/handle.h"

struct kvt_watch {
  kvt::Database* database;
  int file;  // with the lock
  int waker;
  std::uint64_t at;      // place in the ring
  std::uint64_t number;  // of the change to come
};

namespace kvt {
namespace {

// A description of the file that no other descriptor shares, since the lock belongs to it, and a watch of the file.
int open_waiting(int fd, kvt_watch* watch) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  watch->file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (watch->file < 0) return errno;
  struct flock region {};
  region.l_type = F_RDLCK;
  region.l_whence = SEEK_SET;
  region.l_start = kWatchLockAt;
  region.l_len = 1;
  if (fcntl(watch->file, F_OFD_SETLK, &region)) return errno;
  watch->waker = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (watch->waker < 0) return errno;
  return inotify_add_watch(watch->waker, path, IN_MODIFY) < 0 ? errno : 0;
}

// From now on writers keep their changes.
void enrol(ChangeRing* ring) {
  std::atomic_ref watchers(ring->watchers);
  std::uint32_t seen = watchers.load();
  while (!watchers.compare_exchange_weak(seen, seen + 1 ? seen + 1 : 1)) {
  }
}

void put_entry(const Database& database, const ChangeEntry& entry, kvt_change* change) {
  change->number = entry.number;
  change->time = entry.time;
  change->kind = entry.kind;
  change->txn = entry.txn;
  change->type = database.type_at(entry.type);
  change->table = entry.table;
  change->record = entry.record;
  change->tenant = entry.tenant;
  change->source = entry.source;
  change->key_length = entry.key_length;
}

// What came so far has been looked at: the descriptor waits for what comes after.
void drain(int waker) {
  char events[4096];
  while (read(waker, events, sizeof events) > 0) {
  }
}

}  // namespace
}  // namespace kvt

using kvt::ChangeRing;

kvt_watch* kvtdb_watch_open(kvt_handle* handle, uint64_t position, int* err) {
  if (*err) return nullptr;
  kvt::Store* store = handle->runtime->store;
  kvt::Database* database = store->database();
  auto* watch = database ? new (std::nothrow) kvt_watch{database, -1, -1, 0, 0} : nullptr;
  int error = !database ? EINVAL : !watch ? ENOMEM : kvt::open_waiting(store->fd(), watch);
  if (!error) {
    ChangeRing* ring = database->ring();
    kvt::enrol(ring);
    std::atomic_ref place(position == KVT_WATCH_FROM_NOW ? ring->end : ring->oldest);
    watch->at = place.load(std::memory_order_acquire);
    const uint64_t next = std::max<uint64_t>(std::atomic_ref(ring->next).load(std::memory_order_acquire), 1);
    watch->number = position == KVT_WATCH_FROM_NOW      ? next
                    : position == KVT_WATCH_FROM_OLDEST ? ring->first()
                                                        : position;
    if (watch->number > next) error = EINVAL;
  }
  if (!error) return watch;
  kvtdb_watch_close(watch);
  kvt_store_epoch_err(handle, error, err);
  return nullptr;
}

int kvtdb_watch_next(kvt_watch* watch, kvt_change* change) {
  *change = {};
  kvt::ChangeEntry entry;
  for (int attempt = 0; attempt < 2; attempt++) {
    const uint64_t number = watch->number;
    switch (watch->database->ring()->read(&watch->at, &watch->number, &entry, change->key, sizeof change->key)) {
      case ChangeRing::Found::kEntry:
        kvt::put_entry(*watch->database, entry, change);
        return 1;
      case ChangeRing::Found::kMissed:
        *change = {};
        change->number = number;
        change->missed = watch->number - number;
        change->kind = KVT_RECORDS_MISSED;
        return 1;
      case ChangeRing::Found::kNone:
        if (!attempt) kvt::drain(watch->waker);
    }
  }
  *change = {};
  return 0;
}

int kvtdb_watch_fd(const kvt_watch* watch) { return watch->waker; }

uint64_t kvtdb_watch_position(const kvt_watch* watch) { return watch->number; }

void kvtdb_watch_close(kvt_watch* watch) {
  if (!watch) return;
  if (watch->waker >= 0) close(watch->waker);
  if (watch->file >= 0) close(watch->file);
  delete watch;
}

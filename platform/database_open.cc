// Makes, checks and maps database files. A process maps a file once, however many handles it has over it.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>

#include "platform/database.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace kvt {

constexpr char kMagic[8] = {'Z', 'A', 'R', 'N', 'K', 'V', 'D', 'B'};

// What the process has mapped, by slot.
struct DatabaseTable {
  std::mutex mutex;
  Database* slots[KVT_DATABASE_SLOTS] = {};
  std::atomic<int> open_count{0};

  Database* find(const struct stat& file) const {
    for (Database* d : slots) {
      if (d && d->device_ == file.st_dev && d->inode_ == file.st_ino) return d;
    }
    return nullptr;
  }
  // -1 when none is free.
  int random_free_slot() const {
    int free[KVT_DATABASE_SLOTS];
    unsigned count = 0;
    for (int i = 0; i < KVT_DATABASE_SLOTS; i++) {
      if (!slots[i]) free[count++] = i;
    }
    // At random, so that two files made apart from each other seldom clash in the process that opens both.
    return count ? free[std::random_device{}() % count] : -1;
  }
  Database* map(const OpenRequest& request, const struct stat& file, std::uint32_t slot, int fd, int* err);
  void unmap(Database* database);
};

namespace {

DatabaseTable table;

template <class... Arguments>
void say(const OpenRequest& request, const char* format, Arguments... arguments) {
  if (request.message && request.message_size)
    std::snprintf(request.message, request.message_size, format, arguments...);
}

void say_error(const OpenRequest& request, const char* what, int error) {
  say(request, "cannot %s \"%s\": %s", what, request.path, std::strerror(error));
}

std::uint32_t checksum_of(const DatabaseHeader& header) {
  std::uint32_t sum = 2166136261u;
  const auto* bytes = reinterpret_cast<const unsigned char*>(&header);
  for (std::size_t i = 0; i < offsetof(DatabaseHeader, checksum); i++) sum = (sum ^ bytes[i]) * 16777619u;
  return sum;
}

int fill_new_file(int fd, std::uint32_t slot, Durability durability) {
  DatabaseHeader header{};
  std::uint32_t base = kDatabaseBegin + slot * kSlotSize;
  std::memcpy(header.magic, kMagic, sizeof kMagic);
  header.version = kFormatVersion;
  header.slot = slot;
  header.segment_size = kSegmentSize;
  header.checksum = checksum_of(header);
  header.segments = 1;
  header.durability = durability;
  if (getrandom(header.identity, sizeof header.identity, 0) != sizeof header.identity) return EIO;
  header.permanent_at = base + kFirstPermanentAt;
  header.permanent_end = base + kSegmentSize;
  std::uint32_t tables_at = kRootsAt + static_cast<std::uint32_t>(offsetof(StoreRoots, tables));
  kvt_table_list tables = {0, base + tables_at};
  if (int error = allocate_file(fd, 0, kSegmentSize + kFileTail)) return error;
  if (int error = write_all(fd, &tables, sizeof tables, tables_at)) return error;
  if (int error = write_all(fd, &header, sizeof header, 0)) return error;
  return durability == kMachineDurability && fsync(fd) ? errno : 0;
}

// Opens a file that is there. A symbolic link counts only where none but its folder's owner can have put it. -1, with
// errno.
int open_present(const OpenRequest& request) {
  const char* path = request.path;
  constexpr int kHow = O_CLOEXEC | O_NONBLOCK;  // no waiting at a pipe that bears the name
  int flags = O_RDWR | kHow;
  int fd = ::open(path, flags | O_NOFOLLOW);
  if (fd < 0 && request.snapshot && (errno == EACCES || errno == EROFS || errno == EPERM)) {
    flags = O_RDONLY | kHow;
    fd = ::open(path, flags | O_NOFOLLOW);
  }
  if (fd >= 0 || errno != ELOOP) return fd;
  const char* slash = std::strrchr(path, '/');
  const std::string folder = slash ? std::string(path, slash + 1) : ".";
  struct stat status;
  if (stat(folder.c_str(), &status)) return -1;
  if (status.st_mode & S_IWOTH) {
    errno = ELOOP;
    return -1;
  }
  return ::open(path, flags);
}

// Keeps writers out of a file that is not mapped as a database.
class KeepOut {
 public:
  explicit KeepOut(int fd) : fd_(fd) {}
  ~KeepOut() {
    if (held_) lock_.give();
    if (area_ != MAP_FAILED) munmap(area_, sizeof(ReaderArea));
  }
  int take() {
    area_ = mmap(nullptr, sizeof(ReaderArea), PROT_READ | PROT_WRITE, MAP_SHARED, fd_, kReadersAt);
    if (area_ == MAP_FAILED) return errno;  // a file that may only be read
    lock_.attach(&static_cast<ReaderArea*>(area_)->lock);
    std::uint32_t number = 0;
    const int error = lock_.take(fd_, &number, true);
    held_ = !error;
    return error;
  }

 private:
  int fd_;
  void* area_ = MAP_FAILED;
  WriteLock lock_;
  bool held_ = false;
};

// Takes the file out of the cage again; a stale reference faults.
void clear_slot(void* at) {
  constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED;
  if (mmap(at, kSlotSize, PROT_NONE, kFlags, -1, 0) == MAP_FAILED) stop(Message::kNoCage);
}

}  // namespace

// Whether the file is a database that this library can read.
bool read_database_header(const OpenRequest& request, int fd, struct stat* file, DatabaseHeader* header, int* err) {
  *err = EINVAL;
  if (fstat(fd, file) || !S_ISREG(file->st_mode)) {
    say(request, "\"%s\" is not a regular file", request.path);
    return false;
  }
  *err = EACCES;
  if (file->st_uid != geteuid()) {
    say(request, "database \"%s\" belongs to another user", request.path);
    return false;
  }
  if (file->st_mode & (S_IRWXG | S_IRWXO)) {
    say(request, "database \"%s\" is open to other users, its mode must be 0600", request.path);
    return false;
  }
  *err = EINVAL;
  ssize_t got = pread(fd, header, sizeof *header, 0);
  if (got < static_cast<ssize_t>(sizeof kMagic) || std::memcmp(header->magic, kMagic, sizeof kMagic) != 0) {
    say(request, "\"%s\" is not a database", request.path);
    return false;
  }
  if (got == static_cast<ssize_t>(sizeof *header) && header->version != kFormatVersion) {
    say(request, "database \"%s\" has format version %u, this library reads %u", request.path, header->version,
        kFormatVersion);
    return false;
  }
  // The size again: between the two looks a writer may have let the file grow.
  if (got < static_cast<ssize_t>(sizeof *header) || fstat(fd, file) || file->st_size < kSegmentSize + kFileTail ||
      (file->st_size - kFileTail) / kSegmentSize < header->segments) {
    say(request, "database \"%s\" is cut short", request.path);
    return false;
  }
  if (header->checksum != checksum_of(*header) || header->slot >= KVT_DATABASE_SLOTS ||
      header->segment_size != kSegmentSize || header->segments < 1 || header->segments > kMostSegments) {
    say(request, "database \"%s\" has a damaged header", request.path);
    return false;
  }
  *err = 0;
  return true;
}

Database* DatabaseTable::map(const OpenRequest& request, const struct stat& file, std::uint32_t slot, int fd,
                             int* err) {
  if (Database* other = slots[slot]) {
    say(request, "database \"%s\" needs slot %u, which database \"%s\" holds in this process", request.path, slot,
        other->path_.c_str());
    *err = EBUSY;
    return nullptr;
  }
  auto* d = cage_is_whole() ? new (std::nothrow) Database : nullptr;
  if (!d) {
    *err = ENOMEM;
    say_error(request, "map", *err);
    return nullptr;
  }
  d->base_ = kDatabaseBegin + slot * kSlotSize;
  // The whole slot: what lies behind the end of the file becomes reachable as the file grows, in every process.
  const int flags = request.snapshot ? MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE : MAP_SHARED;
  if (mmap(d->cage_base(), kSlotSize, PROT_READ | PROT_WRITE, flags | MAP_FIXED, request.snapshot ? -1 : fd, 0) ==
      MAP_FAILED) {
    *err = errno;
    say_error(request, "map", *err);
    delete d;
    return nullptr;
  }
  d->snapshot_ = request.snapshot;
  if (!d->snapshot_) {  // else nobody finds it
    d->device_ = file.st_dev;
    d->inode_ = file.st_ino;
  }
  d->path_ = request.path;
  d->slot_ = slot;
  d->header_ = reinterpret_cast<DatabaseHeader*>(d->cage_base());
  d->roots_ = reinterpret_cast<StoreRoots*>(d->cage_base() + kRootsAt);
  // Memory is not hidden: what one process frees another may take into use.
  d->heap_.attach(&d->roots_->heap, d, /*logged=*/true, /*hide_free=*/false,
                  reinterpret_cast<HeapCard*>(d->cage_base() + kCardsAt), d->base_);
  d->readers_.attach(reinterpret_cast<ReaderArea*>(d->cage_base() + kReadersAt));
  d->lock_.attach(&d->readers_.area()->lock);
  if (d->snapshot_) *err = d->copy_from(fd);
  if (*err) {
    say_error(request, "read", *err);
    clear_slot(d->cage_base());
    delete d;
    return nullptr;
  }
  if (d->roots_->tables.last_link - d->base_ >= kSlotSize) {  // what it holds was made for another slot
    say(request, "database \"%s\" has a damaged header", request.path);
    *err = EINVAL;
    clear_slot(d->cage_base());
    delete d;
    return nullptr;
  }
  slots[slot] = d;
  open_count++;
  return d;
}

void DatabaseTable::unmap(Database* database) {
  clear_slot(database->cage_base());
  slots[database->slot_] = nullptr;
  open_count--;
  delete database;
}

// Fills the slot with the file's last committed state; 0 or an error. Beside a writer the bytes are copied first and
// its undo log after them, which then holds all that was changed meanwhile; the copy is rolled back. It counts if no
// transaction ended since the first byte. When they end faster than that, the writers are kept out for one copy.
int Database::copy_from(int fd) {
  void* map = mmap(nullptr, kSlotSize, PROT_READ, MAP_SHARED, fd, 0);
  if (map == MAP_FAILED) return errno;
  const auto* file = static_cast<const char*>(map);
  const auto* header = reinterpret_cast<const DatabaseHeader*>(file);
  const auto copy = [&](std::size_t from, std::size_t to) { std::memcpy(cage_base() + from, file + from, to - from); };
  const auto generation = [header] {
    return std::atomic_ref(const_cast<std::uint32_t&>(header->generation)).load(std::memory_order_acquire);
  };
  const auto copy_segments = [&](auto wanted) {
    const std::uint32_t segments = std::min<std::uint32_t>(header->segments, kSlotSize / kSegmentSize);
    for (std::size_t i = 1; i < segments; i++) {
      if (wanted(header->kinds[i])) copy(i * kSegmentSize, (i + 1) * kSegmentSize);
    }
  };
  bool good = false, alone = false;
  KeepOut writers(fd);
  int error = lock_byte(fd, kCopyLockAt, F_RDLCK, true);
  constexpr int kTries = 8;
  for (int tries = 0; !good && !alone && !error; ++tries) {
    if (tries == kTries) {
      error = writers.take();
      alone = true;
    }
    const std::uint32_t before = generation();
    copy(0, kLogAt);
    copy(kFirstPermanentAt, kSegmentSize);
    copy_segments([](Segment kind) { return kind != Segment::kFree && kind != Segment::kLog; });
    std::atomic_thread_fence(std::memory_order_acquire);
    copy(0, sizeof(DatabaseHeader));
    copy(kLogAt, kFirstPermanentAt);
    copy_segments([](Segment kind) { return kind == Segment::kLog; });
    std::atomic_thread_fence(std::memory_order_acquire);
    // From the commit on the log may be gone although the generation is still the same.
    const bool log_stands =
        std::atomic_ref(const_cast<std::uint32_t&>(header->log_last)).load(std::memory_order_acquire);
    const std::uint32_t after = generation();
    // An odd generation without a log is a transaction that has just begun to change something, or just committed.
    good = (before | 1) == (after | 1) && (after % 2 == 0 || (header_->log_last && log_stands));
  }
  lock_byte(fd, kCopyLockAt, F_UNLCK, true);
  munmap(map, kSlotSize);
  if (error) return error;
  const bool left_open = header_->log_last;
  if (!header_is_sound() || (left_open && roll_back()) || !heap_is_sound()) return EIO;
  if (!left_open) settle_segments(true);
  end_change();
  return 0;
}

Store* Database::open(const OpenRequest& request, int* err) {
  std::lock_guard lock(table.mutex);
  int fd = open_present(request);
  if (fd < 0 && errno == ENOENT && request.create && !request.snapshot) {
    if (request.slot >= KVT_DATABASE_SLOTS) {
      say(request, "there is no slot %d", request.slot);
      *err = EINVAL;
      return nullptr;
    }
    int slot = request.slot >= 0 ? request.slot : table.random_free_slot();
    if (slot < 0) {
      say(request, "this process has no slot left for database \"%s\"", request.path);
      *err = EBUSY;
      return nullptr;
    }
    if (table.slots[slot]) {
      say(request, "database \"%s\" needs slot %d, which database \"%s\" holds in this process", request.path, slot,
          table.slots[slot]->path_.c_str());
      *err = EBUSY;
      return nullptr;
    }
    *err = make_file(request.path, [&](int made) {
      return fill_new_file(made, static_cast<std::uint32_t>(slot), request.durability);
    });
    if (*err == EEXIST) *err = 0;  // another process was first, and its file serves
    if (*err) {
      say_error(request, "make", *err);
      return nullptr;
    }
    fd = open_present(request);
  }
  if (fd < 0) {
    *err = errno == EISDIR ? EINVAL : errno == ELOOP ? EACCES : errno;
    if (*err == EACCES && errno == ELOOP) {
      say(request, "\"%s\" is a symbolic link in a folder that everybody may write to", request.path);
    } else if (errno == EISDIR) {
      say(request, "\"%s\" is not a regular file", request.path);
    } else {
      say_error(request, "open", *err);
    }
    return nullptr;
  }
  struct stat file;
  DatabaseHeader header{};
  Database* database = nullptr;
  if (read_database_header(request, fd, &file, &header, err)) {
    database = request.snapshot ? nullptr : table.find(file);
    if (!database) database = table.map(request, file, header.slot, fd, err);
  }
  Store* store = database ? Store::make_shared(database, fd) : nullptr;
  if (!store) {
    if (database && !database->references_) table.unmap(database);
    if (!*err) *err = ENOMEM;
    close(fd);
    return nullptr;
  }
  database->references_++;
  return store;
}

void Database::release(Database* database) {
  std::lock_guard lock(table.mutex);
  if (--database->references_ == 0) table.unmap(database);
}

bool Database::has_key() const { return std::atomic_ref(header_->key_id).load(std::memory_order_acquire) != 0; }

// Outside of every transaction: what opens the database does not change when one is aborted.
bool Database::adopt_key(const Key& key, bool replace) {
  static_assert(sizeof header_->key_id == sizeof key.id);
  const auto id = load<std::uint64_t>(key.id);
  std::atomic_ref stored(header_->key_id);
  std::uint64_t before = 0;
  if (stored.compare_exchange_strong(before, id, std::memory_order_acq_rel) || before == id) return true;
  if (replace) stored.store(id, std::memory_order_release);
  return replace;
}

bool Database::any_open() { return table.open_count.load(std::memory_order_relaxed) != 0; }

}  // namespace kvt

int kvtlib_db_is_shared(void) { return kvt::Database::any_open(); }

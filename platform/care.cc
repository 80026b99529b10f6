// The calls of kvt/care.h: each takes the write lock, works, and gives it back.
#include "kvt/care.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "platform/check.h"
#include "platform/files.h"
#include "platform/handle.h"
#include "platform/ref_map.h"
#include "platform/repair.h"

namespace kvt {
namespace {

// The write lock for as long as a call runs. Nothing stays of the transaction unless it is kept.
class Hold {
 public:
  Hold(kvt_handle* handle, int* err) : handle_(handle), err_(err) {
    database_ = handle->runtime->store->database();
    if (*err) return;
    if (!database_) {
      kvt_store_epoch_err(handle, EINVAL, err);
      return;
    }
    fail(database_->begin(&store(), handle, &txn_, /*even_damaged=*/true));
    if (*err) txn_ = KVT_NO_TXN;
    if (txn_ != KVT_NO_TXN) handle->default_txn = txn_;
  }
  ~Hold() {
    if (txn_ != KVT_NO_TXN) kvtdb_txn_abort(handle_, txn_, err_);
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;
  explicit operator bool() const { return txn_ != KVT_NO_TXN; }
  Database* operator->() const { return database_; }
  Database& database() const { return *database_; }
  Store& store() const { return *handle_->runtime->store; }
  void fail(int error) {
    if (error) kvt_store_epoch_err(handle_, error, err_);
  }
  // Neither destroys that wait are carried out nor events raised: both follow what may be damaged still.
  void keep() {
    handle_->default_txn = KVT_NO_TXN;
    fail(database_->commit());
    txn_ = KVT_NO_TXN;
  }

 private:
  kvt_handle* handle_;
  int* err_;
  Database* database_;
  std::uint32_t txn_ = KVT_NO_TXN;
};

void say(char* message, std::size_t size, const char* words) {
  if (message && size) std::snprintf(message, size, "%s", words);
}

}  // namespace
}  // namespace kvt

using namespace kvt;

uint32_t kvtdb_check(kvt_handle* handle, kvt_care_line line, void* argument, int* err) {
  const Hold hold(handle, err);
  return hold ? Checker(hold.database(), line, argument).run() : 0;
}

uint32_t kvtdb_repair(kvt_handle* handle, kvt_care_line line, void* argument, int* err) {
  Hold hold(handle, err);
  if (!hold) return 0;
  Checker found(hold.database(), nullptr, nullptr);
  const uint32_t before = found.run();
  if (!before) return 0;
  const int error = repair(hold.store(), found, line, argument);
  if (error && error != EIO) {
    hold.fail(error);
    return before;
  }
  const uint32_t left = Checker(hold.database(), line, argument).run();
  if (!error) hold.keep();
  return left;
}

void kvtdb_backup(kvt_handle* handle, const char* path, int* err) {
  Hold hold(handle, err);
  if (hold) hold.fail(make_file(path, [&](int fd) { return hold->copy_to(fd); }));
}

void kvtdb_restore(kvt_handle* handle, const char* path, char* message, size_t size, int* err) {
  say(message, size, "");
  Hold hold(handle, err);
  if (!hold) return;
  const File file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.fd() < 0) return hold.fail(errno);
  struct stat status;
  DatabaseHeader backup{};
  int error = 0;
  if (!read_database_header({path, false, false, -1, message, size}, file.fd(), &status, &backup, &error)) {
    return hold.fail(error);
  }
  if (std::memcmp(backup.identity, hold->header()->identity, sizeof backup.identity) != 0) {
    say(message, size, "it is no backup of this database");
    return hold.fail(EINVAL);
  }
  if (backup.log_last) {
    say(message, size, "it is a database in use and no backup");
    return hold.fail(EINVAL);
  }
  const char* reason = "";
  error = hold->restore_from(backup, file.fd(), &reason);
  // A backup that is not whole must not become the database.
  if (!error && Checker(hold.database(), nullptr, nullptr).run()) {
    reason = "what it holds is damaged";
    error = EINVAL;
  }
  if (error) {
    say(message, size, reason);
    return hold.fail(error);
  }
  hold.keep();
}

uint64_t kvtdb_compact(kvt_handle* handle, int* err) {
  {
    Hold hold(handle, err);
    if (!hold) return 0;
    // The runtime's own blocks go to lower places; those of others stay where they are.
    StoreRoots* roots = hold->roots();
    for (RefMapHead* map : {&roots->sides, &roots->oids, &roots->oids_by_serial}) {
      ref_map_shrink(hold.store(), hold->txn(), map);
    }
    hold.keep();
  }
  {
    Hold hold(handle, err);
    if (!hold) return 0;
    hold->give_up_top();
    hold.keep();
  }
  const Hold hold(handle, err);
  return hold ? hold->shorten_file() : 0;
}

void kvtdb_set_durability(kvt_handle* handle, int durability, int* err) {
  const Hold hold(handle, err);
  if (!hold) return;
  if (durability < KVT_DURABILITY_DEFAULT || durability > KVT_DURABILITY_MACHINE) {
    return kvt_store_epoch_err(handle, EINVAL, err);
  }
  const int error =
      hold->set_durability(durability == KVT_DURABILITY_MACHINE ? kMachineDurability : kProcessDurability);
  if (error) kvt_store_epoch_err(handle, error, err);
}

void kvtdb_get_info(kvt_handle* handle, kvtdb_info* info, int* err) {
  *info = {};
  const Hold hold(handle, err);
  if (!hold) return;
  const DatabaseHeader& header = *hold->header();
  Checker found(hold.database(), nullptr, nullptr);
  found.run();
  info->format = header.version;
  info->slot = header.slot;
  info->file = std::uint64_t{header.segments} * kSegmentSize + kFileTail;
  info->limit = std::uint64_t{kMostSegments} * kSegmentSize + kFileTail;
  info->heap_used = found.used_bytes();
  info->heap_free = found.free_bytes();
  info->log = kFirstPermanentAt - kLogAt;
  info->permanent = kSegmentSize - kFirstPermanentAt;
  for (std::uint32_t i = 1; i < header.segments; ++i) {
    if (header.kinds[i] == Segment::kLog) info->log += kSegmentSize;
    if (header.kinds[i] == Segment::kPermanent) info->permanent += kSegmentSize;
  }
  info->blocks = static_cast<uint32_t>(found.blocks().size());
  info->tables = static_cast<uint32_t>(found.tables().size());
  for (const CheckedTable& table : found.tables()) info->records += static_cast<uint32_t>(table.records.size());
  info->transactions = header.txn_last;
  info->key_id = header.key_id;
  info->durability = header.durability == kMachineDurability ? KVT_DURABILITY_MACHINE : KVT_DURABILITY_PROCESS;
}

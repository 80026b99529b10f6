// Handles: opened over a private store or a database, closed, and the transactions between.
#include "platform/handle.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "kvt/primitives.h"
#include "platform/database.h"
#include "platform/key_file.h"
#include "platform/key_store.h"
#include "platform/tenant.h"

namespace kvt {

constinit thread_local std::uint16_t thread_tenant;

namespace {

constexpr std::int32_t kWorkspaceBytes = 16 * 1024;

kvt_handle* make_handle(Store* store, const char* name, const kvt_handle_options& options) {
  auto* runtime = new (std::nothrow) kvt_runtime{};
  if (!runtime) return nullptr;
  runtime->store = store;
  runtime->name = name;
  runtime->tracking.tag = static_cast<std::uint32_t>(options.tracking);
  kvt_handle* h = &runtime->handle;
  h->mode = options.mode >= 0 ? static_cast<std::uint32_t>(options.mode) : store->is_private() ? 0 : 1;
  h->default_txn = store->is_private() ? 0 : KVT_NO_TXN;
  h->registry_alloc = registry_alloc;
  h->store_alloc = store_alloc;
  h->store_free = store_free;
  h->set_range = store->is_private() ? kvt_set_range_private : set_range;
  h->set_counter = set_counter;
  h->key_put = key_put;
  h->key_get = key_get;
  h->store = h->registry = h->registry_pool = store;
  if (options.domain_name) std::snprintf(h->domain_name, sizeof h->domain_name, "%s", options.domain_name);
  h->db_name = runtime->name.c_str();
  h->sttr = options.tracking ? &runtime->tracking : nullptr;
  h->hd_mapping = &store->roots()->sides;
  h->db_stats = &store->roots()->stats;
  h->containment = options.containment;
  h->runtime = runtime;
  if (options.tenant) thread_tenant = options.tenant;
  return h;
}

kvt_handle_options options_or_default(const kvt_handle_options* given) {
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  return given ? *given : options;
}

void clear_message(const kvt_handle_options& options) {
  if (options.message && options.message_size) options.message[0] = '\0';
}

// Gives the store the key of the file. 0, or an error with the message filled in.
int open_key(Store* store, const char* path, const kvt_handle_options& options) {
  KeyFileRequest request = {path, options.create && !options.snapshot, options.message, options.message_size};
  Database* database = store->database();
  const bool replace = options.replace_key && !options.snapshot;
  if (database) {
    // A new key in the place of a lost one would hide the loss, and the old file could not come back.
    if (database->has_key()) request.create = replace;
  }
  int err = 0;
  KeyHold key = key_file_open(request, &err);
  if (!key) return err;
  if (database && !database->adopt_key(*key, replace))
    return key_file_fail(request, EKEYREJECTED, "does not hold the key of the database");
  store->set_key(std::move(key));
  return 0;
}

Database* database_of(kvt_handle* handle) { return handle->runtime->store->database(); }

bool has_open(kvt_handle* handle, std::uint32_t txn) {
  const kvt_runtime* runtime = handle->runtime;
  if (const Database* database = runtime->store->database()) {
    return database->writer() == runtime->store && database->txn() == txn;
  }
  return runtime->txn_open && runtime->txn_last == txn;
}

void end_private(kvt_handle* handle) {
  handle->runtime->txn_open = false;
  handle->default_txn = 0;
}

}  // namespace
}  // namespace kvt

using kvt::Database;
using kvt::Store;

void kvt_handle_options_init(kvt_handle_options* options) {
  *options = {};
  options->mode = -1;
  options->slot = -1;
}

kvt_handle* kvt_handle_open_private(const kvt_handle_options* given, int* err) {
  const kvt_handle_options options = kvt::options_or_default(given);
  kvt::clear_message(options);
  Store* store = Store::make_private();
  *err = !store ? ENOMEM : options.key_file ? kvt::open_key(store, options.key_file, options) : 0;
  kvt_handle* handle = *err ? nullptr : kvt::make_handle(store, "private", options);
  if (!*err && !handle) *err = ENOMEM;
  if (store && !handle) store->destroy();
  return handle;
}

kvt_handle* kvt_handle_open_database(const char* path, const kvt_handle_options* given, int* err) {
  const kvt_handle_options options = kvt::options_or_default(given);
  kvt::clear_message(options);
  *err = 0;
  const kvt::Durability durability =
      options.durability == KVT_DURABILITY_MACHINE ? kvt::kMachineDurability : kvt::kProcessDurability;
  Store* store = Database::open({path, options.create != 0, options.snapshot != 0, options.slot, options.message,
                                 options.message_size, durability},
                                err);
  if (!store) return nullptr;
  const std::string key_file = options.key_file ? options.key_file : std::string(path) + ".key";
  *err = kvt::open_key(store, key_file.c_str(), options);
  kvt_handle* handle = *err ? nullptr : kvt::make_handle(store, path, options);
  if (!*err && !handle) *err = ENOMEM;
  if (!handle) store->destroy();
  return handle;
}

void kvt_handle_close(kvt_handle* handle) {
  if (!handle) return;
  kvt_runtime* runtime = handle->runtime;
  Database* database = runtime->store->database();
  if (database && database->writer() == runtime->store) database->abort();
  runtime->store->destroy();
  std::free(runtime->workspace);
  delete runtime;
}

void kvtlib_get_handle_ws(kvt_handle* handle, uint8_t** buffer, int32_t* length) {
  kvt_runtime* runtime = handle->runtime;
  const int32_t wanted = std::max(*length, kvt::kWorkspaceBytes);
  if (wanted > runtime->workspace_length) {
    // What it held is nobody's any more.
    if (void* larger = std::malloc(static_cast<std::size_t>(wanted))) {
      std::free(runtime->workspace);
      runtime->workspace = static_cast<uint8_t*>(larger);
      runtime->workspace_length = wanted;
    }
  }
  *buffer = runtime->workspace;
  *length = runtime->workspace_length;
}

uint32_t kvtdb_txn_begin(kvt_handle* handle, int* err) {
  if (*err) return KVT_NO_TXN;
  kvt_runtime* runtime = handle->runtime;
  uint32_t txn = KVT_NO_TXN;
  int error = 0;
  if (Database* database = kvt::database_of(handle)) {
    error = database->begin(runtime->store, handle, &txn);
  } else if (runtime->txn_open) {
    error = EDEADLK;
  } else {
    if (++runtime->txn_last == KVT_NO_TXN) runtime->txn_last = 1;
    txn = runtime->txn_last;
    runtime->txn_open = true;
  }
  if (error) {
    kvt_store_epoch_err(handle, error, err);
    return KVT_NO_TXN;
  }
  handle->default_txn = txn;
  return txn;
}

void kvtdb_txn_commit(kvt_handle* handle, uint32_t txn, int* err) {
  if (*err) return;
  if (!kvt::has_open(handle, txn)) return kvt_store_epoch_err(handle, EINVAL, err);
  if (handle->runtime->raising) return kvt_store_epoch_err(handle, EDEADLK, err);
  kvtlib_oid_settle(handle, txn);
  Database* database = kvt::database_of(handle);
  if (!database) return kvt::end_private(handle);
  const int32_t last_error = handle->last_error;
  handle->runtime->raising = true;
  database->raise_events(handle);
  kvtlib_oid_settle(handle, txn);
  database->record_changes();
  handle->runtime->raising = false;
  handle->last_error = last_error;
  handle->default_txn = KVT_NO_TXN;
  if (const int error = database->commit()) kvt_store_epoch_err(handle, error, err);
}

void kvtdb_txn_abort(kvt_handle* handle, uint32_t txn, int* err) {
  if (!kvt::has_open(handle, txn)) {
    if (!*err) kvt_store_epoch_err(handle, EINVAL, err);
    return;
  }
  if (handle->runtime->raising) {
    if (!*err) kvt_store_epoch_err(handle, EDEADLK, err);
    return;
  }
  Database* database = kvt::database_of(handle);
  if (!database) return kvt::end_private(handle);
  handle->default_txn = KVT_NO_TXN;
  database->abort();
}

uint32_t kvtdb_savepoint(kvt_handle* handle, uint32_t txn, int* err) {
  if (*err) return 0;
  Database* database = kvt::database_of(handle);
  const int error = !kvt::has_open(handle, txn) ? EINVAL : !database ? EOPNOTSUPP : 0;
  if (!error) return database->savepoint();
  kvt_store_epoch_err(handle, error, err);
  return 0;
}

void kvtdb_rollback_to(kvt_handle* handle, uint32_t txn, uint32_t mark, int* err) {
  Database* database = kvt::database_of(handle);
  const int error = !kvt::has_open(handle, txn)     ? EINVAL
                    : !database                     ? EOPNOTSUPP
                    : !database->roll_back_to(mark) ? EINVAL
                                                    : 0;
  if (error && !*err) kvt_store_epoch_err(handle, error, err);
}

int kvtlib_database_is_write_locked(kvt_handle* handle) { return handle->runtime->store->can_write(); }

uint64_t kvtlib_database_serial(kvt_handle* handle) { return handle->runtime->store->serial(); }

int kvtlib_database_in_range(kvt_handle* handle, const void* address) {
  return handle->runtime->store->in_range(address);
}

void mt_set_tenant_id(uint16_t given) { kvt::thread_tenant = given; }

uint16_t mt_get_tenant_id(void) { return kvt::thread_tenant; }

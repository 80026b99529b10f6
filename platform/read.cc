// The calls of kvt/read.h.
#include "kvt/read.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kvt/primitives.h"
#include "platform/avl_node.h"
#include "platform/database.h"
#include "platform/handle.h"

using kvt::Database;
using kvt::Store;

namespace {

Store* store_of(const kvt_handle* handle) { return handle->runtime->store; }

}  // namespace

uint32_t kvtdb_read_begin(kvt_handle* handle, int* err) {
  Store* store = store_of(handle);
  Database* database = store->database();
  constexpr uint32_t kNever = 1;  // no section has this one as a valid generation
  if (*err || !database) return *err ? kNever : 0;
  uint32_t generation = kNever;
  if (!database->read_begin(store, &generation)) kvt_store_epoch_err(handle, EAGAIN, err);
  return generation;
}

int kvtdb_read_valid(kvt_handle* handle, uint32_t generation) {
  const Database* database = store_of(handle)->database();
  return !database || database->read_valid(generation);
}

int kvtdb_read_end(kvt_handle* handle, uint32_t generation) {
  Store* store = store_of(handle);
  Database* database = store->database();
  if (!database) return 1;
  const bool valid = database->read_valid(generation);
  database->read_end(store);
  return valid;
}

int64_t kvtdb_read_text(kvt_handle*, const void* field, char* buffer, size_t size) {
  const auto text = field ? kvt::load<kvt_vstring>(field) : kvt_vstring{};
  const std::size_t length = text.text ? text.length : 0;
  if (length && !kvt::Reach(field).has(text.text, length)) return -1;
  const std::size_t copied = size ? std::min(length, size - 1) : 0;
  if (copied) std::memcpy(buffer, kvt::cage_at(text.text), copied);
  if (size) buffer[copied] = 0;
  return static_cast<int64_t>(length);
}

int kvtdb_last_recovery(kvt_handle* handle, kvt_recovery* out) {
  const kvt_recovery& found = store_of(handle)->recovery();
  if (out && found.process) *out = found;
  return found.process != 0;
}

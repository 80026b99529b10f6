// Cursors over the changes of a table, and the destruction of records that waits for them. A table has one queue of
// changes, oldest first; a cursor is a place in it. What all cursors have passed leaves the queue, and a record that
// was to be destroyed goes then.
#include <cerrno>
#include <new>

#include "platform/handle.h"
#include "platform/registry.h"
#include "platform/store_blocks.h"
#include "platform/table_blocks.h"
#include "platform/tenant.h"

namespace kvt {
namespace {

template <class T>
T* at(std::uint32_t reference) {
  return static_cast<T*>(cage_at(reference));
}
Store& store_of(kvt_handle* handle) { return *handle->runtime->store; }
std::uint32_t& queue_word(void* table) { return static_cast<TableObject*>(table)->queue; }
Queue* queue_of(void* table) { return at<Queue>(queue_word(table)); }

// All changes of one call are refused alike where the store may not be written, so the first refusal is the answer.
struct Writer {
  kvt_handle* handle;
  std::uint32_t txn;
  template <class T>
  void put(T* where, T value) const {
    store_announced(handle, txn, where, value);
  }
  template <class T>
  T* make(T value) const {
    void* room = store_of(handle).alloc(txn, sizeof(T));
    return room ? new (room) T(value) : nullptr;
  }
};

bool may_write(kvt_handle* handle, int* err) {
  if (*err) return false;
  if (store_of(handle).can_write()) return true;
  kvt_store_epoch_err(handle, EPERM, err);
  return false;
}

void enqueue(const Writer& w, void* table, void* record, std::uint32_t kind, int* err) {
  Queue* queue = queue_of(table);
  Change* change = w.make(Change{0, cage_ref(record), queue->next_number, kind, 0});
  if (!change) return kvt_store_epoch_err(w.handle, ENOMEM, err);
  w.put(queue->last ? &at<Change>(queue->last)->next : &queue->first, cage_ref(change));
  w.put(&queue->last, cage_ref(change));
  w.put(&queue->next_number, queue->next_number + 1);
}

void destroy_record(kvt_handle* handle, std::uint32_t txn, void* record, kvt_record_destroy destroy, int* err) {
  const std::uint32_t before = handle->gc_active;
  handle->gc_active = 1;
  destroy(handle, txn, record, err);
  handle->gc_active = before;
}

// What the record's type does with a record whose time has come; the process that asked for it may be gone.
void destroy_by_type(kvt_handle* handle, std::uint32_t txn, void* record) {
  int err = 0;
  const kvt_type_record* type = kvt_get_manifested_type_info(record, &err);
  const kvt_static_type* known = type ? static_type_of(type) : nullptr;
  if (!known || !known->destroy) return;  // of a module that isn't loaded here: it keeps waiting
  const std::uint32_t before = handle->gc_active;
  const std::uint16_t reader = thread_tenant;
  handle->gc_active = 1;
  mt_set_tenant_id(static_cast<const RecordBlock*>(record)->tenant_id);  // its counters, whoever was the last to read
  known->destroy(handle, txn, record, 1);
  mt_set_tenant_id(reader);
  handle->gc_active = before;
}

bool destroyable_here(void* record) {
  int err = 0;
  const kvt_type_record* type = kvt_get_manifested_type_info(record, &err);
  const kvt_static_type* known = type ? static_type_of(type) : nullptr;
  return known && known->destroy;
}

// Drops the changes that every cursor has left behind.
void prune(const Writer& w, void* table) {
  for (;;) {
    Queue* queue = queue_of(table);
    Change* oldest = queue ? at<Change>(queue->first) : nullptr;
    if (!oldest) return;
    for (const Cursor* c = at<Cursor>(queue->cursors); c; c = at<Cursor>(c->next)) {
      if (c->number <= oldest->number) return;
    }
    void* record = oldest->kind == KVT_CHANGE_DESTROY ? cage_at(oldest->record) : nullptr;
    if (record && !destroyable_here(record)) return;
    w.put(&queue->first, oldest->next);
    if (!oldest->next) w.put(&queue->last, 0u);
    store_of(w.handle).free(w.txn, oldest);
    if (record) destroy_by_type(w.handle, w.txn, record);
  }
}

}  // namespace
}  // namespace kvt

using namespace kvt;

void* kvtdb_cursor_open(kvt_handle* handle, uint32_t txn, void* table, uint32_t implicit_write, int* err) {
  if (!may_write(handle, err)) return nullptr;
  const Writer w{handle, txn};
  Queue* queue = queue_of(table);
  if (!queue) {
    queue = w.make(Queue{});
    if (queue) w.put(&queue_word(table), cage_ref(queue));
  }
  Cursor* cursor =
      queue ? w.make(Cursor{queue->cursors, cage_ref(table), queue->next_number, implicit_write != 0, 0}) : nullptr;
  if (!cursor) {
    kvt_store_epoch_err(handle, ENOMEM, err);
    return nullptr;
  }
  w.put(&queue->cursors, cage_ref(cursor));
  return cursor;
}

void* kvtdb_cursor_next(kvt_handle* handle, uint32_t txn, void* place, int* kind, int* err) {
  if (!may_write(handle, err)) return nullptr;
  const Writer w{handle, txn};
  auto* cursor = static_cast<Cursor*>(place);
  void* table = cage_at(cursor->table);
  if (cursor->given) {
    w.put(&cursor->given, 0u);
    w.put(&cursor->number, cursor->number + 1);
    prune(w, table);
  }
  for (const Change* change = at<Change>(queue_of(table)->first); change; change = at<Change>(change->next)) {
    if (change->number < cursor->number) continue;
    if (change->kind == KVT_CHANGE_INSERT && !cursor->implicit_write) {
      w.put(&cursor->number, change->number + 1);
      continue;
    }
    w.put(&cursor->number, change->number);
    w.put(&cursor->given, 1u);
    *kind = static_cast<int>(change->kind);
    return cage_at(change->record);
  }
  return nullptr;
}

void kvtdb_cursor_close(kvt_handle* handle, uint32_t txn, void* place, int* err) {
  if (!may_write(handle, err)) return;
  const Writer w{handle, txn};
  auto* cursor = static_cast<Cursor*>(place);
  void* table = cage_at(cursor->table);
  Queue* queue = queue_of(table);
  uint32_t* link = &queue->cursors;
  while (*link && *link != cage_ref(cursor)) link = &at<Cursor>(*link)->next;
  if (!*link) return kvt_store_epoch_err(handle, ENOENT, err);
  w.put(link, cursor->next);
  store_of(handle).free(txn, cursor);
  prune(w, table);
  if (queue->cursors || queue->first) return;
  w.put(&queue_word(table), 0u);
  store_of(handle).free(txn, queue);
}

int kvtdb_table_are_cursors_enabled(kvt_handle*, uint32_t, void* table, int* err) {
  if (*err || !table) return 0;
  const Queue* queue = queue_of(table);
  return queue && queue->cursors != 0;
}

int kvtdb_table_implicit_write_cursor_enabled(kvt_handle*, uint32_t, void* table, int* err) {
  const Queue* queue = *err || !table ? nullptr : queue_of(table);
  for (const Cursor* c = queue ? at<Cursor>(queue->cursors) : nullptr; c; c = at<Cursor>(c->next)) {
    if (c->implicit_write) return 1;
  }
  return 0;
}

void kvtdb_enq_rec_move_write_cursor_internal(kvt_handle* handle, uint32_t txn, void* table, void* record, int* err) {
  if (may_write(handle, err) && queue_of(table)) enqueue({handle, txn}, table, record, KVT_CHANGE_INSERT, err);
}

void kvtdb_request_record_destroy(kvt_handle* handle, uint32_t txn, void* record, kvt_record_destroy destroy,
                                  int* err) {
  if (!may_write(handle, err)) return;
  const Writer w{handle, txn};
  uint32_t* flags = &static_cast<RecordBlock*>(record)->record_flags;
  void* table = cage_at(static_cast<const RecordBlock*>(record)->table);
  if (*flags & kRecordPending) return;
  const bool waits = kvtdb_table_are_cursors_enabled(handle, txn, table, err);
  if (waits) enqueue(w, table, record, KVT_CHANGE_DESTROY, err);
  if (*err) return;
  w.put(flags, *flags | kRecordPending);
  uint32_t* pending = &static_cast<TableObject*>(table)->pending_destroy_count;
  w.put(pending, *pending + 1);
  if (handle->db_stats) w.put(&handle->db_stats->pending_destroy, handle->db_stats->pending_destroy + 1);
  if (!waits) destroy_record(handle, txn, record, destroy, err);
}

// The word is the runtime's, and nothing here gives a record one that counts.
void kvtlib_record_dereference_loc(kvt_handle* handle, uint32_t txn, void* record, int* err) {
  if (!*err) store_announced(handle, txn, &static_cast<RecordBlock*>(record)->location, uint32_t{0});
}

/// @file events.h
/// Changes of records: what a table's module tells the runtime of them, and the feed in which a database keeps those
/// that were committed, for readers in any process. See docs/design/events.md.
#ifndef KVT_EVENTS_H
#define KVT_EVENTS_H

#include "kvt/type_record.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  KVT_RECORD_CREATED = 1,   ///< it entered its table
  KVT_RECORD_MODIFIED = 2,  ///< its payload, a field of it, or its grade of membership changed
  KVT_RECORD_DELETED = 3,   ///< it left its table
  KVT_RECORDS_MISSED = 4    ///< of a feed only: changes that its reader cannot have any more
};

/// What the runtime needs of a table to tell of its records. Called with the write lock held.
typedef struct kvt_record_events {
  /// Not 0 if the process has a handler for an event of the table.
  int (*heard)(void);
  /// Calls the table's callback for a change of that kind; `err` gets the handler's error.
  void (*raise)(kvt_handle* handle, uint32_t txn, uint32_t kind, void* table, void* record, int* err);
  /// Writes the binary form of a payload's primary key if `room` bytes at `buffer` hold it. @return its length
  uint32_t (*key)(kvt_handle* handle, const void* payload, uint8_t* buffer, uint32_t room);
} kvt_record_events;

/// A number that changes whenever the process loads or unloads a shared object.
KVT_EXPORT uint64_t kvt_objects_loaded(void);

enum { KVT_CHANGE_KEY_BYTES = 256 };

/// One change of a feed.
typedef struct kvt_change {
  uint64_t number;  ///< of the change; of KVT_RECORDS_MISSED: of the first that was missed
  uint64_t missed;  ///< of KVT_RECORDS_MISSED: how many; a transaction during which nobody watched counts as one
  uint64_t time;    ///< of the commit, nanoseconds since 1970
  uint32_t kind;
  uint32_t txn;                 ///< changes of one transaction have the same, and stand together
  const kvt_type_record* type;  ///< of the record; NULL if this process has no such type
  uint32_t table, record;       ///< references, to compare with: what they lead to may be something else by now
  uint16_t tenant;
  uint8_t source;
  uint32_t key_length;                ///< bytes of the primary key in binary form
  uint8_t key[KVT_CHANGE_KEY_BYTES];  ///< its first bytes, mostly all of them
} kvt_change;

/// A reader of a database's feed of committed changes, of all processes.
typedef struct kvt_watch kvt_watch;

#define KVT_WATCH_FROM_NOW 0u
#define KVT_WATCH_FROM_OLDEST UINT64_MAX

/// Opens a reader before the change number `position` (KVT_WATCH_FROM_NOW: behind the newest; KVT_WATCH_FROM_OLDEST:
/// before the oldest that is kept). While a reader is open, in whatever process, every writer keeps its changes; no
/// writer waits for a reader, and what a slow one has not read by the time its place is needed is missed. The reader
/// uses the handle's database, and is closed before the handle; it belongs to one thread at a time. Takes no lock.
/// @param err sticky. EINVAL: a private store, or a position behind the newest change; what open(2) and
///   inotify_init1(2) give, ENOMEM
/// @return the reader, to be given to kvtdb_watch_close; NULL on error
KVT_EXPORT kvt_watch* kvtdb_watch_open(kvt_handle* handle, uint64_t position, int* err);
/// The next change in the order of commits. Never waits.
/// @return 1 and the change; 0 when there is none yet
KVT_EXPORT int kvtdb_watch_next(kvt_watch* watch, kvt_change* change);
/// A descriptor that becomes readable after a commit; poll(2) it when kvtdb_watch_next has nothing. It may become
/// readable without a change. The reader's own: not to be read or closed.
KVT_EXPORT int kvtdb_watch_fd(const kvt_watch* watch);
/// The number of the change that comes next: a position to open another reader at.
KVT_EXPORT uint64_t kvtdb_watch_position(const kvt_watch* watch);
/// NULL is accepted.
KVT_EXPORT void kvtdb_watch_close(kvt_watch* watch);

#ifdef __cplusplus
}
#endif
#endif

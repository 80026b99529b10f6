/// @file care.h
/// Care for a database: looking it through, mending it, copying it. All of it works while other processes use the file:
/// each call takes the write lock for as long as it runs (readers go on), and first brings back the last committed
/// state if the last writer died.
#ifndef KVT_CARE_H
#define KVT_CARE_H

#include "kvt/handle.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Takes one line about the database, without a line end.
typedef void (*kvt_care_line)(void* argument, const char* line);

/// Looks every structure of the database through and holds it against the others: allocator, lists, tables, records,
/// trees and their order, counts, texts, identities and references, names. Nothing is changed, and nothing that stands
/// in the file is trusted: a damaged file gives lines, not a crash.
/// @param line gets each fault: what is wrong, and where. May be NULL
/// @param err sticky. EINVAL: not over a database; EDEADLK: a transaction of this thread is open; EIO: header or undo
///   log are damaged, so that no writer is let in; ENOMEM; and what locking the file gives
/// @return the number of faults
KVT_EXPORT uint32_t kvtdb_check(kvt_handle* handle, kvt_care_line line, void* argument, int* err);

/// Mends what can be told from the rest: trees and counts are made anew from the records that are whole, free memory
/// from the chunks. A text that is lost leaves its field empty, and a record whose objects are not right is taken out
/// of its table; both are said. All in one transaction: a failure changes nothing.
/// @param line gets each thing mended or given up
/// @param err as kvtdb_check; ENOMEM: no room to mend in
/// @return the number of faults that are left
KVT_EXPORT uint32_t kvtdb_repair(kvt_handle* handle, kvt_care_line line, void* argument, int* err);

/// Copies the last committed state into a new file of mode 0600, which is on the disk when the call returns. Secrets
/// stay sealed under the database's key; the key file is not copied.
/// @param err sticky. As kvtdb_check; EEXIST: the name is taken; ENOSPC and what the system gives
KVT_EXPORT void kvtdb_backup(kvt_handle* handle, const char* path, int* err);

/// Brings back the state of a backup of this database, as one transaction: everybody who has the file open goes on with
/// it. Registered types and their counters stay as they are now.
/// @param err sticky. As kvtdb_check; EINVAL: the file is no database, or a backup of another one; EFBIG: the undo log
///   has no room for it; `message` gets the reason in words, and may be NULL
KVT_EXPORT void kvtdb_restore(kvt_handle* handle, const char* path, char* message, size_t size, int* err);

/// Gives the space behind the last used segment, and undo log beyond the usual, back to the file system.
/// @return bytes given back
KVT_EXPORT uint64_t kvtdb_compact(kvt_handle* handle, int* err);

/// Changes what the commits of a database survive, from now on and for everybody who has it open. See
/// docs/design/durability.md.
/// @param durability KVT_DURABILITY_*
/// @param err sticky. As kvtdb_check; EINVAL: no such durability; what the disk gives, and nothing has changed then
KVT_EXPORT void kvtdb_set_durability(kvt_handle* handle, int durability, int* err);

/// What a database holds, in bytes where nothing else is said.
typedef struct kvtdb_info {
  uint32_t format;  ///< version
  uint32_t slot;
  uint64_t file, limit;  ///< size now, and what it may grow to
  uint64_t heap_used, heap_free, log, permanent;
  uint32_t blocks;  ///< in use, of the heap
  uint32_t tables, records;
  uint32_t transactions;  ///< the number of the last one
  uint64_t key_id;        ///< of the key that secrets are sealed under; 0: none yet
  int durability;         ///< KVT_DURABILITY_PROCESS or KVT_DURABILITY_MACHINE
} kvtdb_info;
/// Fills in `info`. @param err as kvtdb_check
KVT_EXPORT void kvtdb_get_info(kvt_handle* handle, kvtdb_info* info, int* err);

#ifdef __cplusplus
}
#endif
#endif

/// @file handle.h
/// The runtime handle: what every operation takes first. All members above the line are plain and may be replaced by a
/// caller, one by one; a caller's own store does it that way, and so do tests that count or refuse.
#ifndef KVT_HANDLE_H
#define KVT_HANDLE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KVT_EXPORT __attribute__((visibility("default")))
#else
#define KVT_EXPORT
#endif

typedef struct kvt_handle kvt_handle;
typedef struct kvt_runtime kvt_runtime;  ///< the runtime's own part of a handle

/// The write context that says that there is none.
#define KVT_NO_TXN 0xFFFFFFFFu

/// Tags of the state-tracking descriptor.
enum { KVT_STTR_ON = 0xEEEE, KVT_STTR_OFF = 0xDDDD };

/// The state-tracking descriptor; only the tag is read.
typedef struct kvt_sttr_descriptor {
  uint32_t tag;  ///< KVT_STTR_ON or KVT_STTR_OFF; anything else stops the process
} kvt_sttr_descriptor;

/// The domain descriptor. Its content belongs to the runtime; see kvt_domain_set_variant.
typedef struct kvt_domain {
  void* rules;
} kvt_domain;

/// The database's statistics block.
typedef struct kvt_db_stats {
  uint64_t pending_destroy;  ///< records of all tables that wait for their destruction
  uint64_t reserved[7];
} kvt_db_stats;

/// Bits of an object's flag byte.
enum {
  KVT_OBJ_OID_MAPPED = 0x01,
  KVT_OBJ_EMBEDDED = 0x02,
  KVT_OBJ_NESTED = 0x04,
  KVT_OBJ_STATE_TRACKED = 0x08,
  KVT_OBJ_RA_DATA = 0x20,
  KVT_OBJ_STTR_OFFSET = 0x40,
  KVT_OBJ_TYPE_LINK_OWNED = 0x80
};

struct kvt_handle {
  uint32_t mode;         ///< 0 private; 1 database with marks; other values: database without marks
  uint32_t default_txn;  ///< the write context of the `_cr` calls
  void* (*registry_alloc)(void* registry_pool, uint32_t txn, uint32_t size);
  void* (*store_alloc)(void* store, uint32_t txn, uint32_t size);  ///< 8-aligned, in the cage; NULL when exhausted
  void (*store_free)(void* store, uint32_t txn, void* address);
  /// Announces that `length` bytes at `address` are about to be written. @return 1, or 0 when refused
  int (*set_range)(kvt_handle* handle, void* address, uint32_t length, uint32_t txn, void* owner);
  /// Announces that the 64-bit counter at `address` is about to grow by `amount`.
  int (*set_counter)(kvt_handle* handle, void* address, uint64_t amount, uint32_t txn);
  int (*key_put)(void* keystore, uint32_t txn, const char* key, void* value);  ///< not 0: bound
  void* (*key_get)(void* keystore, uint32_t txn, const char* key);             ///< NULL: not bound
  void* store;
  void* registry;
  void* registry_pool;
  uint32_t gc_active;
  char domain_name[64];
  uint32_t message_word;
  kvt_domain domain;
  int32_t last_error;
  const char* db_name;
  uint32_t quiet_duplicates;
  uint32_t cr_create;
  kvt_sttr_descriptor* sttr;
  void* hd_mapping;
  kvt_db_stats* db_stats;  ///< may be NULL
  uint32_t containment;
  /* The runtime's own. */
  kvt_runtime* runtime;
};

/// The `set_range` of a handle over a private store, where nothing needs to be announced: it does nothing and gives 1.
/// A caller that finds it in a handle may leave the call out.
KVT_EXPORT int kvt_set_range_private(kvt_handle* handle, void* address, uint32_t length, uint32_t txn, void* owner);

/// What a committed transaction of a database survives.
enum {
  KVT_DURABILITY_DEFAULT = 0,  ///< as KVT_DURABILITY_PROCESS
  KVT_DURABILITY_PROCESS = 1,  ///< the death of processes at any instruction
  KVT_DURABILITY_MACHINE = 2   ///< the loss of power too, as far as the disk keeps what it has acknowledged
};

/// How a handle is made.
typedef struct kvt_handle_options {
  int tracking;             ///< 0 absent (no descriptor), KVT_STTR_ON or KVT_STTR_OFF
  uint32_t containment;     ///< not 0: reads and writes are reported to the observer
  uint16_t tenant;          ///< becomes the calling thread's tenant when not 0
  int mode;                 ///< -1: 0 for a private store, 1 for a database
  int create;               ///< make the database's file, and the key file, if they are not there
  int slot;                 ///< database only, at creation: 0..KVT_DATABASE_SLOTS-1, or -1 for any that is free
  const char* domain_name;  ///< may be NULL
  const char* key_file;     ///< key for secrets; NULL: for a database "<path>.key", else a random key of this process
  int replace_key;          ///< database only: take the key file's key although the database has another one, which may
                            ///< be lost; a missing file is made. Older secrets stay as they are
  int snapshot;             ///< database only: a copy of its last committed state in memory of the process, see below
  char* message;            ///< may be NULL; receives one line of text when an open fails
  size_t message_size;      ///< bytes at `message`
  int durability;           ///< database only, at creation: KVT_DURABILITY_*
} kvt_handle_options;

enum { KVT_DATABASE_SLOTS = 10 };

/// Fills in the defaults: tracking absent, containment off, tenant 0, mode -1, no create, any slot.
KVT_EXPORT void kvt_handle_options_init(kvt_handle_options* options);
/// Opens a handle over a private store of its own.
/// @param options may be NULL for the defaults
/// @param err out: ENOMEM; with a key file its errors as below
/// @return the handle, to be given to kvt_handle_close; NULL on error
KVT_EXPORT kvt_handle* kvt_handle_open_private(const kvt_handle_options* options, int* err);
/// Opens a handle over the database in the file `path`. Several handles, threads and processes may have one file open;
/// each handle belongs to one thread at a time.
/// @param err out: ENOENT no such file and no `create`; EINVAL the file is no database, of another format version or
///   cut short, or the key file holds no key; EBUSY its slot is taken by another database in this process; EACCES
///   database or key file belong to another user or are open to others, the key file is a link, or the database's name
///   is one in a folder that everybody may write to; EKEYREJECTED the key file holds another key than the database's;
///   ENOSPC, ENOMEM and what open(2) gives. `options->message` gets the reason in
///   words.
///
/// With `options->snapshot` the handle reads a copy that stays as it is. The file must be there; neither it nor its key
/// is made or changed. The copy is taken beside a writer, also while its transaction is open or after it died in one;
/// only where transactions end faster than the file can be copied they wait for that; EACCES where that would be needed
/// and the file may not be written. A snapshot takes the slot of its database, so that a process cannot have both open
/// (EBUSY), and as much memory as the file holds. EIO: the file is damaged.
KVT_EXPORT kvt_handle* kvt_handle_open_database(const char* path, const kvt_handle_options* options, int* err);
/// Closes a handle; an open transaction is aborted. A private store gives back all its memory. The key that the handle
/// brought is wiped unless another handle has it too. NULL is accepted.
KVT_EXPORT void kvt_handle_close(kvt_handle* handle);

/// Takes the write lock of the handle's database and begins a transaction. On a private store there is neither lock nor
/// undo, and the call only hands out a write context.
/// @return the write context, never KVT_NO_TXN on success
/// @param err sticky. EDEADLK: this handle, or another one of this thread, has a transaction open already; EIO: the
///   database's header or undo log is damaged; EROFS: the handle is over a snapshot
KVT_EXPORT uint32_t kvtdb_txn_begin(kvt_handle* handle, int* err);
/// Makes the transaction's stores last and releases the write lock. Before that, handlers of the process hear of the
/// records that changed (see docs/design/events.md).
/// @param err sticky. EINVAL: no such transaction; EDEADLK: called by such a handler; ENOSPC: the undo log could not
///   grow in the transaction, which shows by allocations that failed, and all of it has been taken back; EIO and what
///   fdatasync(2) gives, with KVT_DURABILITY_MACHINE only: the disk did not take it. Other processes then see either
///   all of it or nothing, and which of the two is left after a loss of power is not known
KVT_EXPORT void kvtdb_txn_commit(kvt_handle* handle, uint32_t txn, int* err);
/// Brings back every byte that was announced in the transaction and releases the write lock. Works with `*err` set, and
/// leaves it as it is; EINVAL (no such transaction) and EDEADLK (called by a handler) are stored only in a clear slot.
KVT_EXPORT void kvtdb_txn_abort(kvt_handle* handle, uint32_t txn, int* err);

/// Marks the present state of the open transaction, to come back to. On a private store nothing can be taken back.
/// @return the mark, from 1 upward in each transaction; 0 on error
/// @param err sticky. EINVAL: no such transaction; EOPNOTSUPP: a private store
KVT_EXPORT uint32_t kvtdb_savepoint(kvt_handle* handle, uint32_t txn, int* err);
/// Brings back every byte that was announced since the mark, as an abort does; the transaction stays open and the mark
/// stays good. Marks that were made after it are void. Works with `*err` set, and leaves it as it is; EINVAL (no such
/// transaction or mark) and EOPNOTSUPP are stored only in a clear slot.
KVT_EXPORT void kvtdb_rollback_to(kvt_handle* handle, uint32_t txn, uint32_t mark, int* err);

/// The reference (see docs/design/cage.md) of an address in the cage; 0 for NULL.
KVT_EXPORT uint32_t kvt_ref_of(const void* pointer);
/// The address that a reference stands for; NULL for 0.
KVT_EXPORT void* kvt_ref_at(uint32_t reference);
/// Memory in the cage for a caller's own store: 8-aligned, not zeroed. NULL when exhausted.
KVT_EXPORT void* kvt_cage_alloc(size_t size);
/// Gives back what kvt_cage_alloc gave. NULL is accepted.
KVT_EXPORT void kvt_cage_free(void* pointer);

/// What a handle lets the domain use. `record` is a static type record.
struct kvt_type_record;
/// Limits the objects of a type to `variant` (negative: the type isn't allowed) in this handle's domain. 0, or ENOMEM.
KVT_EXPORT int kvt_domain_set_variant(kvt_handle* handle, const struct kvt_type_record* record, int variant);
/// Allows (not 0) or forbids (0) a table, named by its table type record, in this handle's domain. 0, or ENOMEM.
KVT_EXPORT int kvt_domain_allow_table(kvt_handle* handle, const struct kvt_type_record* record, int allowed);

/// The calling thread's tenant; 0 means none and sees the run of tenant 0.
KVT_EXPORT void mt_set_tenant_id(uint16_t tenant);
KVT_EXPORT uint16_t mt_get_tenant_id(void);

/// Functions that hear what the library tells the runtime. Any may be NULL.
typedef struct kvt_observer {
  void* argument;
  void (*containment)(void* argument, int kind, void* child,
                      void* parent);  ///< kind 0: object; 1, 2, 4: table, record, payload
  void (*dirty)(void* argument, uint32_t txn, void* object);
  void (*destroy)(void* argument, uint32_t txn, void* object);
  void (*detach)(void* argument, uint32_t txn, void* object);
} kvt_observer;
/// Sets the handle's observer (copied); NULL takes it away.
KVT_EXPORT void kvt_observe(kvt_handle* handle, const kvt_observer* observer);

#ifdef __cplusplus
}
#endif
#endif

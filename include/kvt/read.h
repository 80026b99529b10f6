/// @file read.h
/// Reading a database beside its writer. Readers take no lock and never wait: a reader notes the database's generation,
/// reads, and asks whether anything was being changed meanwhile; if so it reads again. Who wants to read at length, or
/// with operations that follow more than a search does, opens a snapshot (`kvt_handle_options.snapshot`).
///
///     int err = 0;
///     uint32_t generation;
///     do {
///       generation = kvtdb_read_begin(handle, &err);
///       record = tbl_wlan_st_wlan_wlan_id_search(handle, KVT_NO_TXN, table, &id, &err);
///       ... copy what is wanted ...
///     } while (!err && !kvtdb_read_end(handle, generation));
///
/// Between begin and end, these never leave the database's memory and always come back, whatever a writer does: opening
/// a table, named keys, search, first, last, next and previous, the walk, counts, `get_field`, reading numbers and
/// enumerated values of a payload, and kvtdb_read_text. What they give is only true when kvtdb_read_valid or
/// kvtdb_read_end says so: a record may be missed, met twice, or hold half of a change. A loop of steps asks
/// kvtdb_read_valid at each step, for a writer that never rests could lead it on for ever. XML, print, marshal, clone,
/// compare and references are not for a section.
///
/// A block that a reader may have met is not given to another use before its section ends. What a section holds back
/// cannot be used by writers, so it should be short, and must end before the generation has changed 2^31 times. A
/// reader that dies in its section holds nothing for long: writers recognise it.
///
/// On a private store and on a snapshot nothing changes beside the reader, and all calls succeed at once.
#ifndef KVT_READ_H
#define KVT_READ_H

#include "kvt/handle.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Begins a section of reading. Sections of one handle may lie in each other. The first one of a handle takes a slot of
/// the database for it, which it keeps until it is closed; there are 63.
/// @param err sticky. EAGAIN: all slots are taken, nothing has begun
/// @return the generation, for the calls below. An odd one: a transaction has changed something and is still open;
///   nothing that is read now will be valid, yet reading is safe. Who meets the same odd one again and again may have
///   come behind a writer that died; every 64th time in a row looks for that and brings the committed state back.
KVT_EXPORT uint32_t kvtdb_read_begin(kvt_handle* handle, int* err);
/// Whether nothing was changed since the section began: what was read so far is one committed state.
KVT_EXPORT int kvtdb_read_valid(kvt_handle* handle, uint32_t generation);
/// Ends the section that was begun last. @return as kvtdb_read_valid
KVT_EXPORT int kvtdb_read_end(kvt_handle* handle, uint32_t generation);
/// Copies the text of a `kvt_vstring` field that a writer may be changing.
/// @param buffer gets at most `size` - 1 bytes and a NUL; may be NULL if `size` is 0
/// @return the length of the whole text; -1: the field leads nowhere, which a valid section never meets
KVT_EXPORT int64_t kvtdb_read_text(kvt_handle* handle, const void* field, char* buffer, size_t size);

/// What a transaction found of the writer before it.
typedef struct kvt_recovery {
  uint32_t process;  ///< the process that died with the write lock
  uint32_t undone;   ///< not 0: it had changed something, and the last committed state was brought back
} kvt_recovery;
/// Whether the writer before the transaction that this handle began last died holding the lock. Beginning it left a
/// trace line of level 6 as well. @param out may be NULL; filled in if so
KVT_EXPORT int kvtdb_last_recovery(kvt_handle* handle, kvt_recovery* out);

#ifdef __cplusplus
}
#endif
#endif

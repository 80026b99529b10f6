// The feed of committed changes: a ring in the first segment of a database, written under the write lock, read without
// one. Positions are byte counts that only grow; the place in the ring is the remainder.
#pragma once

#include <cstdint>

#include "platform/ref.h"

namespace kvt {

inline constexpr std::uint32_t kRingBytes = 0xFF00;

struct ChangeEntry {     // stored format; the key's first bytes follow, filled up to a multiple of 8
  std::uint64_t number;  // 0: nothing up to the end of the ring
  std::uint64_t time;    // nanoseconds since 1970
  std::uint32_t length;  // of the entry
  std::uint32_t txn;
  std::uint32_t type;  // type link of the record's type
  std::uint32_t table;
  std::uint32_t record;
  std::uint32_t key_length;  // of the whole key
  std::uint16_t tenant;
  std::uint8_t source;
  std::uint8_t kind;
  std::uint32_t reserved;
};
STORED_SIZE(ChangeEntry, 48);

struct ChangeRing {  // stored format
  // What readers see. The end of the entries, and the number that the next change gets; the first one kept.
  std::uint64_t end;
  std::uint64_t next;
  std::uint64_t oldest;
  // The same two at a commit, saved by the undo log: what they say is committed when the log is empty. A writer that
  // dies before readers see it leaves that to the next one.
  std::uint64_t ready_end;
  std::uint64_t ready_next;
  std::uint32_t watchers;  // 0: nobody reads, else a number that each new reader changes
  std::uint32_t bell;      // written through the file to wake readers; its value means nothing
  std::uint8_t reserved[208];
  std::uint64_t words[kRingBytes / 8];

  // Of the writer, under the lock. Takes up what the last one left; a head that makes no sense begins anew.
  void settle();
  // Puts an entry behind the last one that is ready.
  void append(ChangeEntry entry, const std::uint8_t* key);
  // Shows readers what is ready.
  void show();
  // A transaction that nobody recorded.
  void skip();

  // Of a reader.
  std::uint64_t first();  // number of the oldest change kept, or of the one to come
  enum class Found { kEntry, kNone, kMissed };
  // What stands at the position `at`, where change `number` is expected: an entry with up to `room` bytes of its key;
  // or nothing yet; or changes are missed up to what is `number` then. Moves both behind it.
  Found read(std::uint64_t* at, std::uint64_t* number, ChangeEntry* entry, std::uint8_t* key, std::uint32_t room);

 private:
  void drop_until(std::uint64_t position);
};
STORED_SIZE(ChangeRing, 0x10000);
STORED_FIELD(ChangeRing, ready_end, 24, std::uint64_t);
STORED_FIELD(ChangeRing, bell, 44, std::uint32_t);

}  // namespace kvt

// The small blocks by which a store finds its tables, names and changes. Stored formats: those who keep them and those
// who look through a database read them alike.
#pragma once

#include <cstdint>

#include "platform/ref.h"

namespace kvt {

struct TocEntry {  // stored format
  std::uint32_t next;
  std::uint32_t table;
};
STORED_SIZE(TocEntry, 8);

struct TenantCounter {  // stored format
  std::uint32_t next;
  std::uint16_t tenant;
  std::uint8_t source;
  std::uint8_t reserved;
  std::uint32_t count;
};
STORED_SIZE(TenantCounter, 12);

struct Queue {  // stored format
  std::uint32_t cursors;
  std::uint32_t first, last;
  std::uint32_t reserved;
  std::uint64_t next_number;
};
STORED_SIZE(Queue, 24);

struct Change {  // stored format
  std::uint32_t next;
  std::uint32_t record;
  std::uint64_t number;
  std::uint32_t kind;
  std::uint32_t reserved;
};
STORED_SIZE(Change, 24);

struct Cursor {  // stored format
  std::uint32_t next;
  std::uint32_t table;
  std::uint64_t number;  // of the first change that it has not left behind
  std::uint32_t implicit_write;
  std::uint32_t given;  // not 0: that change was given out, and is left behind by the next move
};
STORED_SIZE(Cursor, 24);

struct KeyNode {  // stored format; the key's text with its NUL follows
  std::uint32_t next;
  std::uint32_t hash;
  std::uint32_t value;
};
STORED_SIZE(KeyNode, 12);

struct RefMapEntry {  // stored format
  std::uint32_t key;  // 0: empty
  std::uint32_t value;
};
STORED_SIZE(RefMapEntry, 8);

}  // namespace kvt

// The blocks that stand for a table and for a row. Stored formats, shared by the module, the runtime and every process
// of a database.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ref.h"

namespace kvt {

struct TableObject {  // a key's root and state words follow, 8 bytes for each
  std::uint32_t type_record;
  std::uint8_t header[3];  // header-shaped: the last byte holds object flags
  char table_name[208];    // offset 7
  std::uint8_t pad;
  std::uint32_t counters;  // offset 216, list of TenantCounter
  std::uint32_t queue;     // offset 220, a Queue
  std::uint8_t runtime0[20];
  std::uint32_t record_count;           // offset 244
  std::uint32_t pending_destroy_count;  // offset 248
  std::uint8_t runtime1[12];
  std::uint8_t table_id[8];  // offset 264
  std::uint32_t id_mode;     // offset 272
  std::uint32_t toc_next;    // offset 276
  std::uint32_t toc_prev;    // offset 280
  std::uint8_t runtime2[36];
  std::uint32_t init_word;  // offset 320
  std::uint8_t runtime3[36];
  std::uint32_t table_flags;   // offset 360
  std::uint32_t shadow_count;  // offset 364
};
STORED_SIZE(TableObject, 368);
static_assert(offsetof(TableObject, table_name) == 7 && offsetof(TableObject, record_count) == 244);
STORED_FIELD(TableObject, pending_destroy_count, 248, std::uint32_t);
static_assert(offsetof(TableObject, table_id) == 264);
STORED_FIELD(TableObject, id_mode, 272, std::uint32_t);
STORED_FIELD(TableObject, toc_next, 276, std::uint32_t);
STORED_FIELD(TableObject, toc_prev, 280, std::uint32_t);
STORED_FIELD(TableObject, init_word, 320, std::uint32_t);
STORED_FIELD(TableObject, table_flags, 360, std::uint32_t);
STORED_FIELD(TableObject, shadow_count, 364, std::uint32_t);

constexpr std::uint32_t kTableDynamic = 0x80, kTableOnGcList = 0x40, kTocDeferredFree = 0x01;

struct IdRoot {  // one for each table type of a database, under a root key
  std::uint32_t reserved0;
  std::uint32_t id_table_count;
  std::uint64_t next_id;
  std::uint64_t reserved1;
};
STORED_SIZE(IdRoot, 24);
STORED_FIELD(IdRoot, next_id, 8, std::uint64_t);
constexpr std::size_t kTableNameSize = 208;

struct RecordBlock {  // an index node for each key follows, 12 bytes each, then the payload's reference
  std::uint32_t type_record;
  std::uint32_t location;
  std::uint32_t table;
  std::uint8_t runtime0[16];
  std::uint32_t ref_count;  // offset 28; low 24 bits
  std::uint16_t tenant_id;  // offset 32
  std::uint16_t pad0;
  std::uint32_t record_flags;  // offset 36
  std::uint8_t source;         // offset 40
  std::uint8_t runtime1[15];
};
STORED_SIZE(RecordBlock, 56);
STORED_FIELD(RecordBlock, location, 4, std::uint32_t);
STORED_FIELD(RecordBlock, table, 8, std::uint32_t);
STORED_FIELD(RecordBlock, ref_count, 28, std::uint32_t);
STORED_FIELD(RecordBlock, tenant_id, 32, std::uint16_t);
STORED_FIELD(RecordBlock, record_flags, 36, std::uint32_t);
STORED_FIELD(RecordBlock, source, 40, std::uint8_t);

constexpr std::uint32_t kRecordInserted = 0x01, kRecordPending = 0x02, kRecordPrimaryOnly = 0x10,
                        kRecordSideData = 0x20, kRecordKeepInTable = 0x100;
constexpr std::uint32_t kRefCountMask = 0xFFFFFF;
constexpr std::uint8_t kOrdinarySource = 1, kShadowSource = 255;
constexpr std::uint32_t kNodeSize = 12;
}  // namespace kvt

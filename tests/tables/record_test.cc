// Tests of records: what a new one holds, references, payloads in and out, and what a destruction takes along.
#include <algorithm>
#include <utility>

#include "tests/tables/faults.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

class Record : public EveryTable {
 protected:
  const TableOps& type = GetParam();
  Rig rig;
  const kvt_variant_entry* counts() const { return kvt_variant_entries(kvt_varinfo_of(type.row)); }
  void* create() { return type.create(rig, rig.txn(), &rig.err); }
  void destroy(void* record) { type.destroy(rig, rig.txn(), record, &rig.err); }
};

TEST_P(Record, NewOneIsZeroButForItsOwnWords) {
  mt_set_tenant_id(513);
  const std::size_t blocks = rig.live_blocks();
  const std::uint64_t created = counts()->created, destroyed = counts()->destroyed;
  for (const unsigned source : {1u, 2u, 255u}) {
    const unsigned allocations = rig.allocations;
    void* record = source == 1 ? create() : type.create_w_src(rig, rig.txn(), source, &rig.err);
    EXPECT_EQ(rig.allocations, allocations + 1);
    EXPECT_EQ(rig.last_size, type.record_size);
    std::string expected(type.record_size, '\0');
    const std::uint32_t link = kvt_type_link_of(type.row), refs = 1;
    const std::uint16_t tenant = 513;
    std::memcpy(expected.data(), &link, 4);
    std::memcpy(expected.data() + 28, &refs, 4);
    std::memcpy(expected.data() + 32, &tenant, 2);
    expected[40] = static_cast<char>(source);
    EXPECT_EQ(std::string(static_cast<char*>(record), type.record_size), expected);
    EXPECT_EQ(std::memcmp(type.get_luid(rig, rig.txn(), record, &rig.err), type.row->luid, 16), 0);
    EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
  }
  EXPECT_EQ(counts()->created, created + 3);
  EXPECT_EQ(counts()->destroyed, destroyed + 3);
  EXPECT_EQ(rig.live_blocks(), blocks);
  EXPECT_EQ(rig.err, 0);
}

TEST_P(Record, LivesAsLongAsItsReferences) {
  void* record = create();
  EXPECT_EQ(type.add_ref(rig, rig.txn(), record, &rig.err), 1u);
  EXPECT_EQ(type.add_ref(rig, rig.txn(), record, &rig.err), 2u);
  EXPECT_EQ(record_refs(record), 3u);
  EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 2u);
  rig.err = 5;
  EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
  EXPECT_EQ(rig.take_error(), 5);
  EXPECT_EQ(record_refs(record), 2u) << "a set error keeps the reference";
  EXPECT_EQ(type.destroy_cr(rig, record), 1u);
  const std::size_t blocks = rig.live_blocks();
  EXPECT_EQ(type.destroy_cr(rig, record), 0u);
  EXPECT_EQ(rig.live_blocks(), blocks - 1);

  EXPECT_EQ(type.add_ref(rig, rig.txn(), nullptr, &rig.err), 0u);
  EXPECT_EQ(rig.take_error(), 2);
  EXPECT_EQ(rig->last_error, 2);
  EXPECT_EQ(type.destroy(rig, rig.txn(), nullptr, &rig.err), 0u);
  EXPECT_EQ(rig.take_error(), 2);
}

TEST_P(Record, PayloadGoesInAndOut) {
  const std::size_t blocks = rig.live_blocks();
  void* record = create();
  void* first = type.payload_create(rig, rig.txn());
  type.set_field(rig, rig.txn(), record, first);
  EXPECT_EQ(type.get_field(rig, rig.txn(), record), first);
  EXPECT_EQ(record_payload(type, record), first);
  EXPECT_TRUE(at<std::uint8_t>(first, 6) & KVT_OBJ_EMBEDDED);

  // Set over an earlier one: that lives on with its caller. Replace: it goes.
  void* second = type.payload_create(rig, rig.txn());
  const std::size_t with_two = rig.live_blocks();
  type.set_field(rig, rig.txn(), record, second);
  EXPECT_EQ(rig.live_blocks(), with_two);
  type.payload_destroy(rig, rig.txn(), first);
  void* third = type.payload_create(rig, rig.txn());
  type.replace_field(rig, rig.txn(), record, third);
  EXPECT_EQ(rig.live_blocks(), with_two - 1);
  EXPECT_EQ(type.get_field(rig, rig.txn(), record), third);

  EXPECT_EQ(type.detach(rig, rig.txn(), record), third);
  EXPECT_EQ(type.get_field(rig, rig.txn(), record), nullptr);
  EXPECT_EQ(type.detach(rig, rig.txn(), record), nullptr);
  destroy(record);
  EXPECT_EQ(rig.live_blocks(), blocks + 1) << "the payload that was taken out lives on";
  type.payload_destroy(rig, rig.txn(), third);
  EXPECT_EQ(rig.live_blocks(), blocks);

  record = make_record(rig, type);
  EXPECT_GT(rig.live_blocks(), blocks + 1);
  destroy(record);
  EXPECT_EQ(rig.live_blocks(), blocks) << "a record takes its payload along, and what that owns";
  EXPECT_EQ(rig.err, 0);
}

TEST_P(Record, ForeignPayloadIsRefused) {
  void* holder = make_record(rig, type);
  void* embedded = record_payload(type, holder);
  void* record = make_record(rig, type);
  void* own = record_payload(type, record);
  const struct {
    void (*set)(kvt_handle*, std::uint32_t, void*, void*);
    const char* line;
  } kWays[] = {{type.set_field, "Object is either nested or already embedded. Cannot set such objects into the record"},
               {type.replace_field,
                "Object is either nested or already embedded in a record. Cannot set such objects into the record"}};
  for (const auto& way : kWays) {
    for (void* object : {embedded, static_cast<void*>(nullptr)}) {
      rig->last_error = 0;
      rig.lines.clear();
      way.set(rig, rig.txn(), record, object);
      EXPECT_EQ(rig->last_error, 22);
      EXPECT_EQ(rig.take_line(), way.line);
      EXPECT_EQ(record_payload(type, record), own);
    }
  }
  destroy(holder);
  destroy(record);
}

TEST_P(Record, DestructionLeavesTheTable) {
  void* table = open_table(rig, type);
  for (const bool primary_only : {false, true}) {
    const std::size_t blocks = rig.live_blocks();
    void* record = make_record(rig, type, 255);
    EXPECT_EQ(type.insert_cr(rig, table, record, primary_only), 0);
    EXPECT_EQ(type.add_ref(rig, rig.txn(), record, &rig.err), 1u);
    EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 1u);
    EXPECT_EQ(record_count(table), 1u);
    EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
    EXPECT_EQ(rig.err, 0);
    EXPECT_EQ(record_count(table), 0u);
    EXPECT_EQ(shadow_count(table), 0u);
    EXPECT_EQ(rig.live_blocks(), blocks);
    for (std::size_t k = 0; k < type.keys.size(); ++k) EXPECT_EQ(at<std::uint32_t>(table, 368 + 8 * k), 0u);
  }
}

TEST_P(Record, ExhaustedStore) {
  const std::size_t blocks = rig.live_blocks();
  rig.fail_after = 0;
  EXPECT_EQ(create(), nullptr);
  EXPECT_EQ(rig.err, 0);

  // The call that never gives null works with a block of its own, again and again.
  for (int round = 0; round < 2; ++round) {
    rig.fail_after = 0;
    rig->last_error = 0;
    void* record = type.create_cr(rig, 1);
    rig.fail_after = -1;
    ASSERT_NE(record, nullptr);
    ASSERT_NE(record_payload(type, record), nullptr);
    EXPECT_EQ(record_refs(record), 1u);
    EXPECT_EQ(rig->cr_create, 0u);
    destroy(record);
    EXPECT_EQ(at<std::uint32_t>(record, 0), 0u);
    EXPECT_EQ(rig.live_blocks(), blocks);
  }

  // Whatever fails, the record and its payload can be given back.
  for (int n = 0;; ++n) {
    ASSERT_LT(n, 50);
    rig.fail_after = n;
    void* record = type.create_cr(rig, 1);
    const bool failed = rig.fail_after < 0;
    rig.fail_after = -1;
    rig->last_error = 0;
    type.destroy_cr(rig, record);
    EXPECT_EQ(rig.live_blocks(), blocks) << "allocation " << n;
    if (!failed) break;
  }
}

// The checks of a request, in their order, and what it does to a record with one reference and with two.
TEST_P(Record, RequestedDestruction) {
  void* table = open_table(rig, type);
  void* other = open_table(rig, type, "other");
  void* record = make_record(rig, type);
  const std::string name = type.name;
  rig.err = rig->last_error = 5;
  type.request_destroy(rig, rig.txn(), nullptr, nullptr, &rig.err);
  EXPECT_EQ(rig.take_error(), 5);
  auto refused = [&](void* in, void* what, int code, const char* why) {
    SCOPED_TRACE(why);
    for (const bool short_form : {false, true}) {
      rig->last_error = 0;
      rig.lines.clear();
      if (short_form) {
        EXPECT_EQ(type.request_destroy_cr(rig, in, what), code);
      } else {
        type.request_destroy(rig, rig.txn(), in, what, &rig.err);
        EXPECT_EQ(rig.take_error(), code);
      }
      EXPECT_EQ(rig->last_error, code);
      ASSERT_EQ(rig.lines.size(), 1u);
      EXPECT_EQ(rig.lines[0].level, 0x3000000u);
      EXPECT_EQ(rig.take_line(), name + " request destroy record " + why);
    }
    rig->last_error = 0;
  };
  refused(nullptr, record, 22, "with invalid parameters");
  refused(table, nullptr, 22, "with invalid parameters");
  refused(table, record, 2, "has NULL root pointer");
  type.insert(rig, rig.txn(), table, record, &rig.err);
  refused(other, record, 14, "has root pointer mis-matched");
  EXPECT_EQ(record_flags(record) & 2, 0u);

  const KeyOps& key = type.keys[0];
  type.add_ref(rig, rig.txn(), record, &rig.err);
  for (int times = 0; times < 2; ++times) {  // asking again changes nothing
    type.request_destroy(rig, rig.txn(), table, record, &rig.err);
    EXPECT_EQ(record_refs(record), 1u);
    EXPECT_EQ(pending_count(table), 1u);
    EXPECT_EQ(rig->db_stats->pending_destroy, 1u);
    EXPECT_EQ(key.first(rig, rig.txn(), table, &rig.err), record);
    EXPECT_EQ(key.first_not_pending(rig, rig.txn(), table, 1, &rig.err), nullptr);
  }
  // Out and in again it waits no longer.
  type.remove(rig, rig.txn(), table, record, &rig.err);
  EXPECT_EQ(pending_count(table), 0u);
  EXPECT_EQ(rig->db_stats->pending_destroy, 0u);
  type.insert(rig, rig.txn(), table, record, &rig.err);
  EXPECT_EQ(record_flags(record), 1u);
  const std::size_t blocks = rig.live_blocks();
  type.request_destroy(rig, rig.txn(), table, record, &rig.err);
  EXPECT_LT(rig.live_blocks(), blocks) << "nobody needs to see it go";
  EXPECT_EQ(record_count(table) + pending_count(table) + rig->db_stats->pending_destroy, 0u);
  EXPECT_EQ(rig.err, 0);
}

// While cursors have not seen a record go, it stays, whole, for all other readers.
TEST_P(Record, CursorsSeeARecordGo) {
  void* table = open_table(rig, type);
  void* before = make_record(rig, type, 1, 0);
  type.insert(rig, rig.txn(), table, before, &rig.err);
  void* readers[] = {kvtdb_cursor_open(rig, rig.txn(), table, 1, &rig.err),
                     kvtdb_cursor_open(rig, rig.txn(), table, 0, &rig.err)};
  void* late = make_record(rig, type, 1, 1);
  type.insert(rig, rig.txn(), table, late, &rig.err);
  const std::string name = type.name;
  type.request_destroy(rig, rig.txn(), table, before, &rig.err);
  EXPECT_EQ(record_flags(before) & 2, 2u);
  EXPECT_EQ(record_refs(before), 1u);
  EXPECT_EQ(record_count(table), 2u);
  auto next = [&](void* cursor, int wanted) {
    int kind = 0;
    void* record = kvtdb_cursor_next(rig, rig.txn(), cursor, &kind, &rig.err);
    EXPECT_EQ(kind, wanted);
    return record;
  };
  EXPECT_EQ(next(readers[0], KVT_CHANGE_INSERT), late);
  EXPECT_EQ(next(readers[0], KVT_CHANGE_DESTROY), before);
  EXPECT_EQ(next(readers[1], KVT_CHANGE_DESTROY), before) << "it asked for no inserts";
  EXPECT_EQ(next(readers[0], 0), nullptr);
  EXPECT_EQ(record_count(table), 2u) << "the other reader still has it in hand";
  EXPECT_EQ(record_refs(before), 1u);
  EXPECT_EQ(next(readers[1], 0), nullptr);
  EXPECT_EQ(record_count(table), 1u);
  EXPECT_EQ(pending_count(table), 0u);
  EXPECT_EQ(rig->gc_active, 0u);
  // What only a cursor keeps goes with the cursor.
  kvtdb_cursor_close(rig, rig.txn(), readers[0], &rig.err);
  type.request_destroy(rig, rig.txn(), table, late, &rig.err);
  EXPECT_EQ(record_count(table), 1u);
  kvtdb_cursor_close(rig, rig.txn(), readers[1], &rig.err);
  EXPECT_EQ(record_count(table), 0u);
  EXPECT_EQ(rig->db_stats->pending_destroy, 0u);
  EXPECT_EQ(at<std::uint32_t>(table, 220), 0u);
  EXPECT_EQ(rig.err, 0);
}

// A destruction that fails at its last steps has taken the reference: the block stays, and the count goes round.
TEST_P(Record, DestructionThatFailsKeepsTheBlock) {
  const std::string because = strerror(5);
  const struct {
    const char* call;
    std::size_t offset;
    std::uint32_t value;
    std::string line;
  } kCases[] = {{"kvt_hd_mapping_destroy", 36, 0x20, " destroy: Failed to remove oid mapping for object. Error "},
                {"kvtlib_record_dereference_loc", 4, 1, " destroy: Failed to dereference location: "}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.call);
    const std::size_t blocks = rig.live_blocks();
    for (const bool failing : {false, true}) {
      void* record = create();
      std::memcpy(static_cast<char*>(record) + c.offset, &c.value, 4);
      std::vector<Heard> calls;
      hearing = &calls;
      rig.lines.clear();
      {
        const FaultHere here(failing ? c.call : "none", 5);
        EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
      }
      hearing = nullptr;
      ASSERT_EQ(calls.size(), 1u);
      EXPECT_EQ(calls[0].what, c.call);
      EXPECT_EQ(calls[0].at, record);
      EXPECT_EQ(rig.take_error(), failing ? 5 : 0);
      EXPECT_EQ(rig.live_blocks(), blocks + failing);
      if (!failing) continue;
      ASSERT_EQ(rig.lines.size(), 1u);
      EXPECT_EQ(rig.lines[0].level, 0x3000000u);
      EXPECT_EQ(rig.take_line(), type.name + c.line + because);
      EXPECT_NE(at<std::uint32_t>(record, 0), 0u);
      EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0xFFFFFFu);
      EXPECT_EQ(record_refs(record), 0xFFFFFFu);
      rig->store_free(rig->store, rig.txn(), record);
    }
    // Without side data in the runtime nobody is asked to drop any.
    if (c.offset != 36) continue;
    void* record = create();
    std::memcpy(static_cast<char*>(record) + 36, &c.value, 4);
    rig->hd_mapping = nullptr;
    const FaultHere here(c.call, 5);
    destroy(record);
    EXPECT_EQ(rig.take_error(), 0);
  }
}

// What changes is told before it changes: the payload to the observer, then the slot to the store; a replacement the
// other way round.
TEST_P(Record, OrderOfThePayloadOperations) {
  static std::string told;
  static decltype(kvt_handle::set_range) announce;
  void* record = create();
  void* first = type.payload_create(rig, rig.txn());
  void* second = type.payload_create(rig, rig.txn());
  static void* slot;
  static void* owner;
  slot = static_cast<char*>(record) + 56 + 12 * type.keys.size();
  owner = record;
  announce = rig->set_range;
  rig->set_range = [](kvt_handle* h, void* at, std::uint32_t length, std::uint32_t txn, void* held_by) {
    if (at == slot) told += length == 4 && held_by == owner ? "slot " : "wrong ";
    return announce(h, at, length, txn, held_by);
  };
  kvt_observer observer{};
  observer.containment = [](void*, int kind, void*, void* parent) {
    if (kind == 4) told += parent == owner ? "contained " : parent ? "wrong " : "free ";
  };
  observer.destroy = [](void*, std::uint32_t, void*) { told += "destroy "; };
  observer.detach = [](void*, std::uint32_t, void*) { told += "detach "; };
  kvt_observe(rig, &observer);
  rig.begin();
  rig->mode = 1;
  rig->containment = 1;
  auto take = [&] { return std::exchange(told, ""); };
  type.set_field(rig, rig.txn(), record, first);
  EXPECT_EQ(take(), "contained slot ");
  EXPECT_EQ(type.get_field(rig, rig.txn(), record), first);
  EXPECT_EQ(take(), "contained ");
  type.replace_field(rig, rig.txn(), record, second);
  EXPECT_EQ(take(), "destroy slot contained ");
  EXPECT_EQ(type.detach(rig, KVT_NO_TXN, record), second);
  EXPECT_EQ(take(), "free slot ") << "no mark without a write context";
  type.replace_field(rig, rig.txn(), record, type.payload_create(rig, rig.txn()));
  take();
  type.detach(rig, rig.txn(), record);
  EXPECT_EQ(take(), "free detach slot ");
  rig->mode = 2;
  type.detach(rig, rig.txn(), record);
  EXPECT_EQ(take(), "free slot ");
  kvt_observe(rig, nullptr);
  EXPECT_EQ(rig.err, 0);
}

// A row of 65,536 in a database: its record, its payload and 8 bytes for each of the two blocks.
TEST(RecordMemory, OfALargeTable) {
  Rig rig(Kind::kDatabase);
  rig.begin();
  const TableOps& type = table_named("tbl_wlan_ifid");
  void* table = open_table(rig, type);
  constexpr unsigned kRows = 65536;
  std::uint64_t wanted = 0;
  const std::uint32_t begin = kvt_ref_of(make_record(rig, type, 1, kRows));
  std::uint32_t end = begin;
  for (unsigned n = 0; n < kRows; ++n) {
    const unsigned allocations = rig.allocations;
    void* record = make_record(rig, type, 1, n);
    ASSERT_EQ(rig.allocations, allocations + 2);
    wanted += type.record_size + rig.last_size + 16;
    type.insert(rig, rig.txn(), table, record, &rig.err);
    ASSERT_EQ(rig.allocations, allocations + 2) << "an insert takes no memory";
    end = std::max(end, kvt_ref_of(record));
  }
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(record_count(table), kRows);
  EXPECT_LE(end - begin, wanted);
  rig.abort();
}

INSTANTIATE_TEST_SUITE_P(Tables, Record, testing::ValuesIn(kTables), table_name);

TEST(RecordDeathTest, ReferencesDoNotWrap) {
  Rig rig;
  const TableOps& type = table_named("tbl_wlan");
  void* record = type.create(rig, rig.txn(), &rig.err);
  const std::uint32_t top = 0xFFFFFE;
  std::memcpy(static_cast<char*>(record) + 28, &top, 4);
  EXPECT_EQ(type.add_ref(rig, rig.txn(), record, &rig.err), top);
  EXPECT_DEATH(type.add_ref(rig, rig.txn(), record, &rig.err), "__ref_cnt");
}

TEST(RecordDeathTest, CorruptTypeStopsTheDestruction) {
  Rig rig;
  const TableOps& type = table_named("tbl_wlan_ifid");
  void* record = type.create(rig, rig.txn(), &rig.err);
  std::memset(record, 0, 4);
  EXPECT_DEATH(type.destroy(rig, rig.txn(), record, &rig.err), "tinfo is null or corrupted");
}

}  // namespace
}  // namespace table_test

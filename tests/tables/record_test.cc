// Tests of records: what a new one holds, references, payloads in and out, and what a destruction takes along.
#include <algorithm>
#include <utility>

#include "kvt/care.h"
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

TEST_P(Record, ExhaustedStore) {
  const std::size_t blocks = rig.live_blocks();
  rig.fail_after = 0;
  EXPECT_EQ(create(), nullptr);
  EXPECT_EQ(rig.err, 0);

  // The call that never gives null works with a block of its own. Whatever fails, the record and its payload can be
  // given back.
  for (int n = -1;; ++n) {
    ASSERT_LT(n, 50);
    rig.fail_after = std::max(n, 0);  // its own block is used twice
    void* record = type.create_cr(rig, 1);
    const bool failed = rig.fail_after < 0;
    rig.fail_after = -1;
    rig->last_error = 0;
    ASSERT_NE(record, nullptr);
    ASSERT_NE(record_payload(type, record), nullptr);
    EXPECT_EQ(record_refs(record), 1u);
    EXPECT_EQ(rig->cr_create, 0u);
    type.destroy_cr(rig, record);
    EXPECT_EQ(rig.live_blocks(), blocks) << "allocation " << n;
    if (!failed) break;
  }
}

// The checks of a request, in their order.
TEST_P(Record, RequestedDestructionIsRefused) {
  void* table = open_table(rig, type);
  void* other = open_table(rig, type, "other");
  void* record = make_record(rig, type);
  const std::string name = type.name;
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
}

// A destruction that fails at its last steps has taken the reference: the block stays, and the count goes round.
TEST_P(Record, DestructionThatFailsKeepsTheBlock) {
  const struct {
    const char* call;
    std::size_t offset;
    std::uint32_t value;
    std::string line;
  } kCases[] = {{"kvt_hd_mapping_destroy", 36, 0x20, " destroy: Failed to remove oid mapping for object. Error "},
                {"kvtlib_record_dereference_loc", 4, 1, " destroy: Failed to dereference location: "}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.call);
    for (const int error : {0, 5}) {
      void* record = create();
      std::memcpy(static_cast<char*>(record) + c.offset, &c.value, 4);
      const std::size_t blocks = rig.live_blocks();
      std::vector<Heard> calls;
      hearing = &calls;
      const FaultHere here(error ? c.call : "none", error);
      EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
      hearing = nullptr;
      ASSERT_EQ(calls.size(), 1u);
      EXPECT_EQ(calls[0].what, c.call);
      EXPECT_EQ(rig.take_error(), error);
      EXPECT_EQ(rig.live_blocks(), error ? blocks : blocks - 1);
      if (!error) continue;
      EXPECT_EQ(rig.take_line(), type.name + c.line + strerror(error));
      EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0xFFFFFFu);
      EXPECT_EQ(record_refs(record), 0xFFFFFFu);
      rig->store_free(rig->store, rig.txn(), record);
    }
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

// A row of 65,536 in a database: its record, its payload, its text, and 8 bytes for each of these blocks, which are
// rounded up to 8.
TEST(RecordMemory, OfALargeTable) {
  for (const char* name : {"tbl_wlan_ifid", "tbl_wlan_profile_assoicated_tag"}) {
    SCOPED_TRACE(name);
    Rig rig(Kind::kDatabase);
    const TableOps& type = table_named(name);
    const auto used = [&rig] {
      kvtdb_info info;
      kvtdb_get_info(rig, &info, &rig.err);
      return info.heap_used;
    };
    rig.begin();
    void* table = open_table(rig, type);
    make_record(rig, type);
    rig.commit();
    constexpr unsigned kRows = 65536;
    const std::uint64_t before = used();
    std::uint64_t wanted = 0;
    rig.begin();
    for (unsigned n = 0; n < kRows; ++n) {
      const std::uint64_t asked = rig.asked;
      const unsigned allocations = rig.allocations;
      void* record = make_record(rig, type, 1, n);
      const unsigned texts = rig.allocations - allocations - 2;
      wanted += rig.asked - asked + 16 + texts * 16;
      type.insert(rig, rig.txn(), table, record, &rig.err);
      ASSERT_EQ(rig.allocations, allocations + 2 + texts) << "an insert takes no memory";
    }
    rig.commit();
    EXPECT_EQ(rig.err, 0);
    EXPECT_EQ(record_count(table), kRows);
    EXPECT_LE(used() - before, wanted);
  }
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

}  // namespace
}  // namespace table_test

// Tests of records: what a new one holds, references, payloads in and out, and what a destruction takes along.
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

// Tests of entering records into tables and taking them out: what a handle's own words do to it, and what is announced.
// The long random history is in index_test.cc.
#include <functional>

#include "tests/tables/faults.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

class Membership : public EveryTable {
 protected:
  const TableOps& type = GetParam();
  Rig rig;
  void* table = open_table(rig, type);
  bool found(void* record, std::size_t key) {
    const KeyOps& k = type.keys[key];
    return k.search(rig, rig.txn(), table, key_place(rig, k, record_payload(type, record)), &rig.err) == record;
  }
};

// What the rows of a store's replication would never hear of is lost: each word that changes is announced before.
TEST_P(Membership, AnnouncesEveryWordBeforeItChanges) {
  struct Range {
    char* at;
    std::uint32_t length;
  };
  static std::vector<Range> ranges;
  static decltype(kvt_handle::set_range) announce;
  announce = rig->set_range;
  rig->set_range = [](kvt_handle* h, void* at, std::uint32_t length, std::uint32_t txn, void* owner) {
    ranges.push_back({static_cast<char*>(at), length});
    return announce(h, at, length, txn, owner);
  };
  void* record = make_record(rig, type, 255);
  const std::function<void()> steps[] = {
      [&] { type.insert(rig, rig.txn(), table, record, &rig.err); },
      [&] { type.pkey_remove(rig, rig.txn(), table, record, &rig.err); },
      [&] { type.remove(rig, rig.txn(), table, record, &rig.err); },
      [&] { type.pkey_insert(rig, rig.txn(), table, record, &rig.err); },
      [&] { type.remove(rig, rig.txn(), table, record, &rig.err); },
      [&] { type.add_ref(rig, rig.txn(), record, &rig.err); },
      [&] { type.detach(rig, rig.txn(), record); },
  };
  for (const auto& step : steps) {
    SCOPED_TRACE("step " + std::to_string(&step - steps));
    ranges.clear();
    const std::string record_before(static_cast<char*>(record), type.record_size);
    const std::string table_before(static_cast<char*>(table), type.size);
    step();
    EXPECT_EQ(rig.err, 0);
    auto check = [&](void* block, const std::string& before, std::size_t trees, std::size_t trees_end) {
      for (std::size_t i = 0; i < before.size(); ++i) {
        if (i >= trees && i < trees_end) continue;  // the trees announce through the store itself
        char* byte = static_cast<char*>(block) + i;
        if (*byte == before[i]) continue;
        bool told = false;
        for (const Range& r : ranges) told |= byte >= r.at && byte < r.at + r.length;
        EXPECT_TRUE(told) << "byte " << i;
      }
    };
    check(record, record_before, 56, 56 + 12 * type.keys.size());
    check(table, table_before, 368, type.size);
  }
}

TEST_P(Membership, RecordOfOneTableIsNoBusinessOfAnother) {
  void* other = open_table(rig, type, "other");
  void* record = make_record(rig, type);
  for (void* r : {record, make_record(rig, type, 1, 1)}) type.insert(rig, rig.txn(), table, r, &rig.err);
  ASSERT_EQ(rig.take_error(), 0);
  type.insert(rig, rig.txn(), other, record, &rig.err);
  EXPECT_EQ(rig.take_error(), 17);
  for (const auto remove : {type.remove, type.pkey_remove}) {
    remove(rig, rig.txn(), other, record, &rig.err);
    EXPECT_EQ(rig.take_error(), type.keys.size() == 1 && remove == type.pkey_remove ? 0 : 2);
  }
  EXPECT_EQ(record_count(other), 0u);
  for (std::size_t key = 0; key < type.keys.size(); ++key) {
    EXPECT_EQ(check_index(type, table, key), 0) << key;
    EXPECT_TRUE(found(record, key)) << key;
  }
}

// What the runtime has no room for goes as it came.
TEST_P(Membership, AnInsertThatTheRuntimeRefusesLeavesNothing) {
  mt_set_tenant_id(6);
  void* cursor = kvtdb_cursor_open(rig, rig.txn(), table, 1, &rig.err);
  void* record = make_record(rig, type, 255);
  const std::string record_before(static_cast<char*>(record), type.record_size);
  const std::string table_before(static_cast<char*>(table), type.size);
  for (const char* call : {"kvtdb_update_tenant_counter", "kvtdb_enq_rec_move_write_cursor_internal"}) {
    for (const auto insert : {type.insert, type.pkey_insert}) {
      const FaultHere here(call, 12);
      insert(rig, rig.txn(), table, record, &rig.err);
      EXPECT_EQ(rig.take_error(), 12) << call;
      EXPECT_EQ(rig->last_error, 12);
      EXPECT_EQ(std::string(static_cast<char*>(record), type.record_size), record_before);
      EXPECT_EQ(std::string(static_cast<char*>(table), type.size), table_before);
      EXPECT_EQ(type.count(rig, rig.txn(), table), 0u);
    }
  }
  type.insert(rig, rig.txn(), table, record, &rig.err);
  EXPECT_EQ(type.count(rig, rig.txn(), table), 1u);
  kvtdb_cursor_close(rig, rig.txn(), cursor, &rig.err);
  EXPECT_EQ(rig.err, 0);
}

// A record that is missing in a later index, be it in all of them or in one between. It leaves the others, uncounted,
// and can be destroyed.
TEST_P(Membership, AMissInALaterIndexLeavesNoTree) {
  if (type.keys.size() < 2) return;
  void* neighbour = make_record(rig, type, 1, 1);
  type.insert(rig, rig.txn(), table, neighbour, &rig.err);
  std::uint32_t counted = 1;
  for (const bool between : {false, true}) {
    void* record = make_record(rig, type);
    if (between) {
      type.insert(rig, rig.txn(), table, record, &rig.err);
      auto* root = reinterpret_cast<std::uint32_t*>(static_cast<char*>(table) + 376);
      EXPECT_EQ(
          e_avl_delete(rig->store, rig.txn(), root, static_cast<char*>(record) + 68, root + 1, type.keys[1].compare),
          1);
    } else {
      type.pkey_insert(rig, rig.txn(), table, record, &rig.err);
      std::memset(static_cast<char*>(record) + 36, 1, 1);  // the mark of the lower grade is lost
    }
    rig.lines.clear();
    type.remove(rig, rig.txn(), table, record, &rig.err);
    EXPECT_EQ(rig.take_error(), 2);
    EXPECT_EQ(rig.take_line(),
              std::string(type.name) + " delete, record not found for " + type.payload + " " + type.keys[1].name);
    EXPECT_EQ(record_table(record), 0u);
    EXPECT_EQ(record_count(table), ++counted);
    const std::size_t blocks = rig.live_blocks();
    EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
    EXPECT_LT(rig.live_blocks(), blocks);
    for (std::size_t key = 0; key < type.keys.size(); ++key) {
      EXPECT_EQ(at<std::uint32_t>(table, 372 + 8 * key), 1u);
      EXPECT_EQ(check_index(type, table, key), 0);
      EXPECT_TRUE(found(neighbour, key));
    }
  }
  EXPECT_EQ(rig.err, 0);
}

INSTANTIATE_TEST_SUITE_P(Tables, Membership, testing::ValuesIn(kTables), table_name);

}  // namespace
}  // namespace table_test

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

TEST_P(Membership, NullRecordIsADuplicate) {
  for (const auto insert : {type.insert, type.pkey_insert}) {
    rig.err = 5;
    rig.lines.clear();
    insert(rig, rig.txn(), table, nullptr, &rig.err);
    EXPECT_EQ(rig.take_error(), 17) << "also over an earlier error";
    EXPECT_EQ(rig->last_error, 17);
    EXPECT_TRUE(rig.lines.empty());
  }
}

TEST_P(Membership, ASetErrorChangesNothing) {
  void* in = make_record(rig, type, 1, 0);
  void* out = make_record(rig, type, 1, 1);
  type.insert(rig, rig.txn(), table, in, &rig.err);
  const std::string in_bytes(static_cast<char*>(in), type.record_size);
  const std::string out_bytes(static_cast<char*>(out), type.record_size);
  const std::string table_bytes(static_cast<char*>(table), type.size);
  rig.err = 5;
  for (const auto insert : {type.insert, type.pkey_insert}) insert(rig, rig.txn(), table, out, &rig.err);
  for (const auto remove : {type.remove, type.pkey_remove}) remove(rig, rig.txn(), table, in, &rig.err);
  EXPECT_EQ(rig.take_error(), 5);
  EXPECT_EQ(std::string(static_cast<char*>(in), type.record_size), in_bytes);
  EXPECT_EQ(std::string(static_cast<char*>(out), type.record_size), out_bytes);
  EXPECT_EQ(std::string(static_cast<char*>(table), type.size), table_bytes);
}

TEST_P(Membership, QuietDuplicatesAreRefusedWithoutAWord) {
  void* first = make_record(rig, type);
  void* second = make_record(rig, type);
  EXPECT_EQ(type.insert_cr(rig, table, first, 0), 0);
  rig.lines.clear();
  rig->quiet_duplicates = 1;
  EXPECT_EQ(type.insert_cr(rig, table, second, 0), 17);
  EXPECT_TRUE(rig.lines.empty());
  rig->last_error = 0;
  rig->quiet_duplicates = 0;
  EXPECT_EQ(type.insert_cr(rig, table, second, 0), 17);
  EXPECT_EQ(rig.lines.size(), 1u);
  EXPECT_EQ(record_count(table), 1u);
}

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

TEST_P(Membership, ShortFormsUseTheHandle) {
  void* record = make_record(rig, type, 1, 1);
  EXPECT_EQ(type.insert_cr(rig, table, record, 1), 0);
  EXPECT_EQ(record_flags(record) & 0x10, 0x10u);
  EXPECT_EQ(type.remove_cr(rig, table, record, 0), 0);
  EXPECT_EQ(record_table(record), 0u);
  EXPECT_EQ(type.insert_cr(rig, table, record, 0), 0);
  EXPECT_EQ(record_flags(record) & 0x10, 0u);

  // A delete that fails leaves the record alive, with its reference.
  void* stranger = make_record(rig, type, 1, 2);
  EXPECT_EQ(type.remove_cr(rig, table, stranger, 1), 2);
  EXPECT_EQ(record_refs(stranger), 1u);
  rig->last_error = 0;
  const std::size_t blocks = rig.live_blocks();
  EXPECT_EQ(type.remove_cr(rig, table, record, 1), 0);
  EXPECT_LT(rig.live_blocks(), blocks);
  EXPECT_EQ(record_count(table), 0u);
}

TEST_P(Membership, EqualKeyOfAnotherSourceOrTenantStandsBeside) {
  std::vector<void*> records;
  for (const std::uint16_t tenant : {0, 9}) {
    mt_set_tenant_id(tenant);
    for (const unsigned source : {255u, 2u, 1u}) {
      records.push_back(make_record(rig, type, source));
      type.insert(rig, rig.txn(), table, records.back(), &rig.err);
      EXPECT_EQ(rig.take_error(), 0) << "tenant " << tenant << " source " << source;
    }
  }
  EXPECT_EQ(record_count(table), 6u);
  mt_set_tenant_id(9);
  for (std::size_t k = 0; k < type.keys.size(); ++k) {
    EXPECT_TRUE(found(records[5], k));
    // Through the sources of one key, and no further than the tenant's last.
    void* second = type.keys[k].sub_next(rig, rig.txn(), table, records[5], &rig.err);
    EXPECT_EQ(second, records[4]);
    void* third = type.keys[k].sub_next(rig, rig.txn(), table, second, &rig.err);
    EXPECT_EQ(third, records[3]);
    EXPECT_EQ(type.keys[k].sub_next(rig, rig.txn(), table, third, &rig.err), nullptr);
    EXPECT_EQ(type.keys[k].next(rig, rig.txn(), table, records[5], &rig.err), nullptr);
  }
  EXPECT_EQ(type.count(rig, rig.txn(), table), 3u);
  EXPECT_EQ(type.count(rig, rig.txn(), nullptr), 0u);
  EXPECT_EQ(type.count_by_src(rig, rig.txn(), nullptr, 1), 0u);
}

TEST_P(Membership, RecordOfOneTableIsNoBusinessOfAnother) {
  void* other = open_table(rig, type, "other");
  std::vector<void*> records;
  for (unsigned n = 0; n < 3; ++n) {
    records.push_back(make_record(rig, type, 1, n));
    type.insert(rig, rig.txn(), table, records.back(), &rig.err);
  }
  ASSERT_EQ(rig.take_error(), 0);
  void* record = records[1];
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
  // What a destroy takes out, no index may still lead to.
  type.destroy(rig, rig.txn(), record, &rig.err);
  EXPECT_EQ(rig.take_error(), 0);
  EXPECT_EQ(record_count(table), 2u);
  for (std::size_t key = 0; key < type.keys.size(); ++key) EXPECT_EQ(check_index(type, table, key), 0) << key;
}

// A table with cursors lets go of a record only for the runtime's clean-up.
TEST_P(Membership, ReplicatedTableRefusesADirectDelete) {
  void* record = make_record(rig, type);
  type.insert(rig, rig.txn(), table, record, &rig.err);
  void* cursor = kvtdb_cursor_open(rig, rig.txn(), table, 0, &rig.err);
  ASSERT_NE(cursor, nullptr);
  const std::string before(static_cast<char*>(record), type.record_size);
  for (const auto remove : {type.remove, type.pkey_remove}) {
    rig.lines.clear();
    remove(rig, rig.txn(), table, record, &rig.err);
    EXPECT_EQ(rig.take_error(), 22);
    EXPECT_EQ(rig.take_line(),
              std::string(type.name) + "_delete() cannot be direclty used when the table is marked for replication");
  }
  EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 1u) << "the trees still hold it";
  EXPECT_EQ(rig.take_error(), 22);
  EXPECT_EQ(std::string(static_cast<char*>(record), type.record_size), before);
  EXPECT_TRUE(found(record, 0));
  rig->gc_active = 1;
  EXPECT_EQ(type.destroy(rig, rig.txn(), record, &rig.err), 0u);
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(record_count(table), 0u);
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

// A record that no table holds: the mark of the lower grade is set before any index is looked at.
TEST_P(Membership, ReducingAStranger) {
  void* record = make_record(rig, type);
  rig.lines.clear();
  type.pkey_remove(rig, rig.txn(), table, record, &rig.err);
  const bool missed = type.keys.size() > 1;
  EXPECT_EQ(rig.take_error(), missed ? 2 : 0);
  EXPECT_EQ(
      rig.take_line(),
      missed ? std::string(type.name) + " delete, record not found for " + type.payload + " " + type.keys[1].name : "");
  EXPECT_EQ(record_flags(record), 0x10u);
  type.insert(rig, rig.txn(), table, record, &rig.err);
  EXPECT_EQ(record_flags(record), 1u);
  for (std::size_t key = 0; key < type.keys.size(); ++key) EXPECT_TRUE(found(record, key));
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

// In each place where a record of three keys can meet an equal one, it is refused and left out of every index.
TEST(Duplicate, InALaterIndexUndoesTheEarlierOnes) {
  const TableOps& type = table_named("tbl_apgroup_wlan");
  const struct {
    const char* name;
    std::vector<unsigned> keys;
  } kCases[] = {{"wlan_id", {1, 2, 3}}, {"profile_name", {2, 1, 3}}, {"ssid", {2, 3, 1}}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Rig rig;
    void* table = open_table(rig, type);
    type.insert(rig, rig.txn(), table, make_record(rig, type, 1, {1, 1, 1}), &rig.err);
    void* record = make_record(rig, type, 1, c.keys);
    const std::string table_before(static_cast<char*>(table), 368);
    type.insert(rig, rig.txn(), table, record, &rig.err);
    EXPECT_EQ(rig.take_error(), 17);
    EXPECT_EQ(rig.take_line(), std::string("tbl_apgroup_wlan insert record exists for st_wlan ") + c.name);
    EXPECT_EQ(record_table(record), 0u);
    EXPECT_EQ(record_flags(record), 0u);
    EXPECT_EQ(std::string(static_cast<char*>(table), 368), table_before);
    for (std::size_t k = 0; k < 3; ++k) {
      EXPECT_EQ(at<std::uint32_t>(table, 372 + 8 * k), 1u);
      EXPECT_EQ(check_index(type, table, k), 0);
    }
    const std::size_t blocks = rig.live_blocks();
    type.destroy(rig, rig.txn(), record, &rig.err);
    EXPECT_EQ(rig.err, 0);
    EXPECT_LT(rig.live_blocks(), blocks);
  }
}

}  // namespace
}  // namespace table_test

// Tests of opening tables: names and paths, existing and absent tables, what a new table object holds.
#include "tests/tables/rig.h"

namespace table_test {
namespace {

TEST_P(EveryTable, NewTableIsWholeAndFoundAgain) {
  const TableOps& type = GetParam();
  for (const Kind kind : {Kind::kPrivate, Kind::kDatabase}) {
    SCOPED_TRACE(kind == Kind::kPrivate ? "private" : "database");
    Rig rig(kind);
    rig.begin();
    EXPECT_EQ(type.open(rig, rig.txn(), "one", 1, &rig.err), nullptr);
    EXPECT_EQ(rig.err, 0) << "a missing table is no error";
    void* table = type.open(rig, rig.txn(), "one", 0, &rig.err);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(rig.err, 0);

    const kvt_type_record* record = kvt_type_link_at(at<std::uint32_t>(table, 0));
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->name, type.name);
    EXPECT_EQ(record == type.record, kind == Kind::kPrivate) << "a database links its own copy";
    const kvt_variant_entry* counts = kvt_variant_entries(kvt_varinfo_of(record));
    const std::uint64_t created = counts->created;
    EXPECT_NE(type.open(rig, rig.txn(), "two", 0, &rig.err), table);
    EXPECT_EQ(counts->created, created + 1);
    EXPECT_EQ(std::string(static_cast<char*>(table) + 7), std::string("one/") + type.luid_text);
    EXPECT_EQ(at<std::uint32_t>(table, 272), 0u);
    EXPECT_EQ(at<std::uint32_t>(table, 360) & 0x80u, 0u);
    for (std::size_t word = 368; word < 368 + 8 * type.keys.size(); word += 4) {
      EXPECT_EQ(at<std::uint32_t>(table, word), 0u) << word;
    }
    EXPECT_EQ(std::memcmp(type.get_luid(rig, rig.txn(), table, &rig.err), type.luid, 16), 0);
    EXPECT_EQ(type.full_name, std::string("table ") + type.name);

    const std::string before(static_cast<char*>(table), type.size);
    const unsigned allocations = rig.allocations;
    for (const std::uint32_t open_type : {0u, 1u, 7u}) {
      EXPECT_EQ(type.open(rig, rig.txn(), "one", open_type, &rig.err), table) << open_type;
    }
    const std::string path = std::string("one/") + type.luid_text;
    EXPECT_EQ(type.open(rig, rig.txn(), path.c_str(), 1, &rig.err), table);
    type.close(rig, rig.txn(), table, &rig.err);
    EXPECT_EQ(rig.allocations, allocations);
    EXPECT_EQ(std::string(static_cast<char*>(table), type.size), before);
    EXPECT_EQ(counts->created, created + 1) << "opening again makes nothing";
    rig.commit();
    EXPECT_EQ(rig.err, 0);
  }
}
INSTANTIATE_TEST_SUITE_P(Tables, EveryTable, testing::ValuesIn(kTables), table_name);

TEST(TableIdentity, TextAndBytesAgree) {
  for (const TableOps& type : kTables) {
    std::string text;
    for (int i = 0; i < 16; ++i) {
      char pair[3];
      std::snprintf(pair, sizeof pair, "%02x", type.luid[i]);
      text += pair;
    }
    EXPECT_EQ(text, type.luid_text);
    EXPECT_EQ(std::memcmp(type.record->luid, type.luid, 16), 0) << type.name;
    EXPECT_NE(std::memcmp(type.row->luid, type.luid, 16), 0) << type.name;
    EXPECT_STREQ(type.record->kind, "table");
    EXPECT_STREQ(type.row->kind, "table_record");
    EXPECT_EQ(std::string(type.row->name), std::string(type.name) + "_record");
  }
}

// A name without a slash gets a slash and the 32 digits of the identity behind it, and the path takes 207 at most; with
// a slash it is the path, and what is too long is cut.
TEST(TableName, LengthsAtTheLimit) {
  const TableOps& type = table_named("tbl_wlan");
  const struct {
    std::size_t length;
    bool slash;
    int error;
    std::size_t path_length;
  } kCases[] = {
      {0, false, 0, 33},   {174, false, 0, 207}, {175, false, 7, 0},  {300, false, 7, 0},
      {206, true, 0, 206}, {207, true, 0, 207},  {208, true, 0, 207}, {300, true, 0, 207},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(std::to_string(c.length) + (c.slash ? " with a slash" : " without a slash"));
    Rig rig;
    std::string name(c.length, 'n');
    if (c.slash) name[3] = '/';
    const unsigned allocations = rig.allocations;
    void* table = type.open(rig, rig.txn(), name.c_str(), 0, &rig.err);
    EXPECT_EQ(rig->last_error, c.error);
    EXPECT_EQ(rig.take_error(), c.error);
    ASSERT_EQ(table == nullptr, c.error != 0);
    if (!table) {
      EXPECT_EQ(rig.allocations, allocations);
      continue;
    }
    const std::string path = static_cast<char*>(table) + 7;
    EXPECT_EQ(path.size(), c.path_length);
    EXPECT_EQ(path, c.slash ? name.substr(0, 207) : name + "/" + type.luid_text);
    EXPECT_EQ(type.open(rig, rig.txn(), name.c_str(), 1, &rig.err), table);
    // What lies beyond the cut tells no two tables apart.
    if (c.length > 207) {
      EXPECT_EQ(type.open(rig, rig.txn(), (name + "more").c_str(), 0, &rig.err), table);
    }
  }
}

// Tables of one name but different types, and of one type but different names, are different tables, all on one list.
TEST(TableList, HoldsEveryTableOnce) {
  Rig rig(Kind::kDatabase);
  rig.begin();
  std::vector<void*> tables;
  for (const TableOps& type : kTables) {
    for (const char* name : {"a", "b", "b/c"}) tables.push_back(type.open(rig, rig.txn(), name, 0, &rig.err));
  }
  rig.commit();
  ASSERT_EQ(rig.err, 0);
  std::vector<void*> listed;
  kvt_table_list* list = kvtlib_database_table_toc_get(rig, rig.txn(), &rig.err);
  std::uint32_t link = kvt_ref_of(&list->first);
  for (std::uint32_t table = list->first; table; table = at<std::uint32_t>(kvt_ref_at(table), 276)) {
    listed.push_back(kvt_ref_at(table));
    EXPECT_EQ(at<std::uint32_t>(kvt_ref_at(table), 280), link);
    link = table + 276;
  }
  EXPECT_EQ(list->last_link, link);
  EXPECT_EQ(listed, tables);
}

// With each allocation failing in its turn: no table, error 12, nothing left behind, and the next try succeeds.
TEST(TableOpen, FailingAllocations) {
  const TableOps& type = table_named("tbl_apgroup_wlan");
  Rig rig;
  open_table(rig, type, "first");
  int failures = 0;
  for (;; ++failures) {
    ASSERT_LT(failures, 20);
    const std::size_t blocks = rig.live_blocks();
    rig.fail_after = failures;
    void* table = type.open(rig, rig.txn(), "second", 0, &rig.err);
    const bool failed = rig.fail_after < 0;
    rig.fail_after = -1;
    if (!failed) {
      EXPECT_NE(table, nullptr);
      break;
    }
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(rig.take_error(), 12);
    EXPECT_EQ(rig.live_blocks(), blocks);
    EXPECT_EQ(type.open(rig, rig.txn(), "second", 1, &rig.err), nullptr);
  }
  EXPECT_GT(failures, 0);
}

TEST(TableOpenDeathTest, CreateModeInADatabaseNeedsTheWriteLock) {
  Rig rig(Kind::kDatabase);
  for (const TableOps& type : kTables) {
    rig.begin();
    open_table(rig, type);
    rig.commit();
    EXPECT_DEATH(open_table(rig, type),
                 std::string("Opening table ") + type.name + " in create mode while not holding a write lock");
    EXPECT_NE(type.open(rig, rig.txn(), "t", 1, &rig.err), nullptr) << "a reader needs no lock";
  }
}

}  // namespace
}  // namespace table_test

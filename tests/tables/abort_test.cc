// Tests of what an aborted transaction leaves of a database: every byte as it was, but for what is made once and for
// all.
#include "tests/database_picture.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

// Everything that can be done to a table, in a new one and in one that is there.
void do_everything(Rig& rig, const TableOps& type, const std::vector<void*>& rows, void* old) {
  const std::uint32_t txn = rig.txn();
  int* err = &rig.err;
  for (const std::uint32_t mode : {0u, 1u, 2u}) {
    void* table = type.open_cr(rig, 0, mode, "new", 77);
    ASSERT_NE(table, nullptr);
    std::vector<void*> records;
    for (unsigned n = 0; n < key_values(type.keys[0].kind); ++n) {
      mt_set_tenant_id(n % 2 ? 8 : 0);
      records.push_back(make_record(rig, type, n == 2 ? 255 : 1, n));
      (n % 3 ? type.insert : type.pkey_insert)(rig, txn, table, records.back(), err);
    }
    type.remove_cr(rig, table, records[0], 1);
    void* cursor = kvtdb_cursor_open(rig, txn, table, 1, err);
    type.insert(rig, txn, table, make_record(rig, type, 9, 1), err);
    type.request_destroy(rig, txn, table, records[1], err);
    int kind = 0;
    while (kvtdb_cursor_next(rig, txn, cursor, &kind, err)) continue;
    kvtdb_cursor_close(rig, txn, cursor, err);
    type.pkey_remove(rig, txn, table, records[2], err);
    if (mode == 1) type.request_free(rig, txn, table, err);
    if (mode == 2) type.free(rig, txn, table, err);
  }
  type.remove_cr(rig, old, rows[0], 1);
  type.request_destroy(rig, txn, old, rows[1], err);
  type.add_ref(rig, txn, rows[2], err);
  type.request_destroy(rig, txn, old, rows[2], err);
  kvtdb_cursor_open(rig, txn, old, 1, err);
  type.insert(rig, txn, old, make_record(rig, type, 3, 0), err);
  kvtgc_collect(rig, txn, err);
  EXPECT_EQ(*err, 0);
}

using Abort = EveryTable;
TEST_P(Abort, LeavesEveryByte) {
  const TableOps& type = GetParam();
  Rig rig(Kind::kDatabase, KVT_STTR_ON);
  // Some rows, with holes between them.
  void* table = nullptr;
  std::vector<void*> rows;
  auto set_up = [&] {
    rows.clear();
    std::vector<void*> holes;
    table = open_table(rig, type, "old");
    for (unsigned n = 0; n < 3; ++n) {
      mt_set_tenant_id(n == 1 ? 8 : 0);
      holes.push_back(make_record(rig, type, 1, n));
      rows.push_back(make_record(rig, type, 1, n));
      type.insert(rig, rig.txn(), table, rows.back(), &rig.err);
    }
    for (void* hole : holes) type.destroy(rig, rig.txn(), hole, &rig.err);
  };
  rig.begin();
  set_up();
  do_everything(rig, type, rows, table);
  rig.abort();  // types and the root of numbers have been made now
  rig.begin();
  set_up();
  rig.commit();

  const std::string key = std::string("__kvt_TBI__") + type.luid_text;
  void* root = rig->key_get(rig->store, rig.txn(), key.c_str());
  ASSERT_NE(root, nullptr);
  const std::uint64_t next = at<std::uint64_t>(root, 8);
  const std::string before = database_picture(rig.path());
  rig.begin();
  do_everything(rig, type, rows, table);
  EXPECT_NE(picture_difference(database_picture(rig.path()), before), "");
  rig.abort();
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(picture_difference(database_picture(rig.path()), before), "");
  // The root is no transaction's; it goes on.
  EXPECT_EQ(at<std::uint64_t>(root, 8), next + 2);
  rig.begin();
  EXPECT_EQ(at<std::uint64_t>(type.open_auto_id(rig, rig.txn(), 0, &rig.err), 264), next + 2);
  rig.commit();
  for (std::size_t k = 0; k < type.keys.size(); ++k) EXPECT_EQ(check_index(type, table, k), 0);
  EXPECT_EQ(record_count(table), 3u);
}

INSTANTIATE_TEST_SUITE_P(Tables, Abort, testing::ValuesIn(kTables), table_name);

}  // namespace
}  // namespace table_test

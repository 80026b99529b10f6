// Tests of what an aborted transaction leaves of a database: every byte that it can reach as it was, but for what is
// made once and for all.
#include <cstddef>
#include <map>

#include "platform/database.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

// All bytes of the mapped file that mean something: not the undo log, nor the inside of memory that is free.
class Picture {
 public:
  explicit Picture(Rig& rig) {
    void* list = kvtlib_database_table_toc_get(rig, rig.txn(), &rig.err);
    const char* base = static_cast<char*>(list) - offsetof(kvt::StoreRoots, tables) - kvt::kRootsAt;
    const auto* header = reinterpret_cast<const kvt::DatabaseHeader*>(base);
    const auto* roots = reinterpret_cast<const kvt::StoreRoots*>(base + kvt::kRootsAt);
    EXPECT_EQ(header->segment_size, kvt::kSegmentSize);
    add(0, base + kvt::kRootsAt, sizeof *roots);
    first_ = kvt_ref_of(base);
    add(kvt::kFirstPermanentAt, base + kvt::kFirstPermanentAt, kvt::kSegmentSize - kvt::kFirstPermanentAt);
    for (std::uint32_t place = kvt::kSegmentSize; place < header->segments * kvt::kSegmentSize;) {
      const std::uint32_t segment = place / kvt::kSegmentSize;
      if (header->kinds[segment] == kvt::Segment::kHeap) {
        // A block's header tells its size, and whether it is in use; a free one has the links of its list.
        const auto word = at<std::uint32_t>(base, place);
        const std::uint32_t size = word & ~7u;
        const bool wild = first_ + place == roots->heap.top;
        add(place, base + place, word & 1 ? size : wild ? 8 : 16);
        place += size;
        continue;
      }
      place = segment * kvt::kSegmentSize;
      if (header->kinds[segment] == kvt::Segment::kPermanent) add(place, base + place, kvt::kSegmentSize);
      place += kvt::kSegmentSize;
    }
  }
  // Where the pictures differ, without the places that may.
  std::string difference(const Picture& other, const std::map<std::uint32_t, std::uint32_t>& but = {}) const {
    std::string text;
    int left = 10;
    for (const auto& [at, word] : words_) {
      const auto theirs = other.words_.find(at);
      if (theirs != other.words_.end() && theirs->second == word) continue;
      const auto allowed = but.upper_bound(at);
      if (allowed != but.begin() && at < std::prev(allowed)->first + std::prev(allowed)->second) continue;
      if (left-- > 0) text += std::to_string(at) + " ";
    }
    return text + (words_.size() == other.words_.size() ? "" : "sizes differ");
  }
  std::uint32_t place(const void* at) const { return kvt_ref_of(at) - first_; }

 private:
  void add(std::uint32_t key, const char* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; i += 8) words_[key + static_cast<std::uint32_t>(i)] = std::string(bytes + i, 8);
  }
  std::uint32_t first_;                         // reference of the file's first byte
  std::map<std::uint32_t, std::string> words_;  // by place in the file; the roots at 0
};

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
  const Picture before(rig);
  rig.begin();
  do_everything(rig, type, rows, table);
  EXPECT_NE(Picture(rig).difference(before), "");
  rig.abort();
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(Picture(rig).difference(before, {{before.place(root), 24}}), "");
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

// Tests of the care for a database: what is damaged is found and said, what can be told from the rest is mended, and
// copies come back.
#include "kvt/care.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <random>

#include "platform/avl_node.h"
#include "platform/database.h"
#include "platform/heap_format.h"
#include "platform/oid.h"
#include "platform/table_blocks.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

using kvt::RecordBlock;
using kvt::TableObject;

class Care : public testing::Test {
 protected:
  static constexpr unsigned kRecords = 40;

  Care() : rig_(Kind::kDatabase, KVT_STTR_ON) {
    rig_.begin();
    table_ = open_table(rig_, ops_);
    for (unsigned n = 0; n < kRecords; ++n) {
      void* record = make_record(rig_, ops_, n == 3 ? 255 : 1, n);
      mt_set_tenant_id(n % 5 == 4);
      ops_.insert(rig_, rig_.txn(), table_, record, &rig_.err);
      records_.push_back(record);
    }
    mt_set_tenant_id(0);
    queue_ = static_cast<kvt_timer_queue*>(wlan_timer_queue_init(rig_, rig_.txn(), &rig_.err));
    for (const unsigned n : {6, 7, 8})
      st_wlan_ref_cleanup_timer_timer_set(rig_, rig_.txn(), queue_, payload(n), 60, 0, 0, 0, nullptr, &rig_.err);
    kvt_handle_to_oid(rig_, rig_.txn(), record_payload(ops_, records_[1]), 2, 1, &rig_.err);
    void* freed = rig_->store_alloc(rig_->store, rig_.txn(), 4000);
    rig_->store_alloc(rig_->store, rig_.txn(), 16);
    rig_.commit();
    rig_.begin();
    rig_->store_free(rig_->store, rig_.txn(), freed);
    rig_.commit();
    auto* list = kvtlib_database_table_toc_get(rig_, rig_.txn(), &rig_.err);
    base_ = reinterpret_cast<char*>(list) - offsetof(kvt::StoreRoots, tables) - kvt::kRootsAt;
    roots_ = reinterpret_cast<kvt::StoreRoots*>(base_ + kvt::kRootsAt);
  }
  std::uint32_t check() {
    lines_.clear();
    return kvtdb_check(rig_, add_line, &lines_, &rig_.err);
  }
  std::uint32_t repair() { return kvtdb_repair(rig_, add_line, &lines_, &rig_.err); }
  static void add_line(void* text, const char* line) { *static_cast<std::string*>(text) += std::string(line) + "\n"; }
  RecordBlock* record(unsigned n) { return static_cast<RecordBlock*>(records_[n]); }
  char* payload(unsigned n) { return static_cast<char*>(record_payload(ops_, records_[n])); }
  TableObject* table() { return static_cast<TableObject*>(table_); }
  std::uint32_t* index_words(unsigned key) { return reinterpret_cast<std::uint32_t*>(table() + 1) + 2 * key; }
  kvt::AvlNode* node(unsigned n, unsigned key) { return reinterpret_cast<kvt::AvlNode*>(record(n) + 1) + key; }
  // A node below which there is one on either side.
  kvt::AvlNode* root(unsigned key) { return kvt::avl_at(index_words(key)[0]); }
  std::uint32_t* chunk(void* block) { return static_cast<std::uint32_t*>(block) - 2; }
  kvt_vstring* name(unsigned n) {
    return static_cast<kvt_vstring*>(ops_.keys[1].field(rig_, rig_.txn(), payload(n), &rig_.err));
  }

  const TableOps& ops_ = table_named("tbl_apgroup_wlan");
  Rig rig_;
  void* table_;
  kvt_timer_queue* queue_;
  std::vector<void*> records_;
  char* base_;
  kvt::StoreRoots* roots_;
  std::string lines_;
};

// A word that is changed, what is said of it, and whether it can be mended from the rest.
TEST_F(Care, DamageIsFoundSaidAndMended) {
  ASSERT_EQ(check(), 0u) << lines_;
  const struct {
    const char* what;
    std::function<std::uint32_t*()> word;
    std::uint32_t flip;
    const char* said;
    bool mendable;
    unsigned left = kRecords;  // records, when it is mended
  } kDamages[] = {
      {"record's type", [&] { return &record(7)->type_record; }, 0x40, "its type", true, kRecords - 1},
      {"record's table", [&] { return &record(7)->table; }, 8, "another table", true},
      {"references gone", [&] { return &record(7)->ref_count; }, 1, "no reference", true},
      {"mark of membership", [&] { return &record(7)->record_flags; }, 1, "not marked", true},
      {"payload", [&] { return reinterpret_cast<std::uint32_t*>(node(7, 3)); }, 0x10, "payload", true, kRecords - 1},
      {"payload's type", [&] { return reinterpret_cast<std::uint32_t*>(payload(7)); }, 8, "its type is not st_wlan",
       true, kRecords - 1},
      {"text's place", [&] { return &name(12)->text; }, 8, "profile_name", true,
       kRecords - 1},  // the empty name is taken
      {"text's length", [&] { return &name(12)->length; }, 0x100, "bytes of text", true, kRecords - 1},
      {"left link", [&] { return &root(1)->link[0]; }, 0x100, "index profile_name", true},
      {"right link of the first index", [&] { return &root(0)->link[1]; }, 0x800, "index wlan_id", true},
      {"balance", [&] { return &root(2)->link[0]; }, 1, "out of balance", true},
      {"node's word", [&] { return &node(9, 2)->word; }, 2, "index ssid", true},
      {"root", [&] { return &index_words(1)[0]; }, 0x40, "its root", true},
      {"count of an index", [&] { return &index_words(2)[1]; }, 3, "counted", true},
      {"count of records", [&] { return &table()->record_count; }, 1, "records, counted 40", true},
      {"count of shadows", [&] { return &table()->shadow_count; }, 2, "shadow records", true},
      {"pending ones", [&] { return &table()->pending_destroy_count; }, 1, "wait to be destroyed", true},
      {"primary-only mark", [&] { return &record(7)->record_flags; }, 0x10, "primary index alone", true},
      {"table's type", [&] { return &table()->type_record; }, 8, "no table's", false},
      {"list of tables", [&] { return &table()->toc_prev; }, 8, "not linked back", true},
      {"end of the list", [&] { return &roots_->tables.last_link; }, 8, "ends elsewhere", true},
      {"contents", [&] { return static_cast<std::uint32_t*>(kvt_ref_at(roots_->contents_entries)) + 1; }, 16,
       "not a table of the list", true},
      {"chunk's size", [&] { return chunk(payload(7)); }, 0x20, "chunk", false},
      {"size of the chunk before", [&] { return chunk(payload(7)) + 1; }, 8, "chunk before it", false},
      {"a free list's head", [&] { return &roots_->heap.bins[kvt::bin_of(4008)]; }, 0x100, "free list", true},
      {"a free list's bit", [&] { return reinterpret_cast<std::uint32_t*>(&roots_->heap.filled[1]); }, 4, "free list",
       true},
      {"wilderness", [&] { return &roots_->heap.top; }, 0x10, "wilderness", true},
      {"card of the heap",
       [&] { return reinterpret_cast<std::uint32_t*>(base_ + kvt::kCardsAt) + kvt::kSegmentSize / 4096 / 2; }, 2,
       "card", true},
      {"root of timers", [&] { return &queue_->root; }, 0x100, "is no timer of it", true},
      {"due time of a timer", [&] { return static_cast<std::uint32_t*>(kvt_ref_at(queue_->root)) + 4; }, 0x400000,
       "its timers do not stand in order", true},
      {"objects to destroy", [&] { return &roots_->oids_due; }, 0x100, "is not marked as one", true},
      {"list of timers' trees", [&] { return &roots_->timer_trees; }, 0x8, "timers: ", true},
      {"side data", [&] { return &roots_->sides.count; }, 1, "side data", false},
      {"identity's object",
       [&] {
         auto* words = static_cast<std::uint32_t*>(kvt_ref_at(roots_->oids.entries));
         while (!*words) words += 2;
         return static_cast<std::uint32_t*>(kvt_ref_at(words[1]));
       },
       8, "its entry is that of", false},
      {"a name's text",
       [&] {
         std::uint32_t* chain = roots_->permanent_keys;
         while (!*chain) ++chain;
         return static_cast<std::uint32_t*>(kvt_ref_at(*chain)) + 4;
       },
       1, "text does not belong", false},
  };
  for (const auto& damage : kDamages) {
    SCOPED_TRACE(damage.what);
    const std::string before(base_ + kvt::kRootsAt, kvt::kLogAt - kvt::kRootsAt);
    const std::string heap(base_ + kvt::kSegmentSize, kvt::kSegmentSize);
    std::uint32_t* word = damage.word();
    const std::uint32_t sound = *word;
    *word ^= damage.flip;
    EXPECT_NE(check(), 0u);
    EXPECT_NE(lines_.find(damage.said), std::string::npos) << lines_;
    EXPECT_EQ(rig_.take_error(), 0);
    const std::uint32_t left = repair();
    EXPECT_EQ(rig_.take_error(), 0);
    EXPECT_EQ(left == 0, damage.mendable) << lines_;
    if (damage.mendable) {
      EXPECT_EQ(check(), 0u) << lines_;
      EXPECT_EQ(table()->record_count, damage.left);
    }
    *word = sound;
    std::memcpy(base_ + kvt::kRootsAt, before.data(), before.size());
    std::memcpy(base_ + kvt::kSegmentSize, heap.data(), heap.size());
    ASSERT_EQ(check(), 0u) << lines_;
  }
}

// Whatever stands in the file, a look at it ends, and a repair leaves it no worse.
TEST_F(Care, RandomDamageIsSurvived) {
  std::mt19937 random(20);
  const std::string before(base_ + kvt::kRootsAt, kvt::kLogAt - kvt::kRootsAt);
  const std::string heap(base_ + kvt::kSegmentSize, kvt::kSegmentSize);
  const std::uint32_t used = roots_->heap.top - kvt_ref_of(base_) - kvt::kSegmentSize;
  unsigned found = 0;
  for (int round = 0; round < 1500; ++round) {
    for (unsigned i = 0; i <= random() % 4; ++i) {
      char* at = random() % 4 ? base_ + kvt::kSegmentSize + random() % used / 4 * 4
                              : reinterpret_cast<char*>(roots_) + random() % sizeof *roots_ / 4 * 4;
      auto* word = reinterpret_cast<std::uint32_t*>(at);
      switch (random() % 3) {
        case 0:
          *word ^= 1u << random() % 32;
          break;
        case 1:
          *word = random();
          break;
        default:  // leads somewhere else in the file
          *word = kvt_ref_of(base_) + kvt::kSegmentSize + random() % used / 8 * 8;
      }
    }
    const std::uint32_t faults = check();
    found += faults != 0;
    rig_.err = 0;
    if (faults && round % 4 == 0) {
      EXPECT_LE(repair(), faults) << lines_;
    }
    rig_.err = 0;
    std::memcpy(base_ + kvt::kRootsAt, before.data(), before.size());
    std::memcpy(base_ + kvt::kSegmentSize, heap.data(), heap.size());
  }
  EXPECT_GT(found, 1000u);
  EXPECT_EQ(check(), 0u) << lines_;
}

TEST_F(Care, BackupsComeBack) {
  const std::string copy = std::string(rig_->db_name) + ".copy";
  char message[256];
  const auto restore = [&] {
    kvtdb_restore(rig_, copy.c_str(), message, sizeof message, &rig_.err);
    return rig_.take_error();
  };
  kvtdb_backup(rig_, copy.c_str(), &rig_.err);
  ASSERT_EQ(rig_.take_error(), 0);
  struct stat status;
  ASSERT_EQ(stat(copy.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  kvtdb_backup(rig_, copy.c_str(), &rig_.err);
  EXPECT_EQ(rig_.take_error(), EEXIST);
  // Larger and smaller than the backup in turn, so that segments come and go.
  for (const bool larger : {true, false}) {
    rig_.begin();
    for (void* record : records_) {
      ops_.remove(rig_, rig_.txn(), table_, record, &rig_.err);
      ops_.destroy(rig_, rig_.txn(), record, &rig_.err);
    }
    for (unsigned n = 0; larger && n < 1500; ++n) {
      ops_.insert(rig_, rig_.txn(), table_, make_record(rig_, ops_, 1, n), &rig_.err);
    }
    rig_.commit();
    ASSERT_EQ(check(), 0u) << lines_;
    ASSERT_EQ(restore(), 0) << message;
    EXPECT_EQ(check(), 0u) << lines_;
    EXPECT_EQ(ops_.count(rig_, rig_.txn(), table_), kRecords);
  }
  // A backup with a damaged record, and a file of another database.
  std::fstream file(copy, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(reinterpret_cast<char*>(&record(5)->ref_count) - base_);
  file.put(0);
  file.close();
  EXPECT_EQ(restore(), EINVAL);
  EXPECT_STREQ(message, "what it holds is damaged");
  EXPECT_EQ(check(), 0u) << lines_;
  file.open(copy, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(offsetof(kvt::DatabaseHeader, identity));
  file.put(static_cast<char>(base_[offsetof(kvt::DatabaseHeader, identity)] ^ 1));
  file.close();
  EXPECT_EQ(restore(), EINVAL);
  EXPECT_STREQ(message, "it is no backup of this database");
}

TEST_F(Care, UnusedSpaceGoesBackAndComesAgain) {
  std::vector<void*> more;
  const auto grow = [&] {
    rig_.begin();
    for (unsigned n = 100; n < 1600; ++n) {
      more.push_back(make_record(rig_, ops_, 1, n));
      ops_.insert(rig_, rig_.txn(), table_, more.back(), &rig_.err);
    }
    rig_.commit();
  };
  kvtdb_info full, less;
  for (int round = 0; round < 2; ++round) {
    grow();
    kvtdb_get_info(rig_, &full, &rig_.err);
    EXPECT_EQ(full.records, kRecords + 1500);
    EXPECT_EQ(check(), 0u) << lines_;
    rig_.begin();
    for (void* record : more) {
      ops_.remove(rig_, rig_.txn(), table_, record, &rig_.err);
      ops_.destroy(rig_, rig_.txn(), record, &rig_.err);
    }
    more.clear();
    rig_.commit();
    kvtdb_get_info(rig_, &full, &rig_.err);
    const std::uint64_t bytes = kvtdb_compact(rig_, &rig_.err);
    kvtdb_get_info(rig_, &less, &rig_.err);
    EXPECT_GE(bytes, 1u << 20);
    EXPECT_EQ(less.file, full.file - bytes);
    EXPECT_EQ(std::filesystem::file_size(rig_->db_name), less.file);
    EXPECT_EQ(check(), 0u) << lines_;
  }
  EXPECT_EQ(rig_.take_error(), 0);
}

TEST_F(Care, FilesOfOthersAreRefused) {
  const std::string path = std::string(rig_->db_name);
  const std::string folder = std::filesystem::path(path).parent_path();
  char message[256];
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.message = message;
  options.message_size = sizeof message;
  const auto open = [&](const std::string& name) {
    int err = 0;
    options.key_file = (folder + "/db.key").c_str();
    const std::string key = folder + "/db.key";
    options.key_file = key.c_str();
    kvt_handle_close(kvt_handle_open_database(name.c_str(), &options, &err));
    return err;
  };
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  EXPECT_EQ(open(path), EACCES);
  EXPECT_NE(std::string(message).find("open to other users"), std::string::npos) << message;
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  std::filesystem::create_symlink(path, folder + "/link");
  EXPECT_EQ(open(folder + "/link"), 0) << message;
  ASSERT_EQ(chmod(folder.c_str(), 01777), 0);
  EXPECT_EQ(open(folder + "/link"), EACCES);
  EXPECT_NE(std::string(message).find("symbolic link"), std::string::npos) << message;
  EXPECT_EQ(open(path), 0) << message;
}

}  // namespace
}  // namespace table_test

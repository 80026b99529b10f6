// No room, or a disk that takes nothing: an error code, and the last committed state.
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>

#include "kvt/care.h"
#include "platform/database.h"
#include "tests/crash/recorder.h"
#include "tests/tables/rig.h"

namespace crash {
namespace {

using table_test::Kind;
using table_test::Rig;

// A database with some records, and room in its file for a few more.
class Full : public testing::TestWithParam<int> {
 protected:
  Full() : rig_(Kind::kDatabase) {
    kvtdb_set_durability(rig_, GetParam(), &rig_.err);
    rig_.begin();
    table_ = table_test::open_table(rig_, type_);
    block_ = static_cast<char*>(rig_->store_alloc(rig_->store, rig_.txn(), kBlock));
    std::memset(block_, 'a', kBlock);
    rig_.commit();
    EXPECT_EQ(insert(20), 0);
  }
  ~Full() override { room_error = sync_error = 0; }
  // One transaction; what its commit says. Stops at the first error of an insert.
  int insert(unsigned count) {
    rig_.begin();
    unsigned n = 0;
    for (; n < count && !rig_.err; n++) {
      void* record = type_.create(rig_, rig_.txn(), &rig_.err);
      void* payload = record ? type_.payload_create(rig_, rig_.txn()) : nullptr;
      if (!payload) break;
      table_test::set_key(rig_, type_.keys[0], payload, next_ + n);
      type_.set_field(rig_, rig_.txn(), record, payload);
      type_.insert(rig_, rig_.txn(), table_, record, &rig_.err);
    }
    const bool whole = n == count && !rig_.take_error();
    rig_.err = 0;
    return whole ? end(count) : (rig_.abort(), rig_.take_error() ? EIO : ENOMEM);
  }
  // Changes the block, byte by byte so that nothing is logged together, as a caller that looks at no error.
  int rewrite(std::uint32_t length) {
    rig_.begin();
    for (std::uint32_t i = 0; i < length; i++) {
      rig_->set_range(rig_, block_ + i, 1, rig_.txn(), nullptr);
      block_[i]++;
    }
    return end(0);
  }
  int remove_all() {
    rig_.begin();
    int* err = &rig_.err;
    for (void* at = type_.pkey_first(rig_, rig_.txn(), table_, err); at && !*err;
         at = type_.pkey_first(rig_, rig_.txn(), table_, err)) {
      type_.remove(rig_, rig_.txn(), table_, at, err);
      type_.destroy(rig_, rig_.txn(), at, err);
    }
    *err = 0;
    return end(0u - records_);
  }
  int end(unsigned more) {
    rig_.commit();
    const int error = rig_.take_error();
    if (!error) records_ += more;
    if (!error) next_ += more;
    return error;
  }
  void expect_committed(char filled) {
    room_error = sync_error = 0;
    std::string lines;
    const auto add = [](void* text, const char* line) { *static_cast<std::string*>(text) += line; };
    EXPECT_EQ(kvtdb_check(rig_, add, &lines, &rig_.err), 0u) << lines;
    EXPECT_EQ(rig_.take_error(), 0);
    EXPECT_EQ(type_.count(rig_, rig_.txn(), table_), records_);
    EXPECT_EQ(block_[0], filled);
    EXPECT_EQ(block_[kBlock - 1], 'a');
  }
  int in_child(const std::function<void()>& body) {
    const pid_t child = fork();
    if (!child) {
      body();
      _exit(testing::Test::HasFailure());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
  }

  static constexpr std::uint32_t kBlock = 700 * 1024;
  const table_test::TableOps& type_ = table_test::table_named("tbl_wlan_ifid");
  Rig rig_;
  void* table_;
  char* block_;
  unsigned records_ = 0, next_ = 0;
};

TEST_P(Full, ADiskThatIsFullIsAnErrorAndRecordsCanStillBeDeleted) {
  const bool machine = GetParam() == KVT_DURABILITY_MACHINE;
  room_error = ENOSPC;
  EXPECT_EQ(rewrite(1000), 0) << "the log has some room";
  constexpr std::uint32_t kNearTheEnd = (kvt::kFirstPermanentAt - kvt::kLogAt) / 24 - 50;
  EXPECT_EQ(rewrite(machine ? 0 : kNearTheEnd), machine ? 0 : ENOSPC);
  expect_committed('b');
  room_error = ENOSPC;
  int error = 0;
  while (!(error = insert(500))) EXPECT_LT(records_, 100'000u);
  EXPECT_EQ(error, ENOMEM);
  expect_committed('b');
  room_error = ENOSPC;
  EXPECT_EQ(insert(100'000), ENOMEM);
  EXPECT_EQ(remove_all(), machine || records_ < 200 ? 0 : ENOSPC) << "of many at once";
  expect_committed('b');
  EXPECT_EQ(remove_all(), 0);
  room_error = ENOSPC;
  EXPECT_EQ(insert(500), 0) << "what was freed is there again";
  expect_committed('b');
}

TEST_P(Full, WhoIgnoresEveryErrorIsStoppedBeforeTheLogEnds) {
  if (GetParam() == KVT_DURABILITY_MACHINE) rewrite(1);
  const int status = in_child([&] {
    room_error = ENOSPC;
    Rig* rig = &rig_;
    rig->begin();
    for (std::uint32_t i = 0; i < 5 * kBlock; i++) {
      rig->operator->()->set_range(*rig, block_ + i * 37 % kBlock, 1 + i / kBlock, rig->txn(), nullptr);
      block_[i * 37 % kBlock] = 'z';
    }
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  expect_committed(GetParam() == KVT_DURABILITY_MACHINE ? 'b' : 'a');
}

TEST_P(Full, LimitsOfTheProcessAreErrors) {
  const std::string path = rig_->db_name;
  EXPECT_EQ(in_child([&] {
              const rlimit file = {std::filesystem::file_size(path), RLIM_INFINITY}, space = {1 << 20, RLIM_INFINITY};
              const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
              setrlimit(RLIMIT_FSIZE, &file);
              int error = 0;
              while (!(error = insert(500))) continue;
              EXPECT_EQ(error, ENOMEM);
              expect_committed('a');
              kvtdb_backup(rig_, (path + ".copy").c_str(), &error);
              EXPECT_EQ(error, ENOMEM) << "sticky";
              const rlimit less = {100, RLIM_INFINITY};
              setrlimit(RLIMIT_FSIZE, &less);
              error = 0;
              kvtdb_backup(rig_, (path + ".copy").c_str(), &error);
              EXPECT_EQ(error, EFBIG);
              kvt_handle_options options;
              kvt_handle_options_init(&options);
              options.create = 1;
              const auto open = [&] { return kvt_handle_open_database((path + ".other").c_str(), &options, &error); };
              EXPECT_EQ(open(), nullptr);
              EXPECT_EQ(error, EFBIG);
              setrlimit(RLIMIT_FSIZE, &none);
              setrlimit(RLIMIT_AS, &space);
              EXPECT_EQ(open(), nullptr);
              EXPECT_EQ(error, ENOMEM);
            }),
            0);
  records_ = type_.count(rig_, rig_.txn(), table_);
  expect_committed('a');
}

TEST_P(Full, ADiskThatTakesNothingIsAnErrorOnlyForWhoWaitsForIt) {
  const bool machine = GetParam() == KVT_DURABILITY_MACHINE;
  sync_error = EIO;
  EXPECT_EQ(rewrite(1), machine ? EIO : 0);
  expect_committed(machine ? 'a' : 'b');
  sync_error = EIO;
  EXPECT_EQ(insert(1) != 0, machine);
  expect_committed(machine ? 'a' : 'b');
  EXPECT_EQ(insert(1), 0);
}

INSTANTIATE_TEST_SUITE_P(Durability, Full, testing::Values(KVT_DURABILITY_PROCESS, KVT_DURABILITY_MACHINE));

}  // namespace
}  // namespace crash

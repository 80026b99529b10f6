// Tests of readers beside a writer that never rests: they end, they live, and what they take for true is true.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <random>

#include "kvt/read.h"
#include "tests/tables/rig.h"

namespace table_test {
namespace {

constexpr unsigned kIds = 400;

std::string name_of(unsigned id, unsigned version) {
  return std::to_string(id * 7919 % 1000) + "/" + std::to_string(version);
}

struct Base {
  explicit Base(const std::string& path) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    handle = kvt_handle_open_database(path.c_str(), &options, &err);
  }
  ~Base() { kvt_handle_close(handle); }
  operator kvt_handle*() const { return handle; }
  int err = 0;
  kvt_handle* handle;
};

// Records come, go and change in transactions that are committed, aborted, or partly taken back.
void write_for_ever(const std::string& path, unsigned seed) {
  Base base(path);
  std::mt19937 dice(seed);
  for (;;) {
    const std::uint32_t txn = kvtdb_txn_begin(base, &base.err);
    void* table = tbl_wlan_table_open(base, txn, "t", 0, &base.err);
    const std::uint32_t mark = kvtdb_savepoint(base, txn, &base.err);
    for (unsigned step = dice() % 8; step--;) {
      const std::uint32_t id = 1 + dice() % kIds;
      void* record = tbl_wlan_st_wlan_wlan_id_search(base, txn, table, &id, &base.err);
      if (record) {
        tbl_wlan_delete(base, txn, table, record, &base.err);
        tbl_wlan_destroy_record(base, txn, record, &base.err);
      } else {
        record = tbl_wlan_create_record(base, txn, &base.err);
        void* payload = st_wlan_create(base, txn);
        const std::string name = name_of(id, dice() % 100);
        st_wlan_wlan_id_set_value(base, txn, payload, id, &base.err);
        kvt_vstring_assign(base, txn, st_wlan_profile_name_get(base, txn, payload, &base.err), name.data(), name.size(),
                           &base.err);
        tbl_wlan_st_wlan_set_field(base, txn, record, payload);
        tbl_wlan_insert(base, txn, table, record, &base.err);
      }
      if (base.err) _exit(3);
    }
    const unsigned end = dice() % 4;
    if (end == 0) kvtdb_rollback_to(base, txn, mark, &base.err);
    end == 1 ? kvtdb_txn_abort(base, txn, &base.err) : kvtdb_txn_commit(base, txn, &base.err);
  }
}

// What one section sees: the table by number and by name, and one search. 0: not valid; 1: one state; else a mixture.
int read_once(Base& base, std::uint32_t wanted) {
  kvt_handle* h = base;
  const std::uint32_t g = kvtdb_read_begin(h, &base.err);
  void* table = tbl_wlan_table_open(h, KVT_NO_TXN, "t", 1, &base.err);
  std::map<std::uint32_t, std::string> seen;
  std::uint32_t by_name = 0, count = 0, before = 0;
  bool mixed = false;
  char text[64];
  const auto read = [&](void* record) {
    void* payload = tbl_wlan_st_wlan_get_field(h, KVT_NO_TXN, record);
    const std::uint32_t id = st_wlan_wlan_id_get_value(h, KVT_NO_TXN, payload, &base.err);
    if (kvtdb_read_text(h, st_wlan_profile_name_get(h, KVT_NO_TXN, payload, &base.err), text, sizeof text) < 0)
      mixed = true;
    base.err = 0;  // of a payload that went away
    return id;
  };
  if (table) {
    count = tbl_wlan_table_get_count(h, KVT_NO_TXN, table);
    for (void* at = tbl_wlan_st_wlan_wlan_id_get_first(h, KVT_NO_TXN, table, &base.err); at && kvtdb_read_valid(h, g);
         at = tbl_wlan_st_wlan_wlan_id_get_next(h, KVT_NO_TXN, table, at, &base.err)) {
      const std::uint32_t id = read(at);
      mixed |= id <= before || std::string(text).rfind(name_of(id, 0).substr(0, name_of(id, 0).size() - 1), 0) != 0;
      seen[before = id] = text;
    }
    std::string name_before;
    for (void* at = tbl_wlan_st_wlan_profile_name_get_last(h, KVT_NO_TXN, table, &base.err);
         at && kvtdb_read_valid(h, g);
         at = tbl_wlan_st_wlan_profile_name_get_prev(h, KVT_NO_TXN, table, at, &base.err)) {
      mixed |= seen[read(at)] != text || (by_name++ && !(text < name_before));
      name_before = text;
    }
    void* found = tbl_wlan_st_wlan_wlan_id_search(h, KVT_NO_TXN, table, &wanted, &base.err);
    mixed |= (found != nullptr) != (seen.count(wanted) != 0) || (found && read(found) != wanted);
  }
  mixed |= seen.size() != count || by_name != count;
  return !kvtdb_read_end(h, g) ? 0 : mixed ? 2 : 1;
}

TEST(Guard, ReadersBesideARestlessWriterSeeOneStateOrNone) {
  char directory[] = "/tmp/zarn_guard_XXXXXX";
  ASSERT_TRUE(mkdtemp(directory));
  const std::string path = std::string(directory) + "/db";
  { Base base(path); }
  const auto start = [](auto body) {
    const pid_t child = fork();
    if (!child) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the test ends early
      _exit((body(), 0));
    }
    return child;
  };
  const auto stop = [](pid_t child) {
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  };
  unsigned seed = 1;
  const auto start_writer = [&] { return start([&] { write_for_ever(path, seed++); }); };
  const auto start_reader = [&] {
    return start([&] {
      Base base(path);
      for (std::uint32_t i = 0;; ++i) {
        if (read_once(base, 1 + i % kIds) > 1 || base.err) _exit(1);
      }
    });
  };
  pid_t writer = start_writer(), readers[2] = {start_reader(), start_reader()};
  int valid = 0, mixed = 0;
  {
    Base base(path);
    std::mt19937 dice(5);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    for (std::uint32_t i = 0; std::chrono::steady_clock::now() < end; ++i) {
      const int result = read_once(base, 1 + i % kIds);
      valid += result == 1;
      mixed += result == 2;
      if (dice() % 200 == 0) {
        pid_t& victim = readers[dice() % 2];
        ASSERT_TRUE(stop(victim)) << "a reader ended by itself";
        victim = start_reader();
      }
      if (dice() % 300 == 0) {
        ASSERT_TRUE(stop(writer)) << "the writer ended by itself";
        writer = start_writer();
      }
    }
  }
  EXPECT_TRUE(stop(writer) && stop(readers[0]) && stop(readers[1]));
  EXPECT_GT(valid, 10);
  EXPECT_EQ(mixed, 0);
  // Dead readers and writers hold nothing for ever: a record takes about 2.5 KB.
  {
    Base base(path);
    for (int i = 0; i < 20; ++i) kvtdb_txn_commit(base, kvtdb_txn_begin(base, &base.err), &base.err);
    EXPECT_EQ(kvtdb_check(
                  base, [](void*, const char* line) { ADD_FAILURE() << line; }, nullptr, &base.err),
              0u);
    kvtdb_info info{};
    kvtdb_get_info(base, &info, &base.err);
    EXPECT_LT(info.heap_used, kIds * 3000u);
  }
  std::filesystem::remove_all(directory);
}

}  // namespace
}  // namespace table_test

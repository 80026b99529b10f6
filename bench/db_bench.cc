// A database beside its users: what the guard of a reader costs, how much readers get done with a busy writer and
// without one, and what a commit costs beside SQLite and LMDB with the same promise, that it survives the death of
// processes. Argument: seconds for each line of the second part (1).
#include <lmdb.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <zarn_wlan/zarn_wlan.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <new>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "zarn_tag_common/zarn_tag_common.h"

namespace {

constexpr std::uint32_t kRecords = 4096;
constexpr int kRounds = 15;

void expect(bool good, const char* what) {
  if (good) return;
  std::fprintf(stderr, "zarn_db_bench: %s\n", what);
  std::exit(1);
}

double processor_time() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Nanoseconds for each of `steps` steps of the best round.
template <class F>
double best(std::size_t steps, F f) {
  double least = std::numeric_limits<double>::infinity();
  for (int round = 0; round < kRounds; ++round) {
    const double begin = processor_time();
    f();
    least = std::min(least, processor_time() - begin);
  }
  return least * 1e9 / static_cast<double>(steps);
}

std::string text_of(std::uint32_t id) { return "profile-of-the-campus-" + std::to_string(id * 7919 % 100003); }

// Two tables, one ordered by a number and one by a text.
class Tables {
 public:
  // `path` is a database's; without it the store is private.
  explicit Tables(const char* path) {
    kvt_handle_options options;
    kvt_handle_options_init(&options);
    options.create = 1;
    h = path ? kvt_handle_open_database(path, &options, &err) : kvt_handle_open_private(&options, &err);
    expect(h, "no store");
    open(1);
    if (!numbers) fill();
  }
  ~Tables() { kvt_handle_close(h); }
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  void* number(std::uint32_t id) {
    return tbl_wlan_ifid_st_wlan_ifid_wlan_id_search(h, KVT_NO_TXN, numbers, &id, &err);
  }
  void* text(const void* key) {
    return tbl_wlan_profile_assoicated_tag_st_profile_assoicated_tag_tag_name_search(h, KVT_NO_TXN, texts, key, &err);
  }
  void change(std::uint32_t id, std::uint32_t value) {
    const std::uint32_t txn = kvtdb_txn_begin(h, &err);
    void* payload = tbl_wlan_ifid_st_wlan_ifid_get_field(h, txn, number(id));
    st_wlan_ifid_wlan_ifid_set_value(h, txn, payload, value, &err);
    kvtdb_txn_commit(h, txn, &err);
  }

  int err = 0;
  kvt_handle* h;
  void *numbers = nullptr, *texts = nullptr;

 private:
  void open(std::uint32_t type, std::uint32_t txn = KVT_NO_TXN) {
    numbers = tbl_wlan_ifid_table_open(h, txn, "bench", type, &err);
    texts = tbl_wlan_profile_assoicated_tag_table_open(h, txn, "bench", type, &err);
  }
  void fill() {
    const std::uint32_t txn = kvtdb_txn_begin(h, &err);
    open(0, txn);
    std::vector<std::uint32_t> ids(kRecords);
    std::iota(ids.begin(), ids.end(), 1);
    std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
    for (std::uint32_t id : ids) {
      void* record = tbl_wlan_ifid_create_record(h, txn, &err);
      void* payload = st_wlan_ifid_create(h, txn);
      st_wlan_ifid_wlan_id_set_value(h, txn, payload, id, &err);
      tbl_wlan_ifid_st_wlan_ifid_set_field(h, txn, record, payload);
      tbl_wlan_ifid_insert(h, txn, numbers, record, &err);
      record = tbl_wlan_profile_assoicated_tag_create_record(h, txn, &err);
      payload = st_profile_assoicated_tag_create(h, txn);
      kvt_vstring_assign(h, txn, st_profile_assoicated_tag_tag_name_get(h, txn, payload, &err), text_of(id).data(),
                         text_of(id).size(), &err);
      tbl_wlan_profile_assoicated_tag_st_profile_assoicated_tag_set_field(h, txn, record, payload);
      tbl_wlan_profile_assoicated_tag_insert(h, txn, texts, record, &err);
    }
    kvtdb_txn_commit(h, txn, &err);
    expect(!err, "no tables");
  }
};

// Keys to search for, in no order.
struct Keys {
  Keys() : handle(kvt_handle_open_private(nullptr, &err)), ids(8192) {
    texts = static_cast<kvt_vstring*>(kvt_cage_alloc(ids.size() * sizeof *texts));
    std::fill_n(texts, ids.size(), kvt_vstring{});
    std::mt19937 random(2);
    for (std::size_t i = 0; i < ids.size(); ++i) {
      ids[i] = 1 + static_cast<std::uint32_t>(random() % kRecords);
      kvt_vstring_assign(handle, 0, &texts[i], text_of(ids[i]).data(), text_of(ids[i]).size(), &err);
    }
    expect(!err, "no keys");
  }
  int err = 0;
  kvt_handle* handle;
  std::vector<std::uint32_t> ids;
  kvt_vstring* texts;
};

enum class Guard { kNone, kEach };

double search(Tables& tables, const Keys& keys, bool by_text, Guard guard) {
  const std::size_t n = keys.ids.size();
  std::size_t found = 0;
  const double time = best(n, [&] {
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint32_t g = guard == Guard::kEach ? kvtdb_read_begin(tables.h, &tables.err) : 0;
      found += (by_text ? tables.text(&keys.texts[i]) : tables.number(keys.ids[i])) != nullptr;
      if (guard == Guard::kEach && !kvtdb_read_end(tables.h, g)) found = 0;
    }
  });
  expect(found == n * kRounds && !tables.err, "a search found nothing");
  return time;
}

// ---- Readers and a writer, each a process

struct Board {  // shared by all
  std::atomic<bool> go, stop;
  std::atomic<std::uint64_t> good, again, commits;
};

void measure_readers(const std::string& path, int readers, bool with_writer, double seconds) {
  void* shared = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Board& board = *new (shared) Board{};
  std::vector<pid_t> children;
  for (int i = 0; i < readers + with_writer; ++i) {
    if (const pid_t child = fork()) {
      children.push_back(child);
      continue;
    }
    Tables tables(path.c_str());
    std::mt19937 random(static_cast<unsigned>(i));
    std::uint64_t good = 0, again = 0;
    while (!board.go) usleep(100);
    if (i == readers) {
      for (std::uint32_t n = 0; !board.stop; ++n, ++good) tables.change(1 + random() % kRecords, n);
      board.commits = good;
      _exit(tables.err);
    }
    while (!board.stop) {
      const std::uint32_t id = 1 + random() % kRecords;
      for (bool valid = false; !valid && !board.stop;) {
        const std::uint32_t g = kvtdb_read_begin(tables.h, &tables.err);
        const void* record = tables.number(id);
        valid = kvtdb_read_end(tables.h, g);
        expect(!valid || record, "a record is missed");
        ++(valid ? good : again);
      }
    }
    board.good += good;
    board.again += again;
    _exit(tables.err);
  }
  usleep(100000);
  board.go = true;
  usleep(static_cast<useconds_t>(seconds * 1e6));
  board.stop = true;
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    expect(status == 0, "a process failed");
  }
  std::printf("%d readers, %-12s %8.2f million searches a second, %5.2f %% read again, %7.0f commits a second\n",
              readers, with_writer ? "busy writer" : "no writer", static_cast<double>(board.good) / seconds / 1e6,
              100.0 * static_cast<double>(board.again) / static_cast<double>(board.good + board.again),
              static_cast<double>(board.commits) / seconds);
  munmap(shared, sizeof(Board));
}

// ---- Commits of one changed record

constexpr std::uint32_t kCommits = 4096;

double commit_ours(const std::string& path) {
  Tables tables(path.c_str());
  std::uint32_t n = 0;
  const double time = best(kCommits, [&] {
    for (std::uint32_t i = 0; i < kCommits; ++i) tables.change(1 + i * 2039 % kRecords, ++n);
  });
  expect(!tables.err, "a commit failed");
  return time;
}

double commit_sqlite(const std::string& path) {
  sqlite3* db = nullptr;
  sqlite3_stmt* change = nullptr;
  const auto run = [&](const char* sql) {
    expect(!sqlite3_exec(db, sql, nullptr, nullptr, nullptr), sqlite3_errmsg(db));
  };
  expect(!sqlite3_open(path.c_str(), &db), "no SQLite");
  run("PRAGMA journal_mode=WAL");
  run("PRAGMA synchronous=OFF");
  run("CREATE TABLE t(id INTEGER PRIMARY KEY, v INTEGER)");
  run("BEGIN");
  for (std::uint32_t i = 1; i <= kRecords; ++i) run(("INSERT INTO t VALUES(" + std::to_string(i) + ", 0)").c_str());
  run("COMMIT");
  expect(!sqlite3_prepare_v2(db, "UPDATE t SET v = ?2 WHERE id = ?1", -1, &change, nullptr), "no statement");
  int n = 0;
  const double time = best(kCommits, [&] {
    for (std::uint32_t i = 0; i < kCommits; ++i) {
      sqlite3_bind_int(change, 1, static_cast<int>(1 + i * 2039 % kRecords));
      sqlite3_bind_int(change, 2, ++n);
      expect(sqlite3_step(change) == SQLITE_DONE, "a commit of SQLite failed");
      sqlite3_reset(change);
    }
  });
  sqlite3_finalize(change);
  sqlite3_close(db);
  return time;
}

double commit_lmdb(const std::string& path) {
  MDB_env* env = nullptr;
  MDB_dbi dbi = 0;
  expect(!mdb_env_create(&env) && !mdb_env_set_mapsize(env, 64 << 20) &&
             !mdb_env_open(env, path.c_str(), MDB_NOSUBDIR | MDB_NOSYNC | MDB_WRITEMAP, 0600),
         "no LMDB");
  std::uint32_t n = 0;
  const auto put = [&](MDB_txn* txn, std::uint32_t id) {
    MDB_val key = {sizeof id, &id}, value = {sizeof n, &n};
    expect(!mdb_put(txn, dbi, &key, &value, 0), "a put of LMDB failed");
  };
  MDB_txn* txn = nullptr;
  expect(!mdb_txn_begin(env, nullptr, 0, &txn) && !mdb_dbi_open(txn, nullptr, MDB_INTEGERKEY, &dbi),
         "no table in LMDB");
  for (std::uint32_t i = 1; i <= kRecords; ++i) put(txn, i);
  expect(!mdb_txn_commit(txn), "no records in LMDB");
  const double time = best(kCommits, [&] {
    for (std::uint32_t i = 0; i < kCommits; ++i) {
      expect(!mdb_txn_begin(env, nullptr, 0, &txn), "no transaction of LMDB");
      ++n;
      put(txn, 1 + i * 2039 % kRecords);
      expect(!mdb_txn_commit(txn), "a commit of LMDB failed");
    }
  });
  mdb_env_close(env);
  return time;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 1;
  char directory[] = "/tmp/zarn_db_bench_XXXXXX";
  expect(seconds > 0 && mkdtemp(directory), "usage: zarn_db_bench [SECONDS]");
  const std::string at = directory, path = at + "/db";
  {
    const Keys keys;
    Tables shared(path.c_str()), own(nullptr);
    for (const bool by_text : {false, true}) {
      const double privately = search(own, keys, by_text, Guard::kNone);
      const double plain = search(shared, keys, by_text, Guard::kNone);
      const double guarded = search(shared, keys, by_text, Guard::kEach);
      std::printf("search by %-6s private %6.1f ns, database %6.1f ns, under the guard %6.1f ns: ratio %.2f\n",
                  by_text ? "text" : "number", privately, plain, guarded, guarded / privately);
    }
  }
  std::fflush(stdout);
  const double ours = commit_ours(path), sqlite = commit_sqlite(at + "/sqlite"), lmdb = commit_lmdb(at + "/lmdb");
  std::printf("commit %.0f ns, SQLite %.0f ns (%.1f times), LMDB %.0f ns (ratio %.2f)\n", ours, sqlite, sqlite / ours,
              lmdb, ours / lmdb);
  std::fflush(stdout);
  for (const int readers : {2, 4, 8}) {
    for (const bool with_writer : {false, true}) measure_readers(path, readers, with_writer, seconds);
    std::fflush(stdout);
  }
  std::filesystem::remove_all(at);
  return 0;
}

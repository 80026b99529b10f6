// Tests of databases: the file, its lock, transactions and what a dead writer leaves. Processes are real ones.
#include "platform/database.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include "kvt/care.h"
#include "kvt/table.h"
#include "tests/database_picture.h"

namespace {

class DatabaseFile : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/kvt_database_XXXXXX";
    ASSERT_TRUE(mkdtemp(name));
    directory = name;
    path = directory + "/db";
    kvt_handle_options_init(&options);
    options.create = 1;
    options.message = message;
    options.message_size = sizeof message;
  }
  void TearDown() override { std::system(("rm -rf " + directory).c_str()); }

  kvt_handle* open(const std::string& file) {
    err = 0;
    return kvt_handle_open_database(file.c_str(), &options, &err);
  }
  kvt_handle* open() { return open(path); }
  std::uint32_t begin(kvt_handle* h) {
    err = 0;
    return kvtdb_txn_begin(h, &err);
  }
  void commit(kvt_handle* h) { kvtdb_txn_commit(h, h->default_txn, &err); }
  void abort(kvt_handle* h) { kvtdb_txn_abort(h, h->default_txn, &err); }
  static char* alloc(kvt_handle* h, std::uint32_t size) {
    return static_cast<char*>(h->store_alloc(h->store, h->default_txn, size));
  }
  static void put(kvt_handle* h, void* at, std::uint32_t value) {
    ASSERT_EQ(h->set_range(h, at, 4, h->default_txn, nullptr), 1);
    std::memcpy(at, &value, 4);
  }
  // Runs in a process of its own and gives its exit code, or 1000 and the signal that ended it.
  static int in_child(const std::function<int()>& body) {
    pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }
  // The heap's cards are what a walk from chunk to chunk finds.
  static void expect_cards(const void* in_heap) {
    const auto* base = static_cast<const char*>(kvt_ref_at(kvt_ref_of(in_heap) & ~(kvt::kSlotSize - 1)));
    const auto* header = reinterpret_cast<const kvt::DatabaseHeader*>(base);
    std::vector<kvt::HeapCard> cards(kvt::kSlotSize >> kvt::kCardShift);
    for (std::uint32_t at = 0; at < header->segments * kvt::kSegmentSize;) {
      if (header->kinds[at / kvt::kSegmentSize] != kvt::Segment::kHeap) {
        at += kvt::kSegmentSize - at % kvt::kSegmentSize;
        continue;
      }
      std::uint32_t size;
      std::memcpy(&size, base + at, sizeof size);
      kvt::HeapCard& card = cards[at >> kvt::kCardShift];
      size &= ~7u;
      ASSERT_GE(size, 8u);
      if (size > 8 && !card) card = static_cast<kvt::HeapCard>(at % 4096 / 8 + 1);
      at += size;
    }
    ASSERT_EQ(std::memcmp(cards.data(), base + kvt::kCardsAt, cards.size() * sizeof cards[0]), 0);
  }
  std::string directory, path;
  kvt_handle_options options;
  char message[200] = "";
  int err = 0;
};

TEST_F(DatabaseFile, OutsideOfATransactionNothingMayBeWritten) {
  kvt_handle* h = open();
  begin(h);
  char* p = alloc(h, 16);
  commit(h);
  EXPECT_EQ(h->default_txn, KVT_NO_TXN);
  EXPECT_FALSE(kvtlib_database_is_write_locked(h));
  for (std::uint32_t txn : {0u, 1u, KVT_NO_TXN}) {
    EXPECT_EQ(h->set_range(h, p, 4, txn, nullptr), 0) << txn;
    EXPECT_EQ(nadra_set_range(h->store, p, 4, txn), 0) << txn;
    EXPECT_EQ(h->store_alloc(h->store, txn, 16), nullptr) << txn;
    EXPECT_EQ(h->key_put(h->store, txn, "x", p), 0) << txn;
  }
  EXPECT_EQ(h->registry_alloc(h->registry_pool, KVT_NO_TXN, 16), nullptr);
  int foreign = 0;
  EXPECT_EQ(nadra_set_range(&foreign, p, 4, 1), 1) << "a caller's own store decides for itself";
  std::uint32_t txn = begin(h);
  EXPECT_TRUE(kvtlib_database_is_write_locked(h));
  EXPECT_EQ(h->set_range(h, p, 4, txn, nullptr), 1);
  EXPECT_EQ(h->set_range(h, p, 4, KVT_NO_TXN, nullptr), 1);
  EXPECT_EQ(h->set_range(h, p, 4, txn + 1, nullptr), 0);
  kvtdb_txn_commit(h, txn + 1, &err);
  EXPECT_EQ(err, EINVAL);
  // No second transaction of the thread, until the handle that has the first is closed.
  kvt_handle* second = open();
  for (kvt_handle* either : {h, second}) {
    EXPECT_EQ(begin(either), KVT_NO_TXN);
    EXPECT_EQ(err, EDEADLK);
  }
  kvt_handle_close(h);
  begin(second);
  EXPECT_EQ(err, 0);
  kvt_handle_close(second);
}

// Random transactions, each committed, aborted or cut off by the death of its process. What the model holds must be
// there, and nothing else: every byte is as it was, free memory included.
TEST_F(DatabaseFile, RandomTransactionsLeaveTheLastCommittedState) {
  struct Block {
    std::uint32_t size;
    unsigned char fill;
  };
  using Model = std::map<std::uint32_t, Block>;
  Model model;
  std::mt19937 random(99);
  auto play = [&](kvt_handle* h, Model& state, std::uint32_t seed) {
    std::mt19937 dice(seed);
    std::uint32_t steps = dice() % 300;
    std::vector<std::pair<std::uint32_t, Model>> marks;
    for (std::uint32_t i = 0; i < steps; i++) {
      if (dice() % 20 == 0) marks.emplace_back(kvtdb_savepoint(h, h->default_txn, &err), state);
      if (!marks.empty() && dice() % 30 == 0) {
        marks.resize(1 + dice() % marks.size());
        state = marks.back().second;
        kvtdb_rollback_to(h, h->default_txn, marks.back().first, &err);
        for (auto& [at, block] : state) {
          const auto* p = static_cast<const unsigned char*>(kvt_ref_at(at));
          EXPECT_TRUE(p[0] == block.fill && p[block.size - 1] == block.fill && p[block.size / 2] == block.fill);
        }
      }
      std::uint32_t roll = dice() % 10;
      if (roll < 4 || state.empty()) {
        std::uint32_t size = 1 + (dice() % 50 == 0 ? dice() % 400000 : dice() % 3000);
        char* p = alloc(h, size);
        if (!p) continue;
        auto fill = static_cast<unsigned char>(dice());
        std::memset(p, fill, size);  // a new block is filled without a word, as creators of objects do
        state[kvt_ref_of(p)] = {size, fill};
        continue;
      }
      auto it = state.begin();
      std::advance(it, dice() % state.size());
      void* p = kvt_ref_at(it->first);
      if (roll < 8) {
        h->store_free(h->store, h->default_txn, p);
        state.erase(it);
      } else {
        h->set_range(h, p, it->second.size, h->default_txn, nullptr);
        it->second.fill = static_cast<unsigned char>(dice());
        std::memset(p, it->second.fill, it->second.size);
      }
    }
  };
  options.slot = 3;
  kvt_handle *h = open(), *reader = open();
  ASSERT_NE(h, nullptr) << message;
  std::uint32_t section = 0;
  for (int round = 0; round < 100; round++) {
    std::uint32_t seed = random();
    // What is taken back goes another way while somebody reads.
    if (const int turn = static_cast<int>(random() % 4); turn == 0 && !section) {
      section = kvtdb_read_begin(reader, &err) | 1;
    } else if (turn == 1 && section) {
      kvtdb_read_end(reader, std::exchange(section, 0));
    }
    begin(h), commit(h);  // and frees what was held for readers
    const std::string before = section ? "" : database_picture(path);
    int how = static_cast<int>(random() % 3);
    if (how == 2) {
      EXPECT_EQ(in_child([&] {
                  kvt_handle* other = open();
                  begin(other);
                  play(other, model, seed);
                  raise(SIGKILL);
                  return 0;
                }),
                1000 + SIGKILL);
    } else {
      begin(h);
      ASSERT_EQ(err, 0);
      Model state = model;
      play(h, state, seed);
      how ? commit(h) : abort(h);
      if (how) model = state;
    }
    // The state is that of the last commit once a writer has looked at the file.
    begin(h);
    for (auto& [at, block] : model) {
      const auto* p = static_cast<const unsigned char*>(kvt_ref_at(at));
      for (std::uint32_t i = 0; i < block.size; i++)
        ASSERT_EQ(p[i], block.fill) << "round " << round << " kind " << how;
    }
    if (!model.empty()) {
      ASSERT_NO_FATAL_FAILURE(expect_cards(kvt_ref_at(model.begin()->first)));
    }
    commit(h);
    if (how != 1 && !section) {
      ASSERT_EQ(picture_difference(database_picture(path), before), "") << "round " << round;
    }
    ASSERT_EQ(kvtdb_check(
                  h, [](void*, const char* line) { ADD_FAILURE() << line; }, nullptr, &err),
              0u)
        << round;
  }
  kvt_handle_close(reader);
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, ATransactionLargerThanTheLogGrowsItAndStillAborts) {
  kvt_handle* h = open();
  begin(h);
  constexpr std::uint32_t kSize = 12 << 20;
  char* p = alloc(h, kSize);
  ASSERT_NE(p, nullptr);
  std::memset(p, 1, kSize);
  commit(h);
  const std::string before = database_picture(path);
  begin(h);
  for (std::uint32_t i = 0; i < kSize; i += 4096) {
    ASSERT_EQ(h->set_range(h, p + i, 4096, h->default_txn, nullptr), 1);
    std::memset(p + i, 2, 4096);
  }
  abort(h);
  EXPECT_EQ(picture_difference(database_picture(path), before), "");
  // The log stands behind the heap now, so that this begins anew elsewhere, and what was left of it is used as well.
  begin(h);
  for (const std::uint32_t size : {2u << 20, 600000u}) std::memset(alloc(h, size), 3, size);
  abort(h);
  EXPECT_EQ(picture_difference(database_picture(path), before), "");
  begin(h);
  commit(h);
  EXPECT_EQ(picture_difference(database_picture(path), before), "") << "segments that the log gave back";
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, AFullSlotIsAnErrorAndNothingElse) {
  kvt_handle* h = open();
  begin(h);
  int blocks = 0;
  while (char* p = alloc(h, 4 << 20)) {
    p[0] = 1;
    blocks++;
  }
  EXPECT_GT(blocks, 40);
  EXPECT_EQ(alloc(h, 4 << 20), nullptr);
  abort(h);
  begin(h);
  EXPECT_NE(alloc(h, 4 << 20), nullptr) << "abort gave the segments back";
  while (alloc(h, 1 << 20)) continue;
  char* block = alloc(h, 5000);
  commit(h);
  EXPECT_EQ(err, 0);
  begin(h);
  h->store_free(h->store, h->default_txn, block);
  commit(h);
  EXPECT_EQ(err, 0) << "the log has room to give something back";
  begin(h);
  EXPECT_NE(alloc(h, 5000), nullptr);
  commit(h);
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, WhatAnotherProcessCommitsIsSeenThoughTheFileGrew) {
  kvt_handle* h = open();
  begin(h);
  commit(h);
  struct stat file;
  ASSERT_EQ(stat(path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0600u);
  EXPECT_EQ(in_child([&] {
              kvt_handle* other = open();
              begin(other);
              char* p = alloc(other, 5 << 20);
              if (!p) return 1;
              std::memset(p, 7, 5 << 20);
              other->key_put(other->store, other->default_txn, "big", p);
              commit(other);
              kvt_handle_close(other);
              return 0;
            }),
            0);
  auto* p = static_cast<char*>(h->key_get(h->store, KVT_NO_TXN, "big"));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[(5 << 20) - 1], 7);
  EXPECT_EQ(h->key_get(h->store, KVT_NO_TXN, "bi"), nullptr);
  EXPECT_TRUE(kvtlib_db_is_shared());
  kvt_handle_close(h);
  EXPECT_FALSE(kvtlib_db_is_shared());
}

TEST_F(DatabaseFile, WritersTakeTurnsAcrossThreadsAndProcesses) {
  kvt_handle* h = open();
  begin(h);
  auto* counter = reinterpret_cast<std::uint32_t*>(alloc(h, 8));
  *counter = 0;
  h->key_put(h->store, h->default_txn, "counter", counter);
  commit(h);
  kvt_handle_close(h);
  constexpr int kRounds = 300;
  auto count = [this] {
    kvt_handle* mine;
    kvt_handle_options plain;
    kvt_handle_options_init(&plain);
    int error = 0;
    mine = kvt_handle_open_database(path.c_str(), &plain, &error);
    auto* at = static_cast<std::uint32_t*>(mine->key_get(mine->store, KVT_NO_TXN, "counter"));
    for (int i = 0; i < kRounds; i++) {
      std::uint32_t txn = kvtdb_txn_begin(mine, &error);
      mine->set_range(mine, at, 4, txn, nullptr);
      std::uint32_t value = *at;
      if (i % 16 == 0) std::this_thread::yield();
      *at = value + 1;
      i % 3 == 0 ? kvtdb_txn_abort(mine, txn, &error) : kvtdb_txn_commit(mine, txn, &error);
    }
    kvt_handle_close(mine);
  };
  pid_t children[2];
  for (pid_t& child : children) {
    child = fork();
    if (child == 0) {
      count();
      _exit(0);
    }
  }
  std::thread a(count), b(count);
  a.join();
  b.join();
  for (pid_t child : children) waitpid(child, nullptr, 0);
  h = open();
  counter = static_cast<std::uint32_t*>(h->key_get(h->store, KVT_NO_TXN, "counter"));
  EXPECT_EQ(*counter, 4u * kRounds * 2 / 3);
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, NamesOfPermanentMemoryOutliveAnAbort) {
  kvt_handle* h = open();
  begin(h);
  char* plain = alloc(h, 16);
  void* permanent = h->store_alloc(h->store, KVT_NO_TXN, 24);
  h->key_put(h->store, h->default_txn, "plain", plain);
  h->key_put(h->store, h->default_txn, "permanent", permanent);
  abort(h);
  EXPECT_EQ(h->key_get(h->store, KVT_NO_TXN, "plain"), nullptr);
  EXPECT_EQ(h->key_get(h->store, KVT_NO_TXN, "permanent"), permanent);
  begin(h);
  h->store_free(h->store, KVT_NO_TXN, permanent);
  EXPECT_EQ(h->store_alloc(h->store, KVT_NO_TXN, 24), permanent);
  plain = alloc(h, 16);
  h->key_put(h->store, h->default_txn, "permanent", plain);
  EXPECT_EQ(h->key_get(h->store, KVT_NO_TXN, "permanent"), plain) << "the newer value counts";
  commit(h);
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, RefusesWhatItCannotRead) {
  kvt_handle_close(open());
  std::ifstream in(path, std::ios::binary);
  std::string good((std::istreambuf_iterator<char>(in)), {});
  std::string version = good, header = good, magic = good;
  version[8] = 7;
  header[12] ^= 1;
  magic[0] = 'z';
  struct Case {
    std::string bytes, message;
  } cases[] = {
      {"", "is not a database"},
      {magic, "is not a database"},
      {version, "has format version 7, this library reads 2"},
      {good.substr(0, 100), "is cut short"},
      {good.substr(0, good.size() - 1), "is cut short"},
      {header, "has a damaged header"},
  };
  for (const Case& c : cases) {
    std::string file = directory + "/bad";
    std::ofstream(file, std::ios::binary) << c.bytes;
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    EXPECT_EQ(open(file), nullptr) << c.message;
    EXPECT_EQ(err, EINVAL) << c.message;
    EXPECT_NE(std::string(message).find(c.message), std::string::npos) << message;
  }
  EXPECT_EQ(open(directory), nullptr);
  EXPECT_EQ(err, EINVAL);
  options.create = 0;
  EXPECT_EQ(open(directory + "/none"), nullptr);
  EXPECT_EQ(err, ENOENT);
}

// What a dead writer left, with one word of the header or of the newest log entry changed: no transaction begins, and
// no byte changes.
TEST_F(DatabaseFile, ALogThatLeadsAstrayIsNotFollowed) {
  options.slot = 3;
  ASSERT_EQ(in_child([&] {
              kvt_handle* h = open();
              begin(h);
              char* block = alloc(h, 64);
              commit(h);
              begin(h);
              put(h, block, 1);
              alloc(h, 64);
              return 0;
            }),
            0);
  std::ifstream in(path, std::ios::binary);
  const std::string good((std::istreambuf_iterator<char>(in)), {});
  const auto word = [&](std::size_t at) {
    std::uint32_t value;
    std::memcpy(&value, good.data() + at, sizeof value);
    return value;
  };
  const std::uint32_t base = kvt::kDatabaseBegin + 3 * kvt::kSlotSize, entry = word(28) - base;
  ASSERT_GE(entry, kvt::kLogAt);
  std::uint32_t wipe = entry;  // the entry without bytes, of memory that was free
  constexpr std::uint32_t kWipe = 0x80000000;
  while (!(word(wipe + 4) & kWipe)) wipe = word(wipe + 8) - base;
  const struct Case {
    const char* name;
    std::size_t at;
    std::uint32_t value;
  } cases[] = {
      {"log outside the slot", 28, base + kvt::kSlotSize},
      {"log behind the end of the file", 28, base + kvt::kSlotSize - 64},
      {"log in the header", 28, base + 8},
      {"log in the heap", 28, base + kvt::kSegmentSize + 8},
      {"log at an odd place", 28, base + entry + 4},
      {"entry that covers the header", entry, base + 24},
      {"entry that covers the log", entry, base + entry},
      {"entry outside the slot", entry, 8},
      {"entry behind the end of the file", entry, base + kvt::kSlotSize - 4},
      {"entry longer than the log", entry + 4, kvt::kSegmentSize},
      {"entry without bytes", entry + 4, 0},
      {"free memory in the roots", wipe, base + kvt::kRootsAt},
      {"free memory outside the slot", wipe, 8},
      {"free memory behind the end of the file", wipe + 4, kWipe | kvt::kSlotSize},
      {"free memory without length", wipe + 4, kWipe},
      {"ring of entries", entry + 8, base + entry},
      {"entry before in the heap", entry + 8, base + kvt::kSegmentSize + 8},
      {"permanent memory outside the slot", 36, 8},
      {"permanent memory behind the end of the file", 40, base + kvt::kSlotSize},
      {"unknown kind of segment", 64, 0x05050500},
      {"kind of the first segment", 64, word(64) | 2},
      {"more slots of readers than there are", kvt::kReadersAt, kvt::kReaderSlots + 1},
      {"segment behind the end of the file", 64 + 252, 0x01000000},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bad = good;
    std::memcpy(bad.data() + c.at, &c.value, sizeof c.value);
    std::ofstream(path, std::ios::binary) << bad;
    kvt_handle* h = open();
    ASSERT_NE(h, nullptr) << message;
    EXPECT_EQ(begin(h), KVT_NO_TXN);
    EXPECT_EQ(err, EIO);
    kvt_handle_close(h);
    std::ifstream file(path, std::ios::binary);
    std::string after(std::istreambuf_iterator<char>(file), {});
    const std::size_t lock = kvt::kReadersAt + offsetof(kvt::ReaderArea, lock);
    std::memcpy(after.data() + lock, bad.data() + lock, sizeof(kvt::WriteLockWords));
    EXPECT_TRUE(after == bad);
  }
  std::ofstream(path, std::ios::binary) << good;
  kvt_handle* h = open();
  EXPECT_NE(begin(h), KVT_NO_TXN) << "the log itself is sound";
  kvt_handle_close(h);
}

// Whatever becomes of a block, it is given to nobody else while a reader may stand on it, and to somebody afterwards.
TEST_F(DatabaseFile, MemoryIsNotReusedUnderAReader) {
  constexpr std::uint32_t kSize = 200;
  const auto free_it = [this](kvt_handle* h, char*& block) {
    h->store_free(h->store, h->default_txn, block);
    commit(h);
  };
  const struct Case {
    const char* name;
    bool committed, reader_dies;
    std::function<void(kvt_handle*, char*&)>
        step;  // takes the block away in the open transaction, perhaps with another block in its place
  } cases[] = {
      {"commit", true, false, free_it},
      {"dead reader", true, true, free_it},
      {"free of a new block", false, false, free_it},
      {"abort", false, false, [this](kvt_handle* h, char*&) { abort(h); }},
      {"rollback", false, false,
       [this](kvt_handle* h, char*& p) {
         const std::uint32_t mark = kvtdb_savepoint(h, h->default_txn, &err);
         p = alloc(h, kSize);
         kvtdb_rollback_to(h, h->default_txn, mark, &err);
         commit(h);
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TearDown(), SetUp();
    kvt_handle *h = open(), *reader = open();
    begin(h);
    alloc(h, 3 * kSize);
    char* block = alloc(h, kSize);
    alloc(h, kSize);
    if (c.committed) commit(h), begin(h);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = c.reader_dies ? fork() : 1;
    if (child == 0) {
      kvt_handle* own = open();
      kvtdb_read_begin(own, &err);
      _exit(write(ready[1], "r", 1) == 1 && pause());
    }
    char r;
    const std::uint32_t g =
        c.reader_dies ? static_cast<std::uint32_t>(read(ready[0], &r, 1)) : kvtdb_read_begin(reader, &err);
    c.step(h, block);
    EXPECT_FALSE(kvtdb_read_valid(reader, g));
    const auto is_reused = [&] {
      begin(h);
      bool hit = false;
      for (int i = 0; i < 20; i++) {
        const char* p = alloc(h, kSize);
        hit |= p < block + kSize && block < p + kSize;
      }
      commit(h);
      return hit;
    };
    for (int i = 0; i < 40; i++) ASSERT_FALSE(is_reused()) << i;
    if (c.reader_dies) kill(child, SIGKILL), waitpid(child, nullptr, 0);
    kvtdb_read_end(reader, g);
    bool reused = false;
    for (int i = 0; i < 40 && !reused; i++) reused = is_reused();
    EXPECT_TRUE(reused);
    kvt_handle_close(reader);
    kvt_handle_close(h);
  }
}

// What a reader learns of writers, and the next writer of one that died.
TEST_F(DatabaseFile, GenerationSnapshotAndRecoveryTellOfTheWriter) {
  kvt_handle* h = open();
  begin(h);
  char* block = alloc(h, 64);
  put(h, block, 1);
  h->key_put(h->store, h->default_txn, "block", block);
  commit(h);
  kvt_handle_close(h);
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t writer = 0;
  const auto start_writer = [&] {  // leaves its transaction open
    writer = fork();
    if (!writer) {
      kvt_handle* own = open();
      begin(own);
      put(own, block, 3);
      _exit(write(ready[1], "r", 1) == 1 && pause());
    }
    char r;
    return read(ready[0], &r, 1);
  };
  const auto kill_writer = [&] { kill(writer, SIGKILL), waitpid(writer, nullptr, 0); };
  const auto in_snapshot = [&] {
    options.snapshot = 1;
    kvt_handle* copy = open();
    options.snapshot = 0;
    const auto* p = copy ? static_cast<char*>(copy->key_get(copy->store, KVT_NO_TXN, "block")) : nullptr;
    const int value = p && begin(copy) == KVT_NO_TXN && err == EROFS ? p[0] : 100;
    kvt_handle_close(copy);
    return value;
  };
  start_writer();
  EXPECT_EQ(in_snapshot(), 1) << "beside an open transaction";
  kill_writer();
  EXPECT_EQ(in_snapshot(), 1) << "a copy needs no recovery";
  h = open();
  EXPECT_EQ(block[0], 3);
  kvt_recovery recovery{};
  begin(h);
  EXPECT_TRUE(kvtdb_last_recovery(h, &recovery) && recovery.undone);
  EXPECT_EQ(recovery.process, static_cast<std::uint32_t>(writer));
  commit(h);
  kvt_handle* reader = open();
  const std::uint32_t before = kvtdb_read_begin(reader, &err);
  EXPECT_EQ(begin(h) && kvtdb_last_recovery(h, nullptr), 0);
  EXPECT_TRUE(kvtdb_read_valid(reader, before)) << "nothing has changed yet";
  put(h, block, 2);
  EXPECT_FALSE(kvtdb_read_valid(reader, before));
  EXPECT_FALSE(kvtdb_read_end(reader, kvtdb_read_begin(reader, &err)));
  abort(h);
  EXPECT_FALSE(kvtdb_read_end(reader, before)) << "though the bytes are the same again";
  // Where no writer comes, a reader brings the committed state back.
  start_writer();
  kill_writer();
  bool valid = false;
  for (int i = 0; i < 200 && !valid; i++) valid = kvtdb_read_end(reader, kvtdb_read_begin(reader, &err));
  EXPECT_TRUE(valid && block[0] == 1);
  // A slot for each handle, and no more of them than there are.
  std::vector<kvt_handle*> others;
  while (!err) {
    others.push_back(open());
    kvtdb_read_begin(others.back(), &err);
  }
  EXPECT_EQ(err, EAGAIN);
  EXPECT_EQ(others.size(), kvt::kReaderSlots);
  for (kvt_handle* other : others) kvt_handle_close(other);
  kvt_handle_close(reader);
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, ASlotHoldsOneDatabaseOfAProcess) {
  options.slot = 4;
  std::string other = directory + "/other";
  EXPECT_EQ(in_child([&] { return open(other) ? 0 : 1; }), 0);
  kvt_handle* h = open();
  ASSERT_NE(h, nullptr);
  options.slot = -1;
  EXPECT_EQ(open(other), nullptr);
  EXPECT_EQ(err, EBUSY);
  EXPECT_EQ(message, "database \"" + other + "\" needs slot 4, which database \"" + path + "\" holds in this process");
  kvt_handle_close(h);
  h = open(other);
  EXPECT_NE(h, nullptr) << message;
  kvt_handle_close(h);
}

TEST_F(DatabaseFile, TenDatabasesFitAndTheEleventhIsToldSo) {
  kvt_handle* handles[KVT_DATABASE_SLOTS];
  for (int i = 0; i < KVT_DATABASE_SLOTS; i++) {
    handles[i] = open(path + std::to_string(i));
    ASSERT_NE(handles[i], nullptr) << message;
  }
  EXPECT_EQ(open(path + "x"), nullptr);
  EXPECT_EQ(err, EBUSY);
  for (kvt_handle* h : handles) kvt_handle_close(h);
}

}  // namespace

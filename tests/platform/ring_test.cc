// Tests of the trace as a file, and of reading built files: what was saved comes back, and damaged files are refused.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "kvt/table.h"
#include "platform/trace_ring.h"

namespace kvt_test {
namespace {

namespace fs = std::filesystem;

const std::string kModule = ZARN_BINARY_DIR "/libzarn_wlan.so";
const std::string kRuntime = ZARN_BINARY_DIR "/platform/libkvt.so";

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class Files : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/kvt_ring_XXXXXX";
    ASSERT_TRUE(mkdtemp(name));
    directory_ = name;
  }
  void TearDown() override { fs::remove_all(directory_); }
  std::string at(const std::string& name) const { return directory_ + "/" + name; }
  std::string spill(const std::string& bytes) const {
    std::ofstream(at("file"), std::ios::binary) << bytes;
    return at("file");
  }

 private:
  std::string directory_;
};

// Calls of the runtime's own table: it is loaded from a library, as those of schema modules are.
class Ring : public Files {
 protected:
  void SetUp() override {
    Files::SetUp();
    fenlog_set_level(3);
    nadra_perror(-5);
    const std::uint64_t last = kvt::trace_count() - 1;
    ASSERT_TRUE(kvt::trace_read(last, &call_));
    fenlog_arg arguments[2] = {{FENLOG_TEXT, {}}, {FENLOG_LONG, {}}};
    arguments[0].value.text = "what\nelse";
    arguments[1].value.word = 1ull << 40;
    static const fenlog_table kNowhere = {9, 1, nullptr};
    fenlog_trace(&kNowhere, 4, 0xFFF, KVT_LEVEL_ERROR, 2, arguments);
    ASSERT_EQ(fenlog_save(at("ring").c_str()), 0);
  }
  void TearDown() override {
    fenlog_set_level(6);
    Files::TearDown();
  }
  kvt::RingFile read(const std::string& path) {
    kvt::RingFile ring;
    std::string why;
    EXPECT_TRUE(kvt::read_ring(path, &ring, &why)) << why;
    return ring;
  }
  kvt::TraceEntry call_;
};

TEST_F(Ring, ComesBackWithTablesModulesAndArguments) {
  const kvt::RingFile ring = read(at("ring"));
  ASSERT_GE(ring.calls.size(), 2u);
  EXPECT_EQ(ring.made, kvt::trace_count());
  const kvt::RingCall& known = ring.calls[ring.calls.size() - 2];
  const kvt::RingTable& table = ring.tables[known.table];
  EXPECT_EQ(known.ticket, ring.made - 2);
  EXPECT_EQ(known.entry.index, call_.index);
  EXPECT_EQ(known.entry.level, static_cast<std::uint32_t>(KVT_LEVEL_ERROR));
  EXPECT_EQ(ring.modules.at(known.entry.module - 1), "kvt_store");
  EXPECT_EQ(static_cast<std::int64_t>(known.entry.arguments[0].word), -5);
  EXPECT_TRUE(fs::equivalent(table.path, kRuntime)) << table.path;
  std::vector<kvt::BuiltTable> built;
  std::string why;
  ASSERT_TRUE(kvt::read_message_tables(table.path, &built, &why)) << why;
  const auto home = std::find_if(built.begin(), built.end(), [&](const auto& one) { return one.id == table.id; });
  ASSERT_NE(home, built.end());
  EXPECT_EQ(home->messages.at(known.entry.index).text, "store refused to announce a range: result %d");

  const kvt::RingCall& stray = ring.calls.back();
  EXPECT_EQ(ring.tables[stray.table].number, kvt::kNoTable);
  EXPECT_EQ(ring.tables[stray.table].path, "");
  char line[80];
  kvt::trace_format_as("", 9, stray.entry, line, sizeof line);
  EXPECT_STREQ(line, "message 4 of table 9: what?else, 1099511627776");
}

TEST_F(Ring, IsForItsOwnerAndIsNotWrittenThroughALink) {
  struct stat about;
  ASSERT_EQ(stat(at("ring").c_str(), &about), 0);
  EXPECT_EQ(about.st_mode & 0777, 0600u);
  ASSERT_EQ(symlink(at("target").c_str(), at("link").c_str()), 0);
  EXPECT_EQ(fenlog_save(at("link").c_str()), ELOOP);
  EXPECT_FALSE(fs::exists(at("target")));
  EXPECT_EQ(fenlog_save(at("no/where").c_str()), ENOENT);
  EXPECT_EQ(fenlog_set_file(std::string(5000, 'x').c_str()), EINVAL);
}

TEST_F(Ring, CutShortIsRefusedAtEveryLength) {
  const std::string whole = slurp(at("ring"));
  for (std::size_t size = 0; size < whole.size(); size += size < 400 ? 1 : 97) {
    kvt::RingFile ring;
    std::string why;
    EXPECT_FALSE(kvt::read_ring(spill(whole.substr(0, size)), &ring, &why)) << size;
    EXPECT_EQ(why, size < 8 ? "is no trace ring" : "is cut short") << size;
    EXPECT_TRUE(ring.calls.empty());
  }
  const struct {
    std::string bytes;
    const char* why;
  } others[] = {{whole + '\0', "is damaged"},
                {std::string("KVTRING\n\2\0\0\0", 12), "is a trace ring of version 2, which is not known here"}};
  for (const auto& other : others) {
    kvt::RingFile ring;
    std::string why;
    EXPECT_FALSE(kvt::read_ring(spill(other.bytes), &ring, &why));
    EXPECT_EQ(why, other.why);
  }
}

// Whatever a changed byte does, what is accepted stays within its tables.
TEST_F(Ring, ChangedBytesNeverLeadOutside) {
  const std::string whole = slurp(at("ring"));
  std::mt19937 random(1);
  for (int i = 0; i < 2000; ++i) {
    std::string bytes = whole;
    bytes[random() % std::min<std::size_t>(bytes.size(), 600)] = static_cast<char>(random());
    kvt::RingFile ring;
    std::string why;
    if (!kvt::read_ring(spill(bytes), &ring, &why)) {
      EXPECT_NE(why, "");
      continue;
    }
    for (const kvt::RingCall& call : ring.calls) {
      ASSERT_LT(call.table, ring.tables.size());
      char line[100];
      kvt::trace_format_as("%s %d %u %s %s %s %s %s", 0, call.entry, line, sizeof line);
    }
  }
}

TEST_F(Ring, AFatalStopLeavesIt) {
  struct Case {
    const char* set;  // nullptr: the environment alone
    const char* environment;
    const char* left;  // nullptr: nothing
  } cases[] = {{nullptr, "env", "env"}, {"set", "env", "set"}, {"", "env", nullptr}, {nullptr, nullptr, nullptr}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.set ? c.set : "-") << " " << (c.environment ? c.environment : "-"));
    for (const char* name : {"set", "env"}) fs::remove(at(name));
    EXPECT_EXIT(
        {
          if (c.environment) setenv("FENLOG_FILE", at(c.environment).c_str(), 1);
          if (c.set) fenlog_set_file(*c.set ? at(c.set).c_str() : nullptr);
          bassert(0, "this != that");
        },
        testing::KilledBySignal(SIGABRT), "assertion failed: this != that");
    for (const std::string name : {"set", "env"}) EXPECT_EQ(fs::exists(at(name)), c.left && name == c.left) << name;
    if (!c.left) continue;
    const kvt::RingFile ring = read(at(c.left));
    ASSERT_FALSE(ring.calls.empty());
    EXPECT_EQ(ring.calls.back().entry.level, 0u) << "the line that ended it";
  }
}

TEST_F(Files, OtherThanBuiltOnesAreRefusedInWords) {
  ASSERT_EQ(mkfifo(at("fifo").c_str(), 0600), 0);
  struct Case {
    std::string path, why;
  } cases[] = {{at("missing"), "No such file or directory"},
               {at("."), "Is a directory"},
               {at("fifo"), "is no regular file"},
               {ZARN_SOURCE_DIR "/README.md", "is no ELF file"},
               {spill(""), "is no ELF file"}};
  for (const Case& c : cases) {
    std::vector<kvt::BuiltTable> tables;
    std::vector<kvt::BuiltRecord> records;
    std::string why;
    EXPECT_FALSE(kvt::read_message_tables(c.path, &tables, &why));
    EXPECT_EQ(why, c.why);
    EXPECT_FALSE(kvt::read_build_records(c.path, &records, &why));
    EXPECT_EQ(why, c.why);
  }
}

// Bytes of the file header, of the section table at the end, and of the sections that are read.
TEST_F(Files, DamagedOnesAreReadOrRefusedButNeverTrusted) {
  const std::string whole = slurp(kRuntime);
  ASSERT_GT(whole.size(), 10000u);
  const std::size_t tables_at = whole.find(std::string("\1\0\2\0", 4)), texts_at = whole.rfind("BZh9");
  ASSERT_NE(texts_at, whole.npos);
  std::mt19937 random(2);
  int refused = 0, read = 0;
  for (int i = 0; i < 300; ++i) {
    std::string bytes = whole;
    const std::size_t places[] = {random() % 64, bytes.size() - 1 - random() % 2500, texts_at + random() % 1000,
                                  tables_at == bytes.npos ? 0 : tables_at + random() % 1000};
    bytes[places[i % 4]] = static_cast<char>(random());
    if (i % 10 == 9) bytes.resize(random() % bytes.size());
    const std::string path = spill(bytes);
    std::vector<kvt::BuiltTable> tables;
    std::vector<kvt::BuiltRecord> records;
    std::string why;
    if (kvt::read_message_tables(path, &tables, &why)) {
      ++read;
      EXPECT_FALSE(tables.empty());
    } else {
      ++refused;
      EXPECT_TRUE(tables.empty());
      EXPECT_NE(why, "");
    }
    kvt::read_build_records(path, &records, &why);
  }
  EXPECT_GT(refused, 30);
  EXPECT_GT(read, 30);
}

TEST_F(Files, DamagedTextsAreNeverHandedOut) {
  std::string bytes = slurp(kRuntime);
  const std::size_t at = bytes.rfind("BZh9");
  ASSERT_NE(at, bytes.npos);
  std::vector<kvt::BuiltTable> tables;
  std::string why;
  for (const std::size_t inside : {0u, 10u, 20u, 200u}) {
    std::string changed = bytes;
    changed[at + inside] = static_cast<char>(changed[at + inside] ^ 0x10);
    EXPECT_FALSE(kvt::read_message_tables(spill(changed), &tables, &why)) << inside;
    EXPECT_EQ(why, "section .fenlog_texts is damaged");
  }
}

}  // namespace
}  // namespace kvt_test

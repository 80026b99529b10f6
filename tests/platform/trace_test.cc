// Tests of kvt/trace.h: what the ring keeps, how lines are made, who hears them.
#include "platform/trace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

// Sections as the schema compiler makes them, of a module "trace_test" with one table. The last section is what bzip2
// makes of the five texts in a row.
asm(R"(.pushsection .fenlog.trace_test.42,"a",%progbits
.globl trace_test_messages
.hidden trace_test_messages
trace_test_messages:
.2byte 1,42
.ascii "test's own table"
.4byte 0x3000000; .2byte 5 /* plain */
.4byte 0x3000001; .2byte 14 /* %s is %d of %u */
.4byte 0x3000002; .2byte 26 /* at %p, %llu and %ld, 100%% */
.4byte 0x3000003; .2byte 14 /* three %s %s %s */
.4byte 0x3000004; .2byte 7 /* %x %08x */
.popsection
.pushsection .fenlog_texts,"",%progbits
.byte 0x42,0x5a,0x68,0x39,0x31,0x41,0x59,0x26,0x53,0x59,0xc5,0x75,0x98,0xbb,0x00,0x00,0x1a,0x99,0x80,0x42
.byte 0x04,0x60,0x40,0x27,0x65,0xde,0x40,0x20,0x00,0x48,0xa2,0x6d,0x95,0x37,0xaa,0x62,0x33,0x4d,0x41,0xa9
.byte 0xa3,0x20,0xd1,0xa0,0x34,0x87,0x43,0x97,0x69,0x61,0xa2,0xa7,0xc5,0x39,0xee,0x97,0xa0,0xe1,0x39,0x26
.byte 0xaf,0xd2,0x41,0xb1,0x11,0xf3,0xac,0xda,0x56,0x80,0x19,0xdd,0x24,0x02,0x14,0xc8,0x3f,0xc5,0xdc,0x91
.byte 0x4e,0x14,0x24,0x31,0x5d,0x66,0x2e,0xc0
.popsection
)");
extern "C" [[gnu::visibility("hidden")]] const unsigned char trace_test_messages[];

namespace kvt_test {
namespace {

constexpr fenlog_table kTable = {42, 5, trace_test_messages};

fenlog_arg text(const char* value) {
  fenlog_arg argument{FENLOG_TEXT, {}};
  argument.value.text = value;
  return argument;
}
fenlog_arg word(fenlog_kind kind, std::uint64_t value) {
  fenlog_arg argument{kind, {}};
  argument.value.word = value;
  return argument;
}

class Trace : public testing::Test {
 protected:
  Trace() {
    fenlog_set_level(6);
    fenlog_set_sink(
        [](void* self, std::uint32_t level, const char* line) {
          static_cast<Trace*>(self)->lines_.push_back(line);
          static_cast<Trace*>(self)->levels_.push_back(level);
        },
        this);
  }
  ~Trace() override {
    fenlog_set_sink(nullptr, nullptr);
    fenlog_set_level(6);
  }
  static void trace(std::uint32_t index, const std::vector<fenlog_arg>& arguments = {},
                    std::uint32_t level = KVT_LEVEL_ERROR) {
    fenlog_trace(&kTable, index, 3, level, static_cast<std::uint32_t>(arguments.size()), arguments.data());
  }
  std::vector<std::string> lines_;
  std::vector<std::uint32_t> levels_;
};

TEST_F(Trace, LinesAreFormattedForASink) {
  const struct {
    std::uint32_t index;
    std::vector<fenlog_arg> arguments;
    std::string line;
  } cases[] = {
      {0, {}, "plain"},
      {1, {text("x"), word(FENLOG_WORD, 0xFFFFFFFF), word(FENLOG_WORD, 0xFFFFFFFF)}, "x is -1 of 4294967295"},
      {2,
       {word(FENLOG_ADDRESS, 0xABC), word(FENLOG_LONG, ~0ull), word(FENLOG_SIGNED, ~0ull)},
       "at 0xabc, 18446744073709551615 and -1, 100%"},
      {3, {text(nullptr), text("")}, "three (null)  ?"},
      {3, {text("a\nb\x1B[m"), text("c"), text("d")}, "three a?b?[m c d"},
      {1, {word(FENLOG_WORD, 5), text("seven"), word(FENLOG_WORD, 6)}, "5 is seven of 6"},
      {4, {word(FENLOG_WORD, 255), word(FENLOG_LONG, 1ull << 36)}, "ff 1000000000"},
      {5, {}, "message 5 of table 42"},
      {5,
       {text("a\nb"), word(FENLOG_WORD, ~0ull), word(FENLOG_SIGNED, ~0ull), word(FENLOG_ADDRESS, 16)},
       "message 5 of table 42: a?b, 4294967295, -1, 0x10"},
  };
  for (const auto& c : cases) {
    lines_.clear();
    trace(c.index, c.arguments);
    EXPECT_EQ(lines_, std::vector<std::string>{c.line});
  }
}

// A section that no file has, and none at all: the line tells its numbers, and is asked for again.
TEST_F(Trace, LinesWithoutTextsTellTheirNumbers) {
  const std::string section("\1\0\7\0an unknown table ", 20);
  for (const fenlog_table& table : {fenlog_table{7, 1, section.data()}, fenlog_table{7, 1, nullptr}}) {
    for (int i = 0; i < 2; ++i) {
      lines_.clear();
      const fenlog_arg argument = text("it");
      fenlog_trace(&table, 0, 3, KVT_LEVEL_ERROR, 1, &argument);
      EXPECT_EQ(lines_, std::vector<std::string>{"message 0 of table 7: it"});
    }
  }
}

// All start at once, so that some of them come while the texts are being read. @return lines that came out wrong
int make_lines_at_once() {
  static std::atomic<int> ready{0}, wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      kvt::TraceEntry entry{};
      entry.table = &kTable;
      char line[20];
      for (++ready; ready < 8;) std::this_thread::yield();
      kvt::trace_format(entry, line, sizeof line);
      wrong += std::string(line) != "plain";
    });
  }
  for (std::thread& thread : threads) thread.join();
  return wrong;
}

TEST(TraceTextsDeathTest, AreReadOnceByManyThreads) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";  // a process that has read none yet
  EXPECT_EXIT(_exit(make_lines_at_once()), testing::ExitedWithCode(0), "");
  testing::GTEST_FLAG(death_test_style) = "fast";
}

TEST_F(Trace, TheThresholdDecidesWhatIsKept) {
  for (const unsigned level : {0u, 3u, 6u, 7u, 8u}) {
    fenlog_set_level(level);
    levels_.clear();
    const std::uint64_t before = kvt::trace_count();
    std::uint64_t kept = 0;
    for (const std::uint32_t word : {KVT_LEVEL_ERROR, KVT_LEVEL_NOTICE, KVT_LEVEL_DEBUG, KVT_LEVEL_VERBOSE}) {
      trace(0, {}, word);
      kept += word >> 24 <= level;
      EXPECT_EQ(fenlog_module_test(3, word) != 0, word >> 24 <= level);
    }
    EXPECT_EQ(kvt::trace_count() - before, kept) << level;
    EXPECT_EQ(levels_.size(), kept) << level;
  }
}

TEST_F(Trace, TheRingKeepsCopiesWithoutASink) {
  fenlog_set_sink(nullptr, nullptr);
  std::string long_text(200, 'x');
  trace(1, {text(long_text.c_str()), word(FENLOG_WORD, 1), word(FENLOG_WORD, 2)});
  long_text.assign(200, 'y');
  kvt::TraceEntry entry;
  ASSERT_TRUE(kvt::trace_read(kvt::trace_count() - 1, &entry));
  EXPECT_EQ(entry.table, &kTable);
  EXPECT_EQ(entry.level, static_cast<std::uint32_t>(KVT_LEVEL_ERROR));
  EXPECT_EQ(entry.module, 3u);
  EXPECT_EQ(entry.arguments[0].text, std::string(63, 'x'));
  char line[20];
  kvt::trace_format(entry, line, sizeof line);
  EXPECT_EQ(line, std::string(19, 'x'));
  EXPECT_TRUE(lines_.empty());
}

TEST_F(Trace, TheRingForgetsTheOldest) {
  fenlog_set_sink(nullptr, nullptr);
  const std::uint64_t first = kvt::trace_count();
  for (std::uint64_t i = 0; i <= kvt::kTraceEntries; ++i) trace(1, {text("x"), word(FENLOG_WORD, i)});
  kvt::TraceEntry entry;
  EXPECT_FALSE(kvt::trace_read(first, &entry));
  ASSERT_TRUE(kvt::trace_read(first + 1, &entry));
  EXPECT_EQ(entry.arguments[1].word, 1u);
  ASSERT_TRUE(kvt::trace_read(first + kvt::kTraceEntries, &entry));
  EXPECT_EQ(entry.arguments[1].word, kvt::kTraceEntries);
  EXPECT_FALSE(kvt::trace_read(first + kvt::kTraceEntries + 1, &entry));
}

TEST_F(Trace, ASinkMayTrace) {
  static int depth;
  depth = 0;
  fenlog_set_sink(
      [](void*, std::uint32_t, const char*) {
        ++depth;
        trace(0);
      },
      nullptr);
  trace(0);
  EXPECT_EQ(depth, 1);
}

// A torn entry would join the two arguments of different calls.
TEST_F(Trace, ThreadsDoNotMixTheirEntries) {
  fenlog_set_sink(nullptr, nullptr);
  std::atomic<bool> done{false};
  std::vector<std::thread> writers;
  for (std::uint64_t id = 1; id <= 3; ++id)
    writers.emplace_back([id, &done] {
      for (std::uint64_t i = 0; !done; ++i)
        trace(2, {word(FENLOG_LONG, id << 32 | i), word(FENLOG_LONG, ~(id << 32 | i))});
    });
  const std::uint64_t first = kvt::trace_count();
  while (kvt::trace_count() < first + 1000) std::this_thread::yield();
  int mixed = 0;
  for (int seen = 0; seen < 20000;) {
    kvt::TraceEntry entry;
    if (!kvt::trace_read(kvt::trace_count() - 2, &entry)) continue;
    mixed += entry.arguments[0].word != ~entry.arguments[1].word;
    ++seen;
  }
  done = true;
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(mixed, 0);
}

TEST(TraceModule, OneIdForAName) {
  std::uint16_t id = 0, again = 0, other = 0;
  std::uint32_t state = 0, state_again = 0, state_other = 0;
  fenlog_module_init_fn("kvt_first", &id, &state);
  fenlog_module_init_fn("kvt_second", &other, &state_other);
  fenlog_module_init_fn("kvt_first", &again, &state_again);
  EXPECT_NE(id, 0);
  EXPECT_EQ(id, again);
  EXPECT_NE(id, other);
  fenlog_module_init_fn("kvt_third", &id, &state);
  EXPECT_EQ(id, again) << "a bound module keeps its id";
}

TEST(TraceDeathTest, AFatalLineComesOutAtAnyThreshold) {
  EXPECT_DEATH(
      {
        fenlog_set_level(0);
        const fenlog_arg argument = text("handle");
        fenlog_trace(&kTable, 3, 0, KVT_LEVEL_FATAL, 1, &argument);
        kvt_fatal();
      },
      "three handle \\? \\?");
}

}  // namespace
}  // namespace kvt_test

// Tests of kvt/trace.h: what the ring keeps, how lines are made, who hears them.
#include "platform/trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace kvt_test {
namespace {

const char* const kTexts[] = {"plain", "%s is %d of %u", "at %p, %llu and %ld, 100%%", "three %s %s %s", "%x %08x"};
constexpr fenlog_table kTable = {42, 5, kTexts};

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
  };
  for (const auto& c : cases) {
    lines_.clear();
    trace(c.index, c.arguments);
    EXPECT_EQ(lines_, std::vector<std::string>{c.line});
  }
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

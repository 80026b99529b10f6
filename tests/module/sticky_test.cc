// Tests of the error slot: with it set nothing comes of a call, for every operation of every type; and of the failure
// object, which is safe for the same reason.
#include "calls.h"
#include "journal.h"

namespace module_test {
namespace {

constexpr int kPending = 77, kOfCaller = 5;

// What a call with a set slot gives; for most it is 0, and nothing is heard.
struct Exception {
  std::uintptr_t result = 0;
  std::vector<std::string> lines;
};

Exception exception_of(const Call& call, Bench& b, const void* failure) {
  const std::string& op = call.op;
  if (op == "post_copyout_cleanup") return {word(b.rig.h), {}};
  if (op == "get_oid_count") return {0, {"trace 3 Error already present in call to get object oid count"}};
  if (op == "get_object_references") {
    return {0, {"trace 3 Error present in call to get table references from object"}};
  }
  if (op == "create_cr") return {word(failure), {"report failure+0 in null", "dirty failure+0"}};
  if (op == "toxml_cr" || op == "print_cr") return {static_cast<std::uintptr_t>(-1), {}};
  if (op == "set_cr") return {kPending, {}};
  if (op == "is_valid_cr") return {1, {}};
  if (b.subject.family == Family::kStruct && op == "get") return {word(b.object), {"report object+0 in null"}};
  return {};
}

TEST(StickySlot, StopsEveryOperationOfEveryType) {
  Rig rig(Tracking::kOn);
  rig.h->mode = 1;
  rig.h->containment = 1;
  std::size_t stopped = 0;
  for (const Subject& subject : all_subjects()) {
    Bench bench(rig, subject);
    Journal journal(rig);
    const std::uint32_t whole = rig.blocks[bench.object];
    rig.h->last_error = kPending;
    auto* failure = static_cast<char*>(fn<void*(H)>(subject.name + "_create_cr")(rig.h));
    journal.name(failure, subject.size, "failure");
    journal.name(bench.object, whole, "object");
    journal.watch(bench.object, "object");
    journal.watch(bench.other, "other");
    const std::size_t blocks = rig.blocks.size();
    std::strcpy(bench.message, "untouched");
    const std::vector<std::uint64_t> outs(bench.outs.size(), 0xEEEEEEEEEEEEEEEE);
    bench.outs = outs;
    std::ranges::fill(bench.room, '\xCC');
    for (const Call& call : bench.calls) {
      // The only one that has no slot to look at and takes one all the same.
      const bool deaf = subject.family == Family::kStruct && call.op == "get";
      if (call.errors == Errors::kNone && !deaf) continue;
      ++stopped;
      int err = kOfCaller;
      rig.h->last_error = kPending;
      journal.begin();
      const std::uintptr_t result = call.run(&err);
      journal.end();
      const Exception expected = exception_of(call, bench, failure);
      if (result <= 0xFFFFFFFF || expected.result <= 0xFFFFFFFF) {
        EXPECT_EQ(static_cast<std::uint32_t>(result), static_cast<std::uint32_t>(expected.result)) << call.name;
      } else {
        EXPECT_EQ(result, expected.result) << call.name;
      }
      EXPECT_EQ(journal.lines({}), expected.lines) << call.name;
      EXPECT_EQ(journal.stray, "") << call.name;
      EXPECT_EQ(err, kOfCaller) << call.name;
      EXPECT_EQ(rig.h->last_error, kPending) << call.name;
      EXPECT_EQ(rig.blocks.size(), blocks) << call.name;
    }
    EXPECT_STREQ(bench.message, "untouched") << subject.name;
    EXPECT_EQ(bench.outs, outs) << subject.name;
    EXPECT_EQ(bench.room.find_first_not_of('\xCC'), std::string::npos) << subject.name;
  }
  EXPECT_GT(stopped, 276u * 4);
}

// The handle's last error as the slot: what a chain without a slot of its own does after a create that failed.
TEST(FailureObject, OfEveryTypeGoesUnharmedThroughAChain) {
  Rig rig(Tracking::kOn);
  rig.h->mode = 1;
  std::set<const void*> failures;
  for (const Subject& subject : all_subjects()) {
    Bench bench(rig, subject);
    rig.fail_after = 0;
    auto* failure = static_cast<char*>(fn<void*(H)>(subject.name + "_create_cr")(rig.h));
    rig.fail_after = -1;
    EXPECT_EQ(rig.h->last_error, 12) << subject.name;
    EXPECT_TRUE(failures.insert(failure).second) << subject.name << ": each type has its own";
    Journal journal(rig);
    char* const object = std::exchange(bench.object, failure);
    journal.begin();
    for (const Call& call : bench.calls) {
      const bool destroy = call.op.starts_with("destroy");
      if (call.errors == Errors::kNone && !destroy) continue;
      const std::uintptr_t result = call.run(&rig.h->last_error);
      if (call.op == "create_cr") {
        EXPECT_EQ(result, word(failure)) << call.name;
      }
      EXPECT_EQ(rig.h->last_error, 12) << call.name;
    }
    journal.end();
    std::erase_if(journal.events, [](const auto& e) { return e.what == "trace" || e.what == "dirty"; });
    EXPECT_TRUE(journal.events.empty()) << subject.name << ": " << journal.events[0].what;
    EXPECT_EQ(std::string(failure, subject.size), std::string(subject.size, '\0')) << subject.name;
    bench.object = object;
    rig.h->last_error = 0;
  }
}

}  // namespace
}  // namespace module_test

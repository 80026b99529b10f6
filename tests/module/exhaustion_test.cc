// Tests of a store that runs out of memory in the middle: of every operation that gives strings content, on every type,
// at every allocation.
#include "calls.h"

namespace module_test {
namespace {

const std::set<std::string> kAllocating = words("f_set set post_copyout_cleanup unmarshal from_xml");

std::vector<Slot> strings_of(const Type& type, char* object) {
  std::vector<Slot> strings = slots_of(type, object);
  std::erase_if(strings, [](const Slot& slot) { return kind_of(*slot.field) != Kind::kString; });
  return strings;
}

// The strings that a call gives content, in its order: all, or those of one field.
std::vector<Slot> strings_of(const Call& call, const Type& type, char* object) {
  std::vector<Slot> strings = strings_of(type, object);
  if (!call.field) return strings;
  const std::string path = type.name + "." + call.field->name;
  std::erase_if(strings, [&](const Slot& slot) { return slot.path != path && !slot.path.starts_with(path + "."); });
  return strings;
}

// What becomes of a string that cannot be had. After a raw copy it is empty, else it keeps what it held.
bool left_empty(const Call& call, const Slot& slot, const char* object) {
  if (call.op == "set") return true;
  if (call.op == "post_copyout_cleanup") return slot.object != object;
  return call.op == "f_set" && kind_of(*call.field) == Kind::kStruct;
}

// One failure stops a reader; a copy goes on with the next string.
bool goes_on(const Call& call) { return call.op != "unmarshal" && call.op != "from_xml"; }

TEST(Exhaustion, InAnyOperationLeavesEveryStringOneOwnerAndTheRestWhole) {
  int failures = 0;
  for (const Subject& subject : all_subjects()) {
    if (subject.family != Family::kStruct) continue;
    const Type& type = *subject.type;
    Rig rig(Tracking::kOn);
    {
      Bench bench(rig, subject);
      const Contents first = contents_of(type, bench.object), second = contents_of(type, bench.other);
      const std::size_t string_count = strings_of(type, bench.object).size();
      for (const Call& call : bench.calls) {
        if (!kAllocating.count(call.op)) continue;
        const std::vector<Slot> touched = strings_of(call, type, bench.object);
        for (std::size_t n = 0; n < touched.size(); ++n) {
          SCOPED_TRACE(call.name + ", allocation " + std::to_string(n));
          ++failures;
          bench.prepare(call);
          fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, bench.object, 0);
          fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, bench.other, 9);
          rig.fail_after = static_cast<int>(n);
          call.run(&rig.err);
          rig.fail_after = -1;
          EXPECT_EQ(rig.h->last_error, 12);
          EXPECT_EQ(rig.take_err(), 12);
          EXPECT_EQ(contents_of(type, bench.other), second);
          std::size_t filled = string_count;
          for (std::size_t i = 0; i < touched.size(); ++i) {
            const std::string& path = touched[i].path;
            std::string expected = i < n || (i > n && goes_on(call)) ? second.at(path) : first.at(path);
            if (i == n && left_empty(call, touched[i], bench.object)) expected.clear();
            EXPECT_EQ(content_of(touched[i]), expected) << path;
            filled -= expected.empty();
          }
          EXPECT_EQ(rig.blocks.size(), 2 + string_count + filled) << "lost, or owned twice";
          // A setter's mark comes whatever became of the content.
          if (call.field) {
            EXPECT_EQ(bench.block_of(bench.object)[call.field->state], 2);
          }
          if (call.op == "set") {
            EXPECT_EQ(std::string(bench.block_of(bench.object), subject.block), std::string(subject.block, '\11'));
          }
          if (testing::Test::HasFailure()) return;
          bench.fill_object(bench.object, 1);
        }
      }
    }
    EXPECT_TRUE(rig.blocks.empty()) << subject.name;
  }
  EXPECT_GT(failures, 400);
}

}  // namespace
}  // namespace module_test

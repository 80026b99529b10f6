// Tests of the order and the hash of objects: every field counts, the first difference decides, headers and states do
// not.
#include "rig.h"

namespace module_test {
namespace {

TEST(Compare, EveryFieldOfEveryTypeTellsTwoObjectsApart) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    const auto compare = fn<Compare>(type.name + "_compare");
    const auto hash = fn<Hash>(type.name + "_hash");
    char* a = rig.make(type);
    char* b = rig.make(type);
    EXPECT_EQ(compare(a, b), 0) << type.name;
    fill(rig, type, a, 1);
    fill(rig, type, b, 1);
    fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, b, 1);
    b[4] = 0;
    b[6] |= KVT_OBJ_EMBEDDED;
    const std::uint32_t before = hash(a, 7);
    EXPECT_NE(hash(a, 6), before) << type.name;
    EXPECT_EQ(hash(b, 7), before) << type.name << ": header or states count";
    EXPECT_EQ(compare(a, b), 0) << type.name << ": header or states count";
    b[4] = b[5];
    std::uint64_t number = 0;
    for (const Slot& slot : slots_of(type, b)) {
      ++number;
      if (kind_of(*slot.field) == Kind::kStruct) continue;
      if (kind_of(*slot.field) == Kind::kTimer) {
        slot.at()[0] ^= 1;
      } else {
        fill_slot(rig, slot, number, 2);
      }
      const std::int32_t order = compare(a, b);
      EXPECT_NE(order, 0) << slot.path;
      EXPECT_EQ(compare(b, a), -order) << slot.path;
      EXPECT_NE(hash(b, 7), before) << slot.path;
      if (kind_of(*slot.field) == Kind::kTimer) {
        slot.at()[0] ^= 1;
      } else {
        fill_slot(rig, slot, number, 1);
      }
      EXPECT_EQ(compare(a, b), 0) << slot.path;
      EXPECT_EQ(hash(b, 7), before) << slot.path;
    }
    EXPECT_EQ(hash(nullptr, 7), 7u);
    EXPECT_EQ(compare(nullptr, nullptr), 0);
    EXPECT_EQ(compare(nullptr, b), -1);
    EXPECT_EQ(compare(a, nullptr), 1);
    rig.destroy(type, a);
    rig.destroy(type, b);
  }
  EXPECT_EQ(rig.take_err(), 0);
}

TEST(Compare, TheFirstDifferenceInSchemaOrderDecides) {
  Rig rig;
  struct Case {
    std::uint8_t first[2], second[2];
    int order;
  };
  for (const Case& c : {Case{{1, 9}, {2, 0}, -1}, Case{{2, 0}, {1, 9}, 1}, Case{{1, 200}, {1, 3}, 1},
                        Case{{1, 3}, {1, 200}, -1}, Case{{0, 0}, {255, 0}, -1}}) {
    char* a = rig.make(type_of("st_dtim"));
    char* b = rig.make(type_of("st_dtim"));
    st_dtim_set_all(rig.h, rig.txn, a, c.first[0], c.first[1], &rig.err);
    st_dtim_set_all(rig.h, rig.txn, b, c.second[0], c.second[1], &rig.err);
    EXPECT_EQ(st_dtim_compare(a, b), c.order);
  }
}

TEST(Compare, AnEnumeratedDifferenceComesThroughAllLevelsUnclamped) {
  Rig rig;
  const Type& type = type_of("st_wlan_security_settings");
  int found = 0;
  for (const Slot& slot : slots_of(type, nullptr)) {
    if (slot.field->kind != "key_size_type") continue;
    ++found;
    char* a = rig.make(type);
    char* b = rig.make(type);
    call_set_value(*slot.owner, *slot.field, rig.h, rig.txn, a + (slot.object - static_cast<char*>(nullptr)), 2,
                   &rig.err);
    EXPECT_EQ(st_wlan_security_settings_compare(a, b), 2);
    EXPECT_EQ(st_wlan_security_settings_compare(b, a), -2);
  }
  EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace module_test

// Tests of the cage: references, static and probe memory, loose memory.
#include "platform/cage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "kvt/frame.h"

namespace {

// A static object whose constructor needs the cage: it must be there before every other constructor.
struct Early {
  void* memory = kvt_cage_static(100);
} early;

TEST(Cage, IsReadyBeforeOtherConstructors) {
  ASSERT_NE(early.memory, nullptr);
  EXPECT_TRUE(kvt::in_cage(early.memory));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(kvt_cage_base) % (std::uintptr_t{1} << 32), 0u);
}

TEST(Cage, ReferencesGoThereAndBack) {
  EXPECT_EQ(kvt_ref_of(nullptr), 0u);
  EXPECT_EQ(kvt_ref_at(0), nullptr);
  void* p = kvt_cage_alloc(24);
  EXPECT_EQ(kvt_ref_at(kvt_ref_of(p)), p);
  kvt_cage_free(p);
  kvt_cage_free(nullptr);
  EXPECT_EQ(kvt_cage_alloc(std::size_t{1} << 33), nullptr);
}

TEST(CageDeathTest, AnAddressOutsideStopsTheProcess) {
  int outside = 0;
  EXPECT_DEATH(kvt_ref_of(&outside), "outside of the stores");
  EXPECT_DEATH(*static_cast<volatile char*>(kvt_ref_at(8)) = 1, "");
}

TEST(Probe, AreasStackAndAreZeroEachTime) {
  void* first = kvt_probe_push(2000);
  std::memset(first, 0xFF, 2000);
  void* second = kvt_probe_push(100);
  EXPECT_GE(static_cast<char*>(second), static_cast<char*>(first) + 2000);
  kvt_probe_pop(second, 100);
  kvt_probe_pop(first, 2000);
  auto* again = static_cast<unsigned char*>(kvt_probe_push(2000));
  EXPECT_EQ(again, first);
  for (int i = 0; i < 2000; i++) ASSERT_EQ(again[i], 0);
  kvt_probe_pop(again, 2000);
}

TEST(Probe, NestingDeeperThanTheAreaStillServes) {
  std::vector<void*> areas;
  for (int i = 0; i < 100; i++) {
    areas.push_back(kvt_probe_push(2000));
    ASSERT_TRUE(kvt::in_cage(areas.back()));
    std::memset(areas.back(), i, 2000);
  }
  void* huge = kvt_probe_push(1 << 20);
  ASSERT_NE(huge, nullptr);
  kvt_probe_pop(huge, 1 << 20);
  for (int i = 99; i >= 0; i--) {
    EXPECT_EQ(static_cast<unsigned char*>(areas[i])[1999], i);
    kvt_probe_pop(areas[i], 2000);
  }
}

TEST(Probe, ThreadsHaveTheirOwnAndGiveThemBack) {
  void* mine = kvt_probe_push(16);
  // More threads, one after the other, than there are areas.
  void* before = nullptr;
  for (int i = 0; i < 300; i++) {
    void* theirs = nullptr;
    std::thread([&] {
      theirs = kvt_probe_push(16);
      kvt_probe_pop(theirs, 16);
    }).join();
    ASSERT_NE(theirs, mine);
    if (before) {
      ASSERT_EQ(theirs, before);
    }
    before = theirs;
  }
  kvt_probe_pop(mine, 16);
}

}  // namespace

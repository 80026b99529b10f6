// Tests of the allocator through private stores and loose memory: a shadow model, growth, bad frees, closing.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "kvt/table.h"
#include "platform/cage.h"

namespace {

struct Rig {
  explicit Rig() {
    int err = 0;
    handle = kvt_handle_open_private(nullptr, &err);
  }
  ~Rig() { kvt_handle_close(handle); }
  char* alloc(std::uint32_t size) { return static_cast<char*>(handle->store_alloc(handle->store, 0, size)); }
  void free(void* p) { handle->store_free(handle->store, 0, p); }
  kvt_handle* handle;
};

TEST(Heap, BlocksNeverOverlapAndKeepTheirBytes) {
  Rig rig;
  std::mt19937 random(4711);
  struct Block {
    std::uint32_t size;
    unsigned char fill;
  };
  std::map<char*, Block> live;
  std::uint64_t bytes = 0;
  for (int step = 0; step < 60000; step++) {
    bool grows = step / 10000 % 2 == 0 ? random() % 3 != 0 : random() % 3 == 0;
    if (grows || live.empty()) {
      std::uint32_t kind = random() % 100;
      std::uint32_t size = kind < 60   ? random() % 128
                           : kind < 95 ? random() % 6000
                           : kind < 99 ? random() % 100000
                                       : random() % 3000000;
      if (bytes + size > (64u << 20)) continue;
      char* p = rig.alloc(size);
      ASSERT_NE(p, nullptr);
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % 8, 0u);
      ASSERT_TRUE(kvtlib_database_in_range(rig.handle, p));
      auto above = live.lower_bound(p);
      if (above != live.end()) {
        ASSERT_LE(p + size, above->first);
      }
      if (above != live.begin()) {
        auto below = std::prev(above);
        ASSERT_LE(below->first + below->second.size, p);
      }
      auto fill = static_cast<unsigned char>(random());
      std::memset(p, fill, size);
      live[p] = {size, fill};
      bytes += size;
    } else {
      auto it = live.begin();
      std::advance(it, random() % std::min<std::size_t>(live.size(), 50));
      for (std::uint32_t i = 0; i < it->second.size; i += 61) {
        ASSERT_EQ(static_cast<unsigned char>(it->first[i]), it->second.fill);
      }
      bytes -= it->second.size;
      rig.free(it->first);
      live.erase(it);
    }
  }
  for (auto& [p, block] : live) {
    for (std::uint32_t i = 0; i < block.size; i++) ASSERT_EQ(static_cast<unsigned char>(p[i]), block.fill);
    rig.free(p);
  }
}

TEST(Heap, FreedNeighboursJoin) {
  Rig rig;
  constexpr std::uint32_t kSize = 40000;
  std::vector<char*> blocks;
  for (int i = 0; i < 20; i++) blocks.push_back(rig.alloc(kSize));
  char* guard = rig.alloc(16);
  for (int i : {1, 3, 2, 0, 5, 4, 19, 17, 18}) rig.free(blocks[i]);
  EXPECT_EQ(rig.alloc(6 * kSize + 5 * 8), blocks[0]);
  EXPECT_EQ(rig.alloc(3 * kSize + 2 * 8), blocks[17]);
  rig.free(guard);
  // Small ones wait apart, but not when the store would have to grow for what they have room for.
  Rig other;
  std::vector<char*> small;
  for (int i = 0; i < 10; i++) small.push_back(other.alloc(4000));
  for (char* p : small) other.free(p);
  EXPECT_EQ(other.alloc(4000), small.back());
  other.free(small.back());
  EXPECT_EQ(other.alloc(kvt::kSegmentSize - 20000), small.front());
}

TEST(Heap, LargeBlocksSpanSegments) {
  Rig rig;
  char* large = rig.alloc(10 * kvt::kSegmentSize);
  ASSERT_NE(large, nullptr);
  std::memset(large, 1, 10 * kvt::kSegmentSize);
  EXPECT_EQ(rig.alloc(0x7FFFFFFF), nullptr);
  EXPECT_EQ(rig.alloc(0xFFFFFFFF), nullptr);
  rig.free(large);
}

TEST(Heap, ClosingAStoreGivesItsSegmentsToTheNext) {
  // 40 times 100 MiB only fit if each store gives its segments back.
  for (int i = 0; i < 40; i++) {
    Rig rig;
    for (int j = 0; j < 100; j++) ASSERT_NE(rig.alloc(1000000), nullptr) << i;
  }
}

TEST(HeapDeathTest, BadFreesStopTheProcess) {
  Rig rig;
  char* block = rig.alloc(100);
  char* other = rig.alloc(100);
  Rig foreign;
  char* strange = foreign.alloc(100);
  int outside = 0;
  rig.free(block);
  EXPECT_DEATH(rig.free(block), "not an allocated block");
  EXPECT_DEATH(rig.free(other + 8), "not an allocated block");
  EXPECT_DEATH(rig.free(strange), "not an allocated block");
  EXPECT_DEATH(rig.free(&outside), "not an allocated block");
  EXPECT_DEATH(kvt_cage_free(other), "not an allocated block");
  rig.free(nullptr);
}

}  // namespace

// Tests of the ordered trees: beside a std::set, with the tree's own check after each step.
#include <gtest/gtest.h>

#include <cerrno>
#include <iterator>
#include <random>
#include <set>
#include <vector>

#include "kvt/table.h"
#include "platform/ref.h"

namespace {

struct Item {
  std::uint32_t key;
  std::uint32_t node[3];
};

std::uint32_t key_of(const void* node) { return kvt::load<std::uint32_t>(static_cast<const char*>(node) - 4); }
int compare(const void* a, const void* b) { return key_of(a) < key_of(b) ? 0 : key_of(a) == key_of(b) ? 1 : 2; }

class Avl : public testing::Test {
 protected:
  void SetUp() override {
    int err = 0;
    handle = kvt_handle_open_private(nullptr, &err);
    ASSERT_EQ(err, 0);
  }
  void TearDown() override { kvt_handle_close(handle); }
  Item* make(std::uint32_t key) {
    auto* item = static_cast<Item*>(handle->store_alloc(handle->store, 0, sizeof(Item)));
    *item = {key, {7, 7, 7}};
    return item;
  }
  int insert(Item* item) { return e_avl_insert(handle->store, 0, &root, item->node, &state, compare); }
  int remove(Item* item) { return e_avl_delete(handle->store, 0, &root, item->node, &state, compare); }

  kvt_handle* handle = nullptr;
  std::uint32_t root = 0;
  std::uint32_t state = 0;
};

TEST_F(Avl, EveryStepAgreesWithASet) {
  std::mt19937 random(20261122);
  constexpr std::uint32_t kKeys = 300;
  std::vector<Item*> items;
  for (std::uint32_t i = 0; i < kKeys; i++) items.push_back(make(i * 2));
  std::set<std::uint32_t> shadow;
  Item* probe = make(0);
  for (int step = 0; step < 20000; step++) {
    std::uint32_t i = random() % kKeys;
    bool grows = step / 2000 % 2 == 0 ? random() % 4 != 0 : random() % 4 == 0;
    bool there = shadow.count(i * 2) != 0;
    if (grows) {
      ASSERT_EQ(insert(items[i]) != 0, !there) << "step " << step;
      shadow.insert(i * 2);
    } else {
      ASSERT_EQ(remove(items[i]) != 0, there) << "step " << step;
      shadow.erase(i * 2);
    }
    ASSERT_EQ(e_avl_check(root, &state, compare), 0) << "step " << step;
    ASSERT_EQ(state, shadow.size());
    probe->key = random() % (kKeys * 2);
    void* found = e_avl_search(root, probe->node, compare);
    ASSERT_EQ(found != nullptr, shadow.count(probe->key) != 0);
    auto above = shadow.upper_bound(probe->key);
    void* next = e_avl_get_next(root, probe->node, compare);
    ASSERT_EQ(next ? key_of(next) : ~0u, above == shadow.end() ? ~0u : *above);
    auto not_below = shadow.lower_bound(probe->key);
    void* previous = e_avl_get_prev(root, probe->node, compare);
    ASSERT_EQ(previous ? key_of(previous) : ~0u, not_below == shadow.begin() ? ~0u : *std::prev(not_below));
    void* first = e_avl_get_first(root);
    void* last = e_avl_get_last(root);
    ASSERT_EQ(first ? key_of(first) : ~0u, shadow.empty() ? ~0u : *shadow.begin());
    ASSERT_EQ(last ? key_of(last) : ~0u, shadow.empty() ? ~0u : *shadow.rbegin());
  }
}

TEST_F(Avl, DeleteMeansTheNodeNotItsKey) {
  Item* in = make(5);
  Item* twin = make(5);
  ASSERT_TRUE(insert(in));
  EXPECT_FALSE(insert(twin));
  EXPECT_FALSE(remove(twin));
  EXPECT_EQ(e_avl_search(root, twin->node, compare), static_cast<void*>(in->node));
  EXPECT_TRUE(remove(in));
  EXPECT_EQ(root, 0u);
  EXPECT_EQ(state, 0u);
}

TEST_F(Avl, WalkIsInOrderAndLetsTheFunctionFreeNodes) {
  for (std::uint32_t i = 0; i < 100; i++) insert(make((i * 37) % 100));
  struct Seen {
    kvt_handle* handle;
    std::vector<std::uint32_t> keys;
  } seen{handle, {}};
  auto visit = [](void* node, void* argument) {
    auto* to = static_cast<Seen*>(argument);
    to->keys.push_back(key_of(node));
    to->handle->store_free(to->handle->store, 0, static_cast<char*>(node) - 4);
    return 0;
  };
  e_avl_walk(root, visit, &seen);
  ASSERT_EQ(seen.keys.size(), 100u);
  for (std::uint32_t i = 0; i < 100; i++) EXPECT_EQ(seen.keys[i], i);
}

TEST_F(Avl, CheckFindsEachKindOfFault) {
  std::vector<Item*> items;
  for (std::uint32_t i = 0; i < 20; i++) insert(items.emplace_back(make(i * 10)));
  ASSERT_EQ(e_avl_check(root, &state, compare), 0);
  std::uint32_t wrong = state + 1;
  EXPECT_EQ(e_avl_check(root, &wrong, compare), EINVAL);
  items[3]->key = 500;
  EXPECT_EQ(e_avl_check(root, &state, compare), EINVAL);
  items[3]->key = 30;
  static_cast<std::uint32_t*>(kvt_ref_at(root))[0] ^= 1;
  EXPECT_EQ(e_avl_check(root, &state, compare), EINVAL);
}

}  // namespace

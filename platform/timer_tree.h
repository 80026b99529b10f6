// The trees of timers as stores know them, and what the end of a block of memory means for them.
#pragma once

#include <cstddef>

#include "kvt/timer.h"
#include "platform/avl_node.h"
#include "platform/store.h"

namespace kvt {

// The tree's words in a timer.
struct TimerNode {  // stored format
  AvlNode node;
  std::uint32_t root;    // of the tree that it is in; 0 in none
  std::int64_t instant;  // us, capped
};
STORED_SIZE(TimerNode, 24);
STORED_FIELD(TimerNode, root, 12, std::uint32_t);
STORED_FIELD(TimerNode, instant, 16, std::int64_t);
STORED_SIZE(kvt_timer, 64);
STORED_FIELD(kvt_timer, callback_index, 32, std::int32_t);
STORED_FIELD(kvt_timer, tree, 40, std::uint32_t[6]);
STORED_SIZE(kvt_timer_queue, 32);
STORED_FIELD(kvt_timer_queue, root, 24, std::uint32_t);

inline constexpr std::uint32_t kTimerNodeAt = offsetof(kvt_timer, tree);

// A tree that has had timers.
struct TimerTree {  // stored format
  std::uint32_t next;
  std::uint32_t root;  // where its root word is
};
STORED_SIZE(TimerTree, 8);

// The order of two nodes, as e_avl_compare tells it.
int timer_compare(const void* a, const void* b);

// Before the memory [begin, begin + length) of a store is given back: takes the timers that are in it out of their
// trees and says so. True if there were any.
bool forget_timers(Store& store, std::uint32_t txn, std::uint32_t begin, std::uint32_t length);
// Tells this thread's watches that the memory is gone.
void end_watched(std::uint32_t begin, std::uint32_t length);

}  // namespace kvt

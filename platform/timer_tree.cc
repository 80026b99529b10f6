// The tree of timers over the engine of the indexes. Beside its node a timer in a tree has the tree's root and the due
// time that it was put in by: a block to which its owner writes meanwhile can still be taken out. A store knows the
// trees that it has; the timers in a block that is given back are told by the root in them.
#include "platform/timer_tree.h"

#include <algorithm>
#include <limits>

#include "platform/messages.h"

namespace kvt {
namespace {

constexpr std::int64_t kUsecPerSec = 1000000;
// A node's word tells due times apart by 8 ms, for 400 days of uptime; within these and later the instant does.
constexpr int kWordShift = 13;

constexpr std::uint32_t kRootAt = kTimerNodeAt + offsetof(TimerNode, root);

[[gnu::tls_model("initial-exec")]] constinit thread_local kvt_watch* watches = nullptr;

TimerNode* node_of(const kvt_timer* timer) {
  return reinterpret_cast<TimerNode*>(const_cast<std::uint32_t*>(timer->tree));
}
kvt_timer* timer_of(void* node) {
  return node ? reinterpret_cast<kvt_timer*>(static_cast<char*>(node) - kTimerNodeAt) : nullptr;
}

std::int64_t instant_of(const kvt_time& time) {
  std::int64_t instant;
  if (__builtin_mul_overflow(time.sec, kUsecPerSec, &instant) || __builtin_add_overflow(instant, time.usec, &instant)) {
    return time.sec < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
  }
  return instant;
}

// Where a timer and its tree are: in the handle's store, which knows the tree then, or in memory of a caller's own.
struct Place {
  Store* own;  // null for a caller's own
  bool good;
};
// Whether a store of the runtime other than the caller's has the memory.
bool is_strange(const void* at) {
  return Store::of(const_cast<void*>(segment_owner(at))) ||
         (in_cage(at) && cage_ref(at) >= kDatabaseBegin && !is_static_number(cage_ref(at)));
}
Place place_of(void* store, const std::uint32_t* root, const kvt_timer* timer) {
  if (!in_cage(root) || !in_cage(timer) || cage_ref(timer) % alignof(kvt_timer)) return {nullptr, false};
  Store* own = Store::of(store);
  const bool is_own = own && own->in_range(timer);
  if (is_own != (own && own->in_range(root))) return {nullptr, false};
  return {is_own ? own : nullptr, is_own || (!is_strange(timer) && !is_strange(root))};
}

TimerTree* first_tree(const Store& store) { return static_cast<TimerTree*>(cage_at(store.roots()->timer_trees)); }
TimerTree* next_tree(const TimerTree& tree) { return static_cast<TimerTree*>(cage_at(tree.next)); }

bool knows_tree(const Store& store, std::uint32_t root) {
  const TimerTree* tree = first_tree(store);
  while (tree && tree->root != root) tree = next_tree(*tree);
  return tree;
}
bool add_tree(Store& store, std::uint32_t txn, std::uint32_t root) {
  if (knows_tree(store, root)) return true;
  void* block = store.alloc(store.open_txn(), sizeof(TimerTree));
  if (!block) return false;
  *static_cast<TimerTree*>(block) = {store.roots()->timer_trees, root};
  return store.write(&store.roots()->timer_trees, cage_ref(block), txn);
}

// What an abort must bring back is logged, with a write context or without.
std::uint32_t logged(const Store* own, std::uint32_t txn) { return own && txn == KVT_NO_TXN ? own->open_txn() : txn; }

bool is_in(std::uint32_t* root, const kvt_timer* timer) {
  return node_of(timer)->root == cage_ref(root) && e_avl_search(*root, node_of(timer), timer_compare);
}

bool take_out(Store* own, void* store, std::uint32_t txn, std::uint32_t* root, kvt_timer* timer) {
  TimerNode* const node = node_of(timer);
  if (node->root != cage_ref(root) || (own && !own->announce_range(&node->root, sizeof node->root, txn)) ||
      !avl_delete_by_word(store, txn, root, &node->node, nullptr, timer_compare)) {
    return false;
  }
  node->root = 0;
  return true;
}

bool put_in(Store* own, void* store, std::uint32_t txn, std::uint32_t* root, kvt_timer* timer) {
  TimerNode* const node = node_of(timer);
  if (own && !add_tree(*own, txn, cage_ref(root))) return false;
  if (own && !own->announce_range(node, sizeof *node, txn)) return false;
  if (node->root && (node->root == cage_ref(root) || (own && knows_tree(*own, node->root)))) {
    auto* const in = static_cast<std::uint32_t*>(cage_at(node->root));
    if (is_in(in, timer) && !take_out(own, store, txn, in, timer)) return false;
  }
  node->root = 0;
  node->instant = instant_of(timer->due);
  node->node.word = static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(node->instant >> kWordShift, 0, std::numeric_limits<std::uint32_t>::max()));
  if (!avl_insert_by_word(store, txn, root, &node->node, nullptr, timer_compare)) return false;
  node->root = cage_ref(root);
  return true;
}

}  // namespace

int timer_compare(const void* a, const void* b) {
  const std::int64_t at_a = static_cast<const TimerNode*>(a)->instant, at_b = static_cast<const TimerNode*>(b)->instant;
  if (at_a != at_b) return at_a < at_b ? 0 : 2;
  return a == b ? 1 : a < b ? 0 : 2;
}

bool forget_timers(Store& store, std::uint32_t txn, std::uint32_t begin, std::uint32_t length) {
  bool any = false;
  std::uint32_t* link = &store.roots()->timer_trees;
  for (TimerTree *tree = first_tree(store), *next; tree; tree = next) {
    next = next_tree(*tree);
    if (tree->root - begin < length) {
      // The tree ends, and nobody looks for its timers any more.
      store.write(link, tree->next, logged(&store, txn));
      store.free(store.open_txn(), tree);
      continue;
    }
    link = &tree->next;
    const std::uint32_t place = tree->root;
    auto* const root = static_cast<std::uint32_t*>(cage_at(place));
    if (!*root) continue;
    const char* word = static_cast<const char*>(cage_at(begin)) + kRootAt;
    for (std::uint32_t at = 0; at + sizeof(kvt_timer) <= length; at += alignof(kvt_timer), word += alignof(kvt_timer)) {
      if (load<std::uint32_t>(word) != place) continue;
      auto* const timer = static_cast<kvt_timer*>(cage_at(begin + at));
      if (!is_in(root, timer)) continue;
      take_out(&store, &store, logged(&store, txn), root, timer);
      trace(Message::kTimerForgotten, static_cast<const void*>(timer));
      any = true;
    }
  }
  return any;
}

void end_watched(std::uint32_t begin, std::uint32_t length) {
  for (kvt_watch* watch = watches; watch; watch = watch->outer) {
    if (cage_ref(watch->at) - begin < length) watch->gone = 1;
  }
}

}  // namespace kvt

int kvt_timer_accepts(void* store, const uint32_t* root, const kvt_timer* timer) {
  return kvt::place_of(store, root, timer).good;
}

int timer_rb_tree_VS_RB_INSERT(void* store, uint32_t txn, uint32_t* root, kvt_timer* timer) {
  __builtin_prefetch(timer->tree);
  const auto [own, good] = kvt::place_of(store, root, timer);
  return good && kvt::put_in(own, store, kvt::logged(own, txn), root, timer);
}

int timer_rb_tree_VS_RB_REMOVE(void* store, uint32_t txn, uint32_t* root, kvt_timer* timer) {
  kvt::Store* const own = kvt::Store::of(store);
  return kvt::take_out(own, store, kvt::logged(own, txn), root, timer);
}

int timer_rb_tree_VS_RB_FIND(void*, uint32_t, uint32_t* root, const kvt_timer* timer, uint32_t*) {
  return kvt::is_in(root, timer);
}

kvt_timer* timer_rb_tree_VS_RB_MINMAX(void*, uint32_t, const uint32_t* root, int which) {
  return kvt::timer_of(which < 0 ? e_avl_get_first(*root) : e_avl_get_last(*root));
}

kvt_timer* timer_rb_tree_VS_RB_NEXT(void*, uint32_t, const kvt_timer* timer) {
  return kvt::timer_of(kvt::avl_neighbour(&kvt::node_of(timer)->node, 1));
}

void kvt_watch_begin(kvt_watch* watch, const void* at) {
  *watch = {at, 0, kvt::watches};
  kvt::watches = watch;
}

void kvt_watch_end(kvt_watch* watch) { kvt::watches = watch->outer; }

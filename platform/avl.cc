// Height-balanced trees over nodes inside the caller's blocks; see avl_node.h. There are no links to parents: a change
// keeps its path on a stack and moves by compare from the root, and a step from node to node follows the threads.
#include <cerrno>
#include <cstdint>

#include "kvt/table.h"
#include "platform/avl_node.h"
#include "platform/store.h"

namespace kvt {
namespace {

using Node = AvlNode;

constexpr std::uint32_t kHigher = kAvlHigher;
constexpr std::uint32_t kLinkBits = kAvlLinkBits;
constexpr int kMaxHeight = 48;               // 1.44 times the binary logarithm of all nodes that fit in the cage
constexpr std::uint32_t kMostLogged = 8192;  // undo log that the longest path of changes takes

Node* at(std::uint32_t link) { return avl_at(link); }
Node* child(const Node* node, int side) { return avl_child(node, side); }
std::uint32_t thread_to(const Node* node) { return cage_ref(node) | kAvlThread; }
// -1 left is higher, 0, 1 right is higher
int lean(const Node* node) {
  return static_cast<int>(node->link[1] & kHigher) - static_cast<int>(node->link[0] & kHigher);
}

// What a change writes. Where nothing can be taken back, nothing is announced.
template <bool kLogged>
class Change {
 public:
  Change(Store* store, std::uint32_t txn) : store_(store), txn_(txn) {}

  // The one place where a word of a tree is written.
  void write(std::uint32_t* where, std::uint32_t value) const {
    if constexpr (kLogged) {
      if (*where == value) return;
      announce(where, sizeof *where);
    }
    *where = value;
  }
  bool announce(void* where, std::uint32_t size) const {
    if constexpr (kLogged) return store_->announce_link(where, size, txn_);
    return true;
  }
  void set_child(Node* node, int side, const Node* to) const {
    write(&node->link[side], cage_ref(to) | (node->link[side] & kHigher));
  }
  // `link` is a child or a thread, without the bit of height.
  void set_link(Node* node, int side, std::uint32_t link) const {
    write(&node->link[side], (link & ~kHigher) | (node->link[side] & kHigher));
  }
  // The subtree `to`, or where there is none a thread to the neighbour that is then next.
  void set_child_or_thread(Node* node, int side, const Node* to, const Node* neighbour) const {
    set_link(node, side, to ? cage_ref(to) : thread_to(neighbour));
  }
  void set_higher(Node* node, int side, bool higher) const {
    write(&node->link[side], (node->link[side] & ~kHigher) | (higher ? kHigher : 0));
  }
  void set_lean(Node* node, int lean) const {
    set_higher(node, 0, lean < 0);
    set_higher(node, 1, lean > 0);
  }
  // False before the first write, never in the middle: the store is asked for all that a change may need.
  bool may_begin(std::uint32_t* root) const {
    if constexpr (kLogged) {
      if (store_->in_range(root) && !store_->reserve(kMostLogged)) return false;
    }
    return announce(root, sizeof *root);
  }

 private:
  Store* store_;
  std::uint32_t txn_;
};

// The way from the root to a node.
struct Path {
  Node* nodes[kMaxHeight];
  std::uint8_t sides[kMaxHeight];
  int depth = 0;
  bool push(Node* node, int side) {
    if (depth == kMaxHeight) return false;
    nodes[depth] = node;
    sides[depth++] = static_cast<std::uint8_t>(side);
    return true;
  }
};

template <class Change>
void attach(const Change& change, std::uint32_t* root, const Path& path, int depth, Node* node) {
  if (depth == 0) {
    change.write(root, cage_ref(node));
  } else {
    change.set_child(path.nodes[depth - 1], path.sides[depth - 1], node);
  }
}

// `node` is too high by one on `side`. Gives the new top of the subtree; `lower` says whether the subtree lost a level.
template <class Change>
Node* rotate(const Change& change, Node* node, int side, bool* lower) {
  Node* high = child(node, side);
  const std::uint32_t inner = high->link[!side];  // the subtree that changes sides, or goes to the top
  *lower = (inner | high->link[side]) & kHigher;
  if (!(inner & kHigher)) {
    // Where both its sides were even, which only a delete leaves, both nodes go on leaning.
    const std::uint32_t even = *lower ? 0 : kHigher;
    change.write(&node->link[side], (inner & kAvlThread ? thread_to(high) : inner) | even);
    change.write(&high->link[!side], cage_ref(node) | even);
    change.write(&high->link[side], high->link[side] & ~kHigher);
    return high;
  }
  Node* middle = at(inner);
  const std::uint32_t outwards = middle->link[side], inwards = middle->link[!side];
  change.write(&high->link[!side], outwards & kAvlThread ? thread_to(middle) : outwards & ~kHigher);
  change.write(&node->link[side], inwards & kAvlThread ? thread_to(middle) : inwards & ~kHigher);
  // Of the two sides that stand still, one is left higher where the middle leant the other way.
  if (inwards & kHigher) change.write(&high->link[side], high->link[side] | kHigher);
  if (outwards & kHigher) change.write(&node->link[!side], node->link[!side] | kHigher);
  change.write(&middle->link[side], cage_ref(high));
  change.write(&middle->link[!side], cage_ref(node));
  return middle;
}

// The nearest node on `side` of the given one.
Node* neighbour(std::uint32_t root, const void* from, e_avl_compare compare, int side) {
  Node* best = nullptr;
  for (Node* node = at(root); node;) {
    int order = compare(node, from);
    if (order == (side ? 2 : 0)) {
      best = node;
      node = child(node, !side);
    } else {
      node = child(node, side);
    }
  }
  return best;
}

enum class End { kAtNode, kAtItsPlace, kAtAnother };

// The way to `node`, or to where it would hang; another node that is equal bars it.
template <bool kByWord>
[[gnu::always_inline]] inline End descend(std::uint32_t root, const Node* node, e_avl_compare compare, Path* path) {
  const std::uint32_t word = node->word;
  for (std::uint32_t link = root; link && !(link & kAvlThread);) {
    Node* here = avl_at_child(link);
    bool side;
    // Where trees are ordered by the nodes' words first, most levels need no more than that.
    if (kByWord && word != here->word) {
      link = avl_descend(here, word);
      side = word > here->word;
    } else {
      if (here == node) return End::kAtNode;
      const int order = compare(node, here);
      if (order == 1) return End::kAtAnother;
      side = order == 2;
      link = here->link[side];
    }
    if (!path->push(here, side)) return End::kAtAnother;
  }
  return End::kAtItsPlace;
}

// The way to a node that has no neighbour on its left: nothing needs to be compared.
End descend_left(std::uint32_t root, const Node* node, Path* path) {
  for (std::uint32_t link = root; link && !(link & kAvlThread);) {
    Node* here = avl_at_child(link);
    if (here == node) return End::kAtNode;
    if (!path->push(here, 0)) return End::kAtAnother;
    link = here->link[0];
  }
  return End::kAtItsPlace;
}

template <bool kByWord, class Change>
int insert(const Change& change, std::uint32_t* root, Node* leaf, std::uint32_t* state, e_avl_compare compare) {
  Path path;
  if (descend<kByWord>(*root, leaf, compare, &path) != End::kAtItsPlace || !change.may_begin(root)) return 0;
  change.announce(leaf, sizeof *leaf);
  // The third word is the caller's. The leaf stands between its parent and the neighbour that the parent had there.
  leaf->link[0] = leaf->link[1] = kAvlThread;
  if (path.depth) {
    Node* parent = path.nodes[path.depth - 1];
    const int side = path.sides[path.depth - 1];
    leaf->link[side] = parent->link[side] & ~kHigher;
    leaf->link[!side] = thread_to(parent);
  }
  attach(change, root, path, path.depth, leaf);
  if (state) change.write(state, *state + 1);
  for (int depth = path.depth - 1; depth >= 0; depth--) {
    Node* above = path.nodes[depth];
    const int side = path.sides[depth];
    if (above->link[!side] & kHigher) {
      change.set_higher(above, !side, false);
      break;
    }
    if (above->link[side] & kHigher) {
      bool lower;
      attach(change, root, path, depth, rotate(change, above, side, &lower));
      break;
    }
    change.set_higher(above, side, true);
  }
  return 1;
}

template <bool kByWord, class Change>
int remove(const Change& change, std::uint32_t* root, Node* gone, std::uint32_t* state, e_avl_compare compare) {
  Path path;
  const End end =
      gone->link[0] == kAvlThread ? descend_left(*root, gone, &path) : descend<kByWord>(*root, gone, compare, &path);
  if (end != End::kAtNode || !change.may_begin(root)) return 0;
  int place = path.depth;
  if (child(gone, 0) && child(gone, 1)) {
    // The successor takes the place of the node: nodes lie in records, so links move and content does not.
    path.push(gone, 1);
    Node* next = child(gone, 1);
    while (child(next, 0)) {
      path.push(next, 0);
      next = child(next, 0);
    }
    Node* orphan = child(next, 1);
    const int leans = lean(gone);
    change.set_link(avl_neighbour(gone, 0), 1, thread_to(next));
    if (path.depth - 1 != place) {
      change.set_child_or_thread(path.nodes[path.depth - 1], 0, orphan, next);
      change.set_child(next, 1, child(gone, 1));
    }
    change.set_child(next, 0, child(gone, 0));
    change.set_lean(next, leans);
    attach(change, root, path, place, next);
    path.nodes[place] = next;
  } else {
    const int side = child(gone, 1) ? 1 : 0;
    Node* orphan = child(gone, side);
    if (orphan) {
      // Its neighbour on that side looks past it now. A lone child has no children.
      change.set_link(avl_neighbour(gone, side), !side, gone->link[!side]);
      attach(change, root, path, place, orphan);
    } else if (place) {
      change.set_link(path.nodes[place - 1], path.sides[place - 1], gone->link[path.sides[place - 1]]);
    } else {
      change.write(root, 0);
    }
  }
  change.announce(gone, sizeof *gone);
  *gone = {{0, 0}, 0};
  if (state) change.write(state, *state - 1);
  for (int depth = path.depth - 1; depth >= 0; depth--) {
    Node* above = path.nodes[depth];
    const int side = path.sides[depth];  // which lost a level
    if (above->link[side] & kHigher) {
      change.set_higher(above, side, false);
      continue;
    }
    if (!(above->link[!side] & kHigher)) {
      change.set_higher(above, !side, true);
      break;
    }
    bool lower;
    attach(change, root, path, depth, rotate(change, above, !side, &lower));
    if (!lower) break;
  }
  return 1;
}

// Calls `f` with the way in which this store is written.
template <class F>
int with_change(void* store, std::uint32_t txn, F f) {
  Store* own = Store::of(store);
  return own && !own->is_private() ? f(Change<true>(own, txn)) : f(Change<false>(own, txn));
}

}  // namespace

int avl_insert_by_word(void* store, std::uint32_t txn, std::uint32_t* root, AvlNode* node, std::uint32_t* state,
                       e_avl_compare compare) {
  return with_change(store, txn, [=](const auto& change) { return insert<true>(change, root, node, state, compare); });
}
int avl_delete_by_word(void* store, std::uint32_t txn, std::uint32_t* root, AvlNode* node, std::uint32_t* state,
                       e_avl_compare compare) {
  return with_change(store, txn, [=](const auto& change) { return remove<true>(change, root, node, state, compare); });
}

}  // namespace kvt

using kvt::Node;

int e_avl_insert(void* store, uint32_t txn, uint32_t* root, void* node, uint32_t* state, e_avl_compare compare) {
  return kvt::with_change(store, txn, [=](const auto& change) {
    return kvt::insert<false>(change, root, static_cast<Node*>(node), state, compare);
  });
}

int e_avl_delete(void* store, uint32_t txn, uint32_t* root, void* node, uint32_t* state, e_avl_compare compare) {
  return kvt::with_change(store, txn, [=](const auto& change) {
    return kvt::remove<false>(change, root, static_cast<Node*>(node), state, compare);
  });
}

void* e_avl_search(uint32_t root, const void* node, e_avl_compare compare) {
  Node* here = kvt::at(root);
  while (here) {
    // Whichever way it goes, the next node is on its way while this one is compared, and so is the line before it,
    // where the head of its block usually lies.
    for (int side = 0; side < 2; ++side) {
      const auto next = reinterpret_cast<std::uintptr_t>(kvt::child(here, side));
      __builtin_prefetch(reinterpret_cast<const void*>(next));
      __builtin_prefetch(reinterpret_cast<const void*>(next - 40));
    }
    int order = compare(node, here);
    if (order == 1) return here;
    here = kvt::child(here, order == 2);
  }
  return nullptr;
}

void* e_avl_get_first(uint32_t root) { return kvt::avl_outermost(root, 0); }
void* e_avl_get_last(uint32_t root) { return kvt::avl_outermost(root, 1); }

void* e_avl_get_next(uint32_t root, const void* node, e_avl_compare compare) {
  return kvt::neighbour(root, node, compare, 1);
}

void* e_avl_get_prev(uint32_t root, const void* node, e_avl_compare compare) {
  return kvt::neighbour(root, node, compare, 0);
}

void e_avl_walk(uint32_t root, e_avl_function function, void* argument) {
  for (Node* node = kvt::avl_outermost(root, 0); node;) {
    Node* next = kvt::avl_neighbour(node, 1);  // before the call, which may free the node
    function(node, argument);
    node = next;
  }
}

int e_avl_check(uint32_t root, const uint32_t* state, e_avl_compare compare) {
  struct Frame {
    Node* node;
    int step;  // 0 new, 1 left done, 2 both done
    int left_height;
  } stack[kvt::kMaxHeight];
  int depth = 0;
  int height = 0;  // of the subtree that was finished last
  uint32_t count = 0;
  Node* before = nullptr;
  if (root & kvt::kLinkBits) return EINVAL;
  if (root) stack[depth++] = {kvt::at(root), 0, 0};
  while (depth) {
    Frame& top = stack[depth - 1];
    if (top.step == 2) {
      int lean = height - top.left_height;
      if (lean < -1 || lean > 1 || lean != kvt::lean(top.node)) return EINVAL;
      height = 1 + (lean > 0 ? height : top.left_height);
      depth--;
      continue;
    }
    if (top.step == 1) {
      top.left_height = height;
      if (before && compare(before, top.node) != 0) return EINVAL;
      // Where there is no subtree, the neighbour is named.
      const uint32_t left = top.node->link[0];
      if ((left & kvt::kAvlThread) && kvt::at(left) != before) return EINVAL;
      if (before && (before->link[1] & kvt::kAvlThread) && kvt::at(before->link[1]) != top.node) return EINVAL;
      before = top.node;
      count++;
    }
    int side = top.step++;
    height = 0;
    Node* below = kvt::child(top.node, side);
    if (!below) continue;
    if (depth == kvt::kMaxHeight) return EINVAL;
    stack[depth++] = {below, 0, 0};
  }
  if (before && before->link[1] != kvt::kAvlThread) return EINVAL;
  return state && *state != count ? EINVAL : 0;
}

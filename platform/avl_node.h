// The nodes of the ordered trees as descents see them. A node is two links and a word that is the caller's. Nodes are
// 4-aligned: the lowest bit of a link tells that the subtree on its side is the higher one, the next bit that there is
// no subtree, and that the link is a thread to the neighbour on its side (0 at the tree's ends).
#pragma once

#include <cstdint>

#include "kvt/table.h"
#include "platform/ref.h"

namespace kvt {

struct AvlNode {  // stored format
  std::uint32_t link[2];
  std::uint32_t word;
};
STORED_SIZE(AvlNode, 12);

constexpr std::uint32_t kAvlHigher = 1, kAvlThread = 2, kAvlLinkBits = 3;

inline AvlNode* avl_at(std::uint32_t link) { return static_cast<AvlNode*>(cage_at(link & ~kAvlLinkBits)); }
// Of a link that is no thread.
inline AvlNode* avl_at_child(std::uint32_t link) {
  return reinterpret_cast<AvlNode*>(kvt_cage_base + (link & ~kAvlLinkBits));
}
// Of a node that is in a tree.
inline AvlNode* avl_child(const AvlNode* node, int side) {
  const std::uint32_t link = node->link[side];
  return link & kAvlThread ? nullptr : avl_at_child(link);
}
// The link by which a descent goes on. Both links are read, and both nodes on their way, while this one is compared.
inline std::uint32_t avl_descend(const AvlNode* node, std::uint32_t word) {
  const std::uint32_t left = node->link[0], right = node->link[1];
  __builtin_prefetch(kvt_cage_base + left);
  __builtin_prefetch(kvt_cage_base + right);
  return word > node->word ? right : left;
}
// The tree's first node, or its last; null for an empty tree.
inline AvlNode* avl_outermost(std::uint32_t root, int side) {
  AvlNode* node = avl_at(root);
  for (std::uint32_t link = root; link && !(link & kAvlThread); link = node->link[side]) node = avl_at_child(link);
  return node;
}
// The neighbour of a node that is in a tree; null at the end.
inline AvlNode* avl_neighbour(const AvlNode* node, int side) {
  std::uint32_t link = node->link[side];
  if (link & kAvlThread) return avl_at(link);
  for (;;) {
    AvlNode* near = avl_at_child(link);
    link = near->link[!side];
    if (link & kAvlThread) return near;
  }
}

// Insert and delete in a tree that is ordered by its nodes' words, and by `compare` only where two of them are equal.
KVT_EXPORT int avl_insert_by_word(void* store, std::uint32_t txn, std::uint32_t* root, AvlNode* node,
                                  std::uint32_t* state, e_avl_compare compare);
KVT_EXPORT int avl_delete_by_word(void* store, std::uint32_t txn, std::uint32_t* root, AvlNode* node,
                                  std::uint32_t* state, e_avl_compare compare);

}  // namespace kvt

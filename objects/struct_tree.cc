#include "objects/struct_tree.h"

#include <sys/single_threaded.h>

#include <bit>
#include <cstring>

namespace kvt {
namespace {

using HeadBytes = std::uint64_t;
constexpr std::size_t kHeadBytes = offsetof(TreeHead, offset);
static_assert(kHeadBytes == sizeof(HeadBytes));

// A set bit for each bit of a header that is looked at; of the flag byte those in `flags`.
constexpr HeadBytes head_mask(std::uint8_t flags) {
  struct Bytes {
    std::uint8_t link_and_variants[6], flags, field;
  };
  return std::bit_cast<HeadBytes>(Bytes{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, flags, 0});
}
constexpr HeadBytes kWholeHead = head_mask(0xFF);

// The bits in which one of the first `count` headers differs from that of a new object.
HeadBytes difference(const TreeDesc& tree, std::uint32_t count, const void* object) {
  HeadBytes differing = 0;
  for (const TreeHead* head = tree.heads; head != tree.heads + count; ++head) {
    differing |= load<HeadBytes>(head) ^ load<HeadBytes>(at_offset(object, head->offset));
  }
  return differing & kWholeHead;
}

}  // namespace

void tree_initialize(const TreeDesc& tree, void* object) {
  for (const TreeHead* head = tree.heads; head != tree.heads + tree.head_count; ++head) {
    store(at_offset(object, head->offset), load<HeadBytes>(head));
  }
}

void tree_count(const TreeDesc& tree, bool destroyed) {
  auto count = [&](auto add) {
    for (std::uint32_t i = 0; i < tree.own_count; ++i) add(&tree.counters[i]->created + destroyed);
    for (std::uint32_t i = tree.own_count; i < tree.struct_count; ++i) {
      const TreeHead& head = tree.heads[i];
      add(&kvt_static_type_at(head.link)->entries[head.variant].created + destroyed);
    }
  };
  // With one thread a plain addition is all that an atomic one between fences is.
  if (__libc_single_threaded) {
    count([](std::uint64_t* counter) { ++*counter; });
  } else {
    count([](std::uint64_t* counter) { __atomic_fetch_add(counter, 1, __ATOMIC_SEQ_CST); });
  }
}

bool tree_is_plain(const TreeDesc& tree, const void* object) {
  constexpr std::uint8_t kPasses = KVT_OBJ_EMBEDDED | KVT_OBJ_NESTED;
  return !(difference(tree, tree.struct_count, object) & head_mask(static_cast<std::uint8_t>(~kPasses)));
}

TreeCopy tree_copied_by_bytes(const TreeDesc& tree, const void* source) {
  constexpr std::uint8_t kStayBehind = KVT_OBJ_OID_MAPPED | KVT_OBJ_EMBEDDED | KVT_OBJ_NESTED;
  const HeadBytes differing = difference(tree, tree.head_count, source);
  if (differing & head_mask(static_cast<std::uint8_t>(~kStayBehind))) return TreeCopy::kNo;
  std::uint32_t booleans = 0;
  for (const std::uint16_t* at = tree.booleans; at != tree.booleans + tree.boolean_count; ++at) {
    booleans |= load<kvt_boolean>(at_offset(source, *at));
  }
  if (booleans > 1) return TreeCopy::kNo;
  return differing ? TreeCopy::kWithNewHeads : TreeCopy::kAll;
}

void tree_copy_bytes(const StructDesc& type, void* object, const void* source, TreeCopy how) {
  std::memcpy(object, source, type.top_plain());
  if (how == TreeCopy::kAll) return;
  const TreeDesc& tree = *type.tree;
  for (const TreeHead* head = tree.heads; head != tree.heads + tree.head_count; ++head) {
    void* at = at_offset(object, head->offset);
    store(at, (load<HeadBytes>(at) & ~kWholeHead) | load<HeadBytes>(head));
  }
}

}  // namespace kvt

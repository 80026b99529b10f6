// Ways through the blocks of tables and rows, and the order of their indexes.
#pragma once

#include <cstddef>

#include "objects/field_types.h"
#include "platform/avl_node.h"
#include "platform/table_blocks.h"
#include "platform/tenant.h"

namespace kvt {

constexpr int kContainTable = 1, kContainRecord = 2, kContainPayload = 4;

inline TableObject* table_of(void* table) { return static_cast<TableObject*>(table); }
inline RecordBlock* record_of(void* record) { return static_cast<RecordBlock*>(record); }

inline std::uint32_t* index_root(void* table, unsigned key) {
  return static_cast<std::uint32_t*>(at_offset(table, sizeof(TableObject) + 8 * key));
}
inline std::uint32_t* index_state(void* table, unsigned key) { return index_root(table, key) + 1; }
inline void* node_of(void* record, unsigned key) { return at_offset(record, sizeof(RecordBlock) + kNodeSize * key); }
inline void* record_at_node(void* node, unsigned key) {
  return node ? static_cast<char*>(node) - sizeof(RecordBlock) - kNodeSize * key : nullptr;
}
inline std::uint32_t* payload_slot(const TableDesc& table, void* record) {
  return static_cast<std::uint32_t*>(at_offset(record, table.payload_slot));
}
inline void* payload_of(const TableDesc& table, void* record) { return cage_at(*payload_slot(table, record)); }

inline void report_contained(kvt_handle* h, std::uint32_t txn, int kind, void* child, void* parent) {
  if (h->containment) kvtdb_record_containment(h, txn, kind, child, parent, 1);
}

// What an index node keeps in its own word while its record is in the tree: the tenant, as far as four bits go, and the
// key's prefix, marked by the highest bit; most steps of a descent are decided without a look at anything else. 0
// elsewhere, and then the record and its payload are asked.
constexpr std::uint32_t kWordKept = 0x80000000u;
constexpr std::uint32_t kLargeTenant = 15;  // and above: the record is asked
constexpr std::ptrdiff_t kNodeWord = 8;

constexpr std::uint32_t tenant_part(std::uint32_t tenant) {
  return (tenant < kLargeTenant ? tenant : kLargeTenant) << kPrefixBits;
}

template <class Key>
struct IndexNode {
  static constexpr std::ptrdiff_t kRecord = -static_cast<std::ptrdiff_t>(sizeof(RecordBlock) + kNodeSize * Key::kIndex);
  static constexpr std::ptrdiff_t kPayload = kNodeSize * (Key::kKeyCount - Key::kIndex);

  static std::uint16_t tenant(const void* node) {
    return load<std::uint16_t>(static_cast<const char*>(node) + kRecord +
                               static_cast<std::ptrdiff_t>(offsetof(RecordBlock, tenant_id)));
  }
  static std::uint8_t source(const void* node) {
    return load<std::uint8_t>(static_cast<const char*>(node) + kRecord +
                              static_cast<std::ptrdiff_t>(offsetof(RecordBlock, source)));
  }
  // The key in the node's payload. A writer may be at it: a payload or text that is not there gives the least key, and
  // a text's two words are looked at as they were read once.
  class NodeKey {
   public:
    explicit NodeKey(const void* node) : at_(kNoKey) {
      const Reach reach(node);
      const auto payload = load<std::uint32_t>(static_cast<const char*>(node) + kPayload);
      if (!reach.has(payload)) return;
      const void* key = at_offset(cage_at(payload), Key::kOffset);
      if constexpr (Key::Type::kKind == FieldKind::kString) {
        own_ = load<kvt_vstring>(key);
        if (reach.has(own_.text, own_.length)) at_ = &own_;
      } else {
        at_ = key;
      }
    }
    NodeKey(const NodeKey&) = delete;
    NodeKey& operator=(const NodeKey&) = delete;
    operator const void*() const { return at_; }

   private:
    alignas(8) static constexpr char kNoKey[kScalarObjectSize] = {};
    kvt_vstring own_;  // of a text
    const void* at_;
  };
  // The type's own compare, but for enumerated values: those are told apart by a difference that wraps, and with values
  // from a stranger that is no order, and records could not be found again.
  static int compare(const void* a, const void* b) {
    if constexpr (Key::Type::kKind == FieldKind::kEnum) {
      const auto value_a = load<std::int32_t>(static_cast<const char*>(a) + kEnumValueOffset);
      const auto value_b = load<std::int32_t>(static_cast<const char*>(b) + kEnumValueOffset);
      return value_a < value_b ? -1 : value_a > value_b;
    } else {
      return Key::Type::compare(a, b);
    }
  }
  static std::uint32_t word(const void* node) {
    const auto kept = load<std::uint32_t>(static_cast<const char*>(node) + kNodeWord);
    return kept ? kept : make_word(tenant(node), NodeKey(node));
  }
  static std::uint32_t make_word(std::uint32_t tenant, const void* key) {
    return kWordKept | tenant_part(tenant) | order_prefix<typename Key::Type>(key);
  }
  // The rest of the order where the words are equal: -1, 0 or 1 as the node's lies to tenant, key and source.
  static int order(const void* node, std::uint32_t word, std::uint16_t tenant, const void* key, std::uint8_t source) {
    if (word >> kPrefixBits == (kWordKept >> kPrefixBits | kLargeTenant)) {
      const std::uint16_t own = IndexNode::tenant(node);
      if (own != tenant) return own < tenant ? -1 : 1;
    }
    if (!prefix_is_exact<typename Key::Type>(word & ((1u << kPrefixBits) - 1))) {
      if (const int order = compare(NodeKey(node), key)) return order < 0 ? -1 : 1;
    }
    const std::uint8_t own = IndexNode::source(node);
    return own < source ? -1 : own > source;
  }
};

// The word that a record's node keeps.
template <class Key>
std::uint32_t key_word(std::uint32_t tenant, const void* payload) {
  return IndexNode<Key>::make_word(tenant, at_offset(payload, Key::kOffset));
}

// The order of an index: tenant, key, source. Every distance from the node is a constant of the key.
template <class Key>
int key_avl_compare(const void* a, const void* b) {
  if (!a || !b) return a ? 2 : b ? 0 : 1;
  using Node = IndexNode<Key>;
  const std::uint32_t word_a = Node::word(a), word_b = Node::word(b);
  if (word_a != word_b) return word_a > word_b ? 2 : 0;
  return Node::order(a, word_a, Node::tenant(b), typename Node::NodeKey(b), Node::source(b)) + 1;
}

// The node of that tenant, key and source, or null: the same descent as a search with a probe's node, without the
// probe.
template <class Key>
void* key_find(const std::uint32_t* root, const void* value, std::uint16_t tenant, std::uint8_t source) {
  const void* key = value;
  [[maybe_unused]] alignas(8) char object[kScalarObjectSize] = {};
  if constexpr (Key::Type::kKind == FieldKind::kEnum) {
    std::memcpy(object + kEnumValueOffset, value, sizeof(std::uint32_t));
    key = object;
  }
  using Node = IndexNode<Key>;
  const std::uint32_t word = Node::make_word(tenant, key);
  const Reach reach(root);
  std::uint32_t link = *root;
  for (int level = 0; level < kAvlMaxHeight && avl_leads_down(reach, link); ++level) {
    AvlNode* node = avl_at_child(link);
    if (node->word != word) {
      link = avl_descend(node, word);
      continue;
    }
    const int order = Node::order(node, word, tenant, key, source);
    if (!order) return node;
    link = node->link[order < 0];
  }
  return nullptr;
}

// The tenant of a record that is in a tree.
inline std::uint16_t tenant_at_node(const AvlNode* node, unsigned key) {
  const std::uint32_t kept = node->word >> kPrefixBits & kLargeTenant;
  if (kept < kLargeTenant) return static_cast<std::uint16_t>(kept);
  return record_of(record_at_node(const_cast<AvlNode*>(node), key))->tenant_id;
}

template <class Key>
bool same_key(const void* node_a, const void* node_b) {
  using NodeKey = typename IndexNode<Key>::NodeKey;
  return IndexNode<Key>::compare(NodeKey(node_a), NodeKey(node_b)) == 0;
}

}  // namespace kvt

// One hash with chained nodes. In a database it exists twice: names of permanent memory stand in chains that no abort
// touches, for registered types and roots must keep their names when the transaction that needed them first is aborted.
#include "platform/key_store.h"

#include <cstring>

#include "platform/reach.h"
#include "platform/store.h"
#include "platform/store_blocks.h"

namespace kvt {
namespace {

const char* text_of(const KeyNode* node) { return reinterpret_cast<const char*>(node + 1); }

// A writer may be at the chain.
KeyNode* find(const std::uint32_t* chain, std::uint32_t hash, const char* key) {
  const Reach reach(chain);
  std::uint32_t at = *chain;
  const auto size = static_cast<std::uint32_t>(sizeof(KeyNode) + std::strlen(key) + 1);
  for (std::uint32_t left = kSlotSize / sizeof(KeyNode); left && reach.has(at); --left) {
    auto* node = static_cast<KeyNode*>(cage_at(at));
    if (node->hash == hash && reach.has(at, size) && !std::strcmp(text_of(node), key)) return node;
    at = node->next;
  }
  return nullptr;
}

KeyNode* fill(void* room, std::uint32_t next, std::uint32_t hash, std::uint32_t value, const char* key,
              std::size_t length) {
  auto* node = static_cast<KeyNode*>(room);
  *node = {next, hash, value};
  std::memcpy(node + 1, key, length + 1);
  return node;
}

}  // namespace

std::uint32_t key_hash(const char* key) {
  std::uint32_t hash = 2166136261u;
  for (; *key; key++) hash = (hash ^ static_cast<unsigned char>(*key)) * 16777619u;
  return hash ^ hash >> 15;
}

int key_put(void* keystore, std::uint32_t txn, const char* key, void* value) {
  Store* store = Store::of(keystore);
  if (!store || !key || (value && !in_cage(value)) || !store->can_write()) return 0;
  std::uint32_t hash = key_hash(key);
  std::size_t length = std::strlen(key);
  std::uint32_t size = static_cast<std::uint32_t>(sizeof(KeyNode) + length + 1);
  std::uint32_t word = cage_ref(value);
  std::uint32_t* plain = &store->roots()->keys[hash % kKeyBuckets];
  std::uint32_t* permanent = &store->roots()->permanent_keys[hash % kKeyBuckets];
  KeyNode* named = find(permanent, hash, key);
  if (value && store->is_permanent(value)) {
    store->order();
    if (named) {
      publish(&named->value, word);
      return 1;
    }
    void* room = store->alloc_permanent(size);
    if (!room) return 0;
    KeyNode* node = fill(room, *permanent, hash, word, key, length);
    store->order();
    // Readers take no lock: the node is whole before its chain leads to it.
    publish(permanent, cage_ref(node));
    return 1;
  }
  // The permanent name would hide this one.
  if (named && named->value && !store->write(&named->value, 0u, txn)) return 0;
  if (KeyNode* node = find(plain, hash, key)) return store->write(&node->value, word, txn) ? 1 : 0;
  if (!value) return 1;
  // With no write context the node is still the transaction's, so that abort takes the name back with the value.
  void* room = store->alloc(store->open_txn(), size);
  if (!room) return 0;
  fill(room, *plain, hash, word, key, length);
  if (!store->announce_range(plain, sizeof *plain, txn)) return 0;
  publish(plain, cage_ref(room));
  return 1;
}

void* key_get(void* keystore, std::uint32_t, const char* key) {
  Store* store = Store::of(keystore);
  if (!store || !key) return nullptr;
  std::uint32_t hash = key_hash(key);
  const KeyNode* node = find(&store->roots()->permanent_keys[hash % kKeyBuckets], hash, key);
  if (!node || !node->value) node = find(&store->roots()->keys[hash % kKeyBuckets], hash, key);
  return node ? cage_at(node->value) : nullptr;
}

}  // namespace kvt

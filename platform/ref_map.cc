// Open addressing with linear probing; removal moves later entries up, so that no dead entries pile up where objects
// come and go all day. Keys of one granule of 256 bytes have their homes side by side, one for each 32 bytes: the
// nested objects of a block share cache lines, and all keys within a block are found without trying each address.
#include "platform/ref_map.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "platform/store_blocks.h"

namespace kvt {
namespace {

constexpr std::uint32_t kFirstCapacity = 64;

constexpr std::uint32_t kStep = 32;
constexpr std::uint32_t kHomesOfGranule = 8;

std::uint32_t home_of(const RefMapHead& map, std::uint32_t key) {
  const std::uint32_t granule = key / (kStep * kHomesOfGranule);
  const std::uint32_t first = (granule * 2654435769u) >> (32 - std::countr_zero(map.capacity));
  return (first & ~(kHomesOfGranule - 1)) + key / kStep % kHomesOfGranule;
}
RefMapEntry* entries_of(const RefMapHead& map) { return static_cast<RefMapEntry*>(cage_at(map.entries)); }

RefMapEntry* probe(const RefMapHead& map, std::uint32_t key) {
  RefMapEntry* entries = entries_of(map);
  std::uint32_t i = home_of(map, key);
  while (entries[i].key && entries[i].key != key) i = (i + 1) & (map.capacity - 1);
  return &entries[i];
}

int move_to(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t capacity) {
  RefMapHead moved = *map;
  moved.capacity = capacity;
  std::uint32_t bytes = capacity * static_cast<std::uint32_t>(sizeof(RefMapEntry));
  void* block = store.alloc(txn, bytes);
  if (!block) return ENOMEM;
  std::memset(block, 0, bytes);
  moved.entries = cage_ref(block);
  for (std::uint32_t i = 0; i < map->capacity; i++) {
    RefMapEntry entry = entries_of(*map)[i];
    if (entry.key) *probe(moved, entry.key) = entry;
  }
  std::uint32_t before = map->entries;
  store.write(map, moved, txn);
  if (before) store.free(txn, cage_at(before));
  return 0;
}

int enlarge(Store& store, std::uint32_t txn, RefMapHead* map) {
  return move_to(store, txn, map, map->capacity ? map->capacity * 2 : kFirstCapacity);
}

}  // namespace

const std::uint32_t* ref_map_find(const RefMapHead& map, std::uint32_t key) {
  if (!map.count || !key) return nullptr;
  const RefMapEntry* entry = probe(map, key);
  return entry->key ? &entry->value : nullptr;
}

std::uint32_t ref_map_key_in(const RefMapHead& map, std::uint32_t begin, std::uint32_t length) {
  if (!map.count || !length) return 0;
  const RefMapEntry* entries = entries_of(map);
  auto find_from = [&](std::uint32_t i) {
    while (entries[i].key && entries[i].key - begin >= length) i = (i + 1) & (map.capacity - 1);
    return entries[i].key;
  };
  std::uint32_t key = 0;
  // Whichever is less: asking at each home, or looking at each entry.
  if (length / kStep < map.capacity) {
    const std::uint32_t last = (begin + length - 1) / kStep;
    for (std::uint32_t step = begin / kStep; !key && step <= last; step++) key = find_from(home_of(map, step * kStep));
  } else {
    for (std::uint32_t i = 0; !key && i < map.capacity; i++) key = find_from(i);
  }
  return key;
}

int ref_map_put(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t key, std::uint32_t value) {
  if (RefMapEntry* entry = map->count ? probe(*map, key) : nullptr; entry && entry->key) {
    return entry->value == value || store.write(&entry->value, value, txn) ? 0 : EPERM;
  }
  if (!store.announce_range(&map->count, sizeof map->count, txn)) return EPERM;
  if (map->count + 1 > map->capacity / 4 * 3) {
    if (int error = enlarge(store, txn, map)) return error;
  }
  store.write(probe(*map, key), RefMapEntry{key, value}, txn);
  map->count++;
  return 0;
}

void ref_map_shrink(Store& store, std::uint32_t txn, RefMapHead* map) {
  std::uint32_t capacity = kFirstCapacity;
  while (map->count >= capacity / 2) capacity *= 2;
  if (map->capacity) move_to(store, txn, map, std::min(capacity, map->capacity));
}

bool ref_map_remove(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t key) {
  if (!ref_map_find(*map, key) || !store.announce_range(&map->count, sizeof map->count, txn)) return false;
  RefMapEntry* entries = entries_of(*map);
  std::uint32_t mask = map->capacity - 1;
  std::uint32_t hole = static_cast<std::uint32_t>(probe(*map, key) - entries);
  for (std::uint32_t i = (hole + 1) & mask; entries[i].key; i = (i + 1) & mask) {
    // An entry may move up unless its home lies behind the hole, seen from the entry.
    if (((i - home_of(*map, entries[i].key)) & mask) < ((i - hole) & mask)) continue;
    store.write(&entries[hole], entries[i], txn);
    hole = i;
  }
  store.write(&entries[hole], RefMapEntry{0, 0}, txn);
  map->count--;
  return true;
}

}  // namespace kvt

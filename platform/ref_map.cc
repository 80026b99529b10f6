// Open addressing with linear probing; removal moves later entries up, so that no dead entries pile up where objects
// come and go all day.
#include "platform/ref_map.h"

#include <bit>
#include <cerrno>
#include <cstring>

namespace kvt {
namespace {

struct Entry {        // stored format
  std::uint32_t key;  // 0: empty
  std::uint32_t value;
};
STORED_SIZE(Entry, 8);

constexpr std::uint32_t kFirstCapacity = 64;

std::uint32_t home_of(const RefMapHead& map, std::uint32_t key) {
  return (key * 2654435769u) >> (32 - std::countr_zero(map.capacity));
}
Entry* entries_of(const RefMapHead& map) { return static_cast<Entry*>(cage_at(map.entries)); }

Entry* probe(const RefMapHead& map, std::uint32_t key) {
  Entry* entries = entries_of(map);
  std::uint32_t i = home_of(map, key);
  while (entries[i].key && entries[i].key != key) i = (i + 1) & (map.capacity - 1);
  return &entries[i];
}

int enlarge(Store& store, std::uint32_t txn, RefMapHead* map) {
  RefMapHead larger = *map;
  larger.capacity = map->capacity ? map->capacity * 2 : kFirstCapacity;
  std::uint32_t bytes = larger.capacity * static_cast<std::uint32_t>(sizeof(Entry));
  void* block = store.alloc(txn, bytes);
  if (!block) return ENOMEM;
  std::memset(block, 0, bytes);
  larger.entries = cage_ref(block);
  for (std::uint32_t i = 0; i < map->capacity; i++) {
    Entry entry = entries_of(*map)[i];
    if (entry.key) *probe(larger, entry.key) = entry;
  }
  std::uint32_t before = map->entries;
  store.write(map, larger, txn);
  if (before) store.free(txn, cage_at(before));
  return 0;
}

}  // namespace

const std::uint32_t* ref_map_find(const RefMapHead& map, std::uint32_t key) {
  if (!map.count || !key) return nullptr;
  const Entry* entry = probe(map, key);
  return entry->key ? &entry->value : nullptr;
}

std::uint32_t ref_map_key_in(const RefMapHead& map, std::uint32_t begin, std::uint32_t length) {
  if (!map.count) return 0;
  // Whichever is less: asking for each place, or looking at each entry.
  if (length / 8 < map.capacity) {
    for (std::uint32_t at = 0; at < length; at += 8) {
      if (ref_map_find(map, begin + at)) return begin + at;
    }
    return 0;
  }
  for (std::uint32_t i = 0; i < map.capacity; i++) {
    std::uint32_t key = entries_of(map)[i].key;
    if (key && key % 8 == 0 && key - begin < length) return key;
  }
  return 0;
}

int ref_map_put(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t key, std::uint32_t value) {
  if (!store.announce_range(&map->count, sizeof map->count, txn)) return EPERM;
  if (map->count + 1 > map->capacity / 4 * 3) {
    if (int error = enlarge(store, txn, map)) return error;
  }
  Entry* entry = probe(*map, key);
  bool is_new = entry->key == 0;
  store.write(entry, Entry{key, value}, txn);
  if (is_new) map->count++;
  return 0;
}

bool ref_map_remove(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t key) {
  if (!ref_map_find(*map, key) || !store.announce_range(&map->count, sizeof map->count, txn)) return false;
  Entry* entries = entries_of(*map);
  std::uint32_t mask = map->capacity - 1;
  std::uint32_t hole = static_cast<std::uint32_t>(probe(*map, key) - entries);
  for (std::uint32_t i = (hole + 1) & mask; entries[i].key; i = (i + 1) & mask) {
    // An entry may move up unless its home lies behind the hole, seen from the entry.
    if (((i - home_of(*map, entries[i].key)) & mask) < ((i - hole) & mask)) continue;
    store.write(&entries[hole], entries[i], txn);
    hole = i;
  }
  store.write(&entries[hole], Entry{0, 0}, txn);
  map->count--;
  return true;
}

}  // namespace kvt

// A map from reference to word that lies in a store: the side data of objects.
#pragma once

#include <cstdint>

#include "platform/store.h"

namespace kvt {

// Null when the key is absent. The value stays where it is until the next change of the map.
const std::uint32_t* ref_map_find(const RefMapHead& map, std::uint32_t key);
// Adds or replaces. 0, ENOMEM, or EPERM where the store may not be written.
int ref_map_put(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t key, std::uint32_t value);
// False when the key is absent.
bool ref_map_remove(Store& store, std::uint32_t txn, RefMapHead* map, std::uint32_t key);
// Moves the entries to memory that is no larger than they need, if there is some.
void ref_map_shrink(Store& store, std::uint32_t txn, RefMapHead* map);

// A key in [begin, begin + length); 0 if the map has none there.
std::uint32_t ref_map_key_in(const RefMapHead& map, std::uint32_t begin, std::uint32_t length);

}  // namespace kvt

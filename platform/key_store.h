// Named values of a store: text keys to addresses in the cage. Also the registry of type records.
#pragma once

#include <cstdint>

namespace kvt {

// The handle's members. key_put replaces the value of a key that is there; a value of NULL takes the key away.
int key_put(void* keystore, std::uint32_t txn, const char* key, void* value);
void* key_get(void* keystore, std::uint32_t txn, const char* key);

// Of a key's text: it decides the chain that the name is in.
std::uint32_t key_hash(const char* key);

}  // namespace kvt

#include "platform/super_fast_hash.h"

#include "kvt/primitives.h"

std::uint32_t SuperFastHash(const void* data, std::uint32_t length, std::uint32_t seed) {
  return kvt::super_fast_hash(data, length, seed);
}

// Hashes an object field by field, in schema order, whatever its variant; each field's hash is the next one's seed.
// Which bytes count for which type: docs/formats/hash.md.
#pragma once

#include "serial/stored_value.h"

namespace kvt {

template <class D>
std::uint32_t struct_hash(const void* object, std::uint32_t seed);

template <class Type>
struct Hash : Type {};
template <class D>
struct Hash<Nested<D>> {
  static std::uint32_t hash(const void* p, std::uint32_t seed) { return struct_hash<D>(p, seed); }
};

template <class... Fields>
std::uint32_t hash_fields(FieldList<Fields...>, const void* object, int built, std::uint32_t hash) {
  ((hash = Hash<typename Fields::Type>::hash(stored_value<Fields>(object, built), hash)), ...);
  return hash;
}

template <class D>
std::uint32_t struct_hash(const void* object, std::uint32_t seed) {
  return object ? hash_fields(typename D::Fields{}, object, built_of<D>(object), seed) : seed;
}

}  // namespace kvt

// What compare and hash read of a field.
#pragma once

#include "objects/field_types.h"

namespace kvt {

template <class D>
int built_of(const void* object) {
  if constexpr (D::kTop == 0) {
    return 0;
  } else {
    return D::kDesc.built_index(object);
  }
}

template <std::uint32_t kBytes>
[[gnu::visibility("hidden")]] alignas(8) inline constexpr char kZeroObject[kBytes]{};

// An object that an older library built ends before the fields of later variants. There it counts as what a new object
// holds, zero or empty. So an old object equals the new one that was read from its binary form, the order of objects
// stays a total one, and equal objects hash alike.
template <class Field>
const void* stored_value(const void* object, int built) {
  if constexpr (Field::kVariant > 0) {
    if (built < Field::kVariant) object = kZeroObject<Field::Owner::kPlain>;
  }
  return at_offset(object, Field::kOffset);
}

}  // namespace kvt

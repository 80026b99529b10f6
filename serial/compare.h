// Compares two objects field by field, in schema order, whatever their variants; the first difference counts.
#pragma once

#include "objects/field_types.h"

namespace kvt {

template <class D>
std::int32_t struct_compare(const void* a, const void* b);

template <class Type>
struct Order : Type {};
template <class D>
struct Order<Nested<D>> {
  static std::int32_t compare(const void* a, const void* b) { return struct_compare<D>(a, b); }
};

template <class... Fields>
std::int32_t compare_fields(FieldList<Fields...>, const void* a, const void* b) {
  std::int32_t result = 0;
  (void)((result =
              Order<typename Fields::Type>::compare(at_offset(a, Fields::kOffset), at_offset(b, Fields::kOffset))) ||
         ...);
  return result;
}

template <class D>
std::int32_t struct_compare(const void* a, const void* b) {
  if (!a || !b) return a ? 1 : b ? -1 : 0;
  return compare_fields(typename D::Fields{}, a, b);
}

}  // namespace kvt

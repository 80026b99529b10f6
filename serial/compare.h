// Compares two objects field by field, in schema order, whatever their variants; the first difference counts.
#pragma once

#include "serial/stored_value.h"

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
std::int32_t compare_fields(FieldList<Fields...>, const void* a, int built_a, const void* b, int built_b) {
  std::int32_t result = 0;
  (void)((result = Order<typename Fields::Type>::compare(stored_value<Fields>(a, built_a),
                                                         stored_value<Fields>(b, built_b))) ||
         ...);
  return result;
}

template <class D>
std::int32_t struct_compare(const void* a, const void* b) {
  if (!a || !b) return a ? 1 : b ? -1 : 0;
  return compare_fields(typename D::Fields{}, a, built_of<D>(a), b, built_of<D>(b));
}

}  // namespace kvt

// The cage: 4 GiB of address space, aligned to its size, in which everything lives that a stored 4-byte address
// reaches. A ref<T> is such an address; 0 is null. See docs/design/cage.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "kvt/type_record.h"

namespace kvt {

// The one place where a 4-byte address becomes a host address.
inline void* cage_at(std::uint32_t value) { return value ? kvt_cage_base + value : nullptr; }
// The cage is aligned to 4 GiB, so the low half of a host address is the reference; null gives 0.
inline std::uint32_t cage_ref(const void* p) { return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(p)); }
inline bool in_cage(const void* p) {
  return reinterpret_cast<std::uintptr_t>(p) - reinterpret_cast<std::uintptr_t>(kvt_cage_base) <
         (std::uintptr_t{1} << 32);
}

template <class T>
class ref {
 public:
  ref() = default;
  static ref of(const T* p) { return ref(cage_ref(p)); }
  static ref from_word(std::uint32_t w) { return ref(w); }
  T* get() const { return static_cast<T*>(cage_at(value_)); }
  T* operator->() const { return get(); }
  explicit operator bool() const { return value_ != 0; }
  std::uint32_t word() const { return value_; }
  friend bool operator==(ref a, ref b) { return a.value_ == b.value_; }

 private:
  explicit ref(std::uint32_t v) : value_(v) {}
  std::uint32_t value_;
};
static_assert(sizeof(ref<int>) == 4 && std::is_trivially_copyable_v<ref<int>>);

// Bytes that no struct fits go through these.
template <class T>
T load(const void* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}
template <class T>
void store(void* at, T value) {
  std::memcpy(at, &value, sizeof value);
}
inline void* at_offset(void* base, std::size_t offset) { return static_cast<char*>(base) + offset; }
inline const void* at_offset(const void* base, std::size_t offset) { return static_cast<const char*>(base) + offset; }

// Announces a store through the handle and makes it. A private handle that nobody has changed has nobody to tell.
template <class T>
void store_announced(kvt_handle* h, std::uint32_t txn, void* at, T value, void* owner = nullptr) {
  if (h->set_range != kvt_set_range_private) h->set_range(h, at, sizeof value, txn, owner);
  store(at, value);
}

}  // namespace kvt

#define STORED_SIZE(T, n)                                                                            \
  static_assert(sizeof(T) == (n) && std::is_standard_layout_v<T> && std::is_trivially_copyable_v<T>, \
                #T " is a stored format")
#define STORED_FIELD(T, field, offset, type)                                                              \
  static_assert(offsetof(T, field) == (offset) && std::is_same_v<decltype(T::field), type>, #T "." #field \
                                                                                               " is "     \
                                                                                               "stored")

// Text that may be, or hold, a secret: wiped wherever it lay, also where it grew out of.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace wlanctl {

template <class T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) {}
  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* at, std::size_t count) {
    explicit_bzero(static_cast<void*>(at), count * sizeof(T));
    std::allocator<T>().deallocate(at, count);
  }
  friend bool operator==(const WipingAllocator&, const WipingAllocator&) { return true; }
};

/// No std::string: a short one keeps its text in itself, past every allocator.
class SecretText {
 public:
  SecretText() = default;
  explicit SecretText(std::string_view text) { append(text); }
  void append(std::string_view text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }
  void remove_last() { bytes_.pop_back(); }
  operator std::string_view() const { return {bytes_.data(), bytes_.size()}; }
  char* data() { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }

 private:
  std::vector<char, WipingAllocator<char>> bytes_;
};

/// A buffer for reading into, wiped when it goes.
template <std::size_t kSize>
struct WipedBuffer {
  char bytes[kSize];
  ~WipedBuffer() { explicit_bzero(bytes, sizeof bytes); }
};

}  // namespace wlanctl

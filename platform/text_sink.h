// Text into a caller's buffer, as writes that fit or leave the buffer alone. Each write runs twice over the same code:
// once to count, once to store.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/wire_inline.h"

namespace kvt {

// Counts what is put, and stores it unless it only counts.
class TextSink {
 public:
  explicit TextSink(char* at) : at_(at) {}
  std::size_t used() const { return used_; }
  void put(std::string_view text) {
    if (at_) std::memcpy(at_ + used_, text.data(), text.size());
    used_ += text.size();
  }
  void put(char c) { put(std::string_view(&c, 1)); }
  void put_blanks(std::size_t count) {
    if (at_) std::memset(at_ + used_, ' ', count);
    used_ += count;
  }
  void put_number(std::uint64_t value) {
    char digits[20];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    put(std::string_view(digits, static_cast<std::size_t>(result.ptr - digits)));
  }
  void put_hex(std::string_view bytes) {
    if (!at_) {
      used_ += 2 * bytes.size();
      return;
    }
    for (const char c : bytes) put_hex_byte(static_cast<unsigned char>(c));
  }
  void put_hex_byte(unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    put(kDigits[byte >> 4]);
    put(kDigits[byte & 15]);
  }

 private:
  char* at_;
  std::size_t used_ = 0;
};

// Gives the characters written; 0 with EMSGSIZE when `room` does not hold them.
template <class Sink, class Write>
std::uint32_t write_fitting(kvt_handle* handle, char* buffer, std::int32_t room, int* err, Write write) {
  Sink count(nullptr);
  write(count);
  if (!wire_room(handle, count.used(), room, err)) return 0;
  Sink sink(buffer);
  write(sink);
  return static_cast<std::uint32_t>(sink.used());
}

}  // namespace kvt

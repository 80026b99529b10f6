// How single values move between the forms of the tree of the serial benchmark.
#pragma once

#include <zarn_types/zarn_types.h>
#include <zarn_wlan/zarn_wlan.h>

#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace peers {

// The value of a reference.
struct Identity {
  std::uint8_t bytes[40] = {};
  bool operator==(const Identity&) const = default;
};
constexpr std::size_t kIdentityOffset = 8;  // in a reference field

// An enumerator's number.
enum class Choice : std::uint32_t {};

inline std::string value_of(const Identity& v) { return {reinterpret_cast<const char*>(v.bytes), sizeof v.bytes}; }
inline std::uint32_t value_of(Choice v) { return static_cast<std::uint32_t>(v); }
template <class T>
const T& value_of(const T& v) {
  return v;
}

template <class From, class To>
void take(const From& from, To& to) {
  to = static_cast<To>(from);
}
inline void take(const std::string& from, Identity& to) {
  if (from.size() == sizeof to.bytes) std::memcpy(to.bytes, from.data(), sizeof to.bytes);
}
inline void take(const std::string& from, std::vector<std::uint8_t>& to) { to.assign(from.begin(), from.end()); }
inline void take(const std::vector<std::uint8_t>& from, Identity& to) {
  if (from.size() == sizeof to.bytes) std::memcpy(to.bytes, from.data(), sizeof to.bytes);
}

inline std::string text_of(const void* field) { return {kvt_vstring_text(field), kvt_vstring_length(field)}; }
inline std::string secret_of(const void* field) {
  std::string text(kvt_aes_vstring_length(field) + 1, '\0');
  const auto length = kvt_aes_vstring_text(field, text.data(), text.size());
  text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return text;
}
inline void identity_to_object(const Identity& from, void* object, std::size_t offset) {
  std::memcpy(static_cast<char*>(object) + offset + kIdentityOffset, from.bytes, sizeof from.bytes);
}
inline void identity_from_object(const void* object, std::size_t offset, Identity& to) {
  std::memcpy(to.bytes, static_cast<const char*>(object) + offset + kIdentityOffset, sizeof to.bytes);
}

}  // namespace peers

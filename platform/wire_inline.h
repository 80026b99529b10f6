// Wire bytes of the fixed-width primitives, big-endian, see docs/formats/wire.md. Inline, so that a generated writer of
// a whole object compiles to plain stores with one room test a field.
#pragma once

#include <bit>
#include <cerrno>
#include <concepts>
#include <cstdint>
#include <cstring>

#include "kvt/frame.h"
#include "kvt/primitives.h"
#include "platform/ref.h"
#include "platform/report_error.h"

namespace kvt {

template <std::unsigned_integral T>
constexpr T wire_order(T value) {
  if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) return value;
  if constexpr (sizeof(T) == 2) return __builtin_bswap16(value);
  if constexpr (sizeof(T) == 4) return __builtin_bswap32(value);
  if constexpr (sizeof(T) == 8) return __builtin_bswap64(value);
}

// Where a jump ends: positions wrap in 32 bits and are compared signed, and a jump from a peer may lead anywhere.
inline std::int32_t wrapped_sum(std::int32_t position, std::uint32_t bytes) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(position) + bytes);
}
// A cursor behind what was read there. It never wraps: a jump of the object around would otherwise bring it back to a
// place before the bytes. Behind their end room is negative, so that nobody reads there.
inline std::int32_t advanced(std::int32_t cursor, std::uint32_t bytes) {
  constexpr std::uint32_t kMost = INT32_MAX;
  const std::uint32_t sum = static_cast<std::uint32_t>(cursor) + bytes;  // of two that are not negative
  return static_cast<std::int32_t>(sum < kMost ? sum : kMost);
}

// Whether `need` bytes may be used; a refusal is reported. `need` is wide since it may hold a length from the wire.
inline bool wire_room(kvt_handle* handle, std::uint64_t need, std::int32_t room, int* err) {
  if (*err) return false;
  if (room >= 0 && need <= static_cast<std::uint32_t>(room)) return true;
  report_error(handle, EMSGSIZE, err);
  return false;
}

template <std::unsigned_integral T>
inline std::uint32_t wire_put(kvt_handle* handle, std::uint8_t* buffer, T value, std::int32_t room, int* err) {
  if (!wire_room(handle, sizeof value, room, err)) return 0;
  store(buffer, wire_order(value));
  return sizeof value;
}

// Reads into a local of the caller: nothing is announced.
template <std::unsigned_integral T>
inline std::uint32_t wire_get(kvt_handle* handle, const std::uint8_t* buffer, T* value, std::int32_t room, int* err) {
  if (!wire_room(handle, sizeof *value, room, err)) return 0;
  *value = wire_order(load<T>(buffer));
  return sizeof *value;
}

// Reads into a field of an object: announced.
template <std::unsigned_integral T>
inline std::uint32_t wire_get_field(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* field,
                                    std::int32_t room, int* err) {
  T value;
  const std::uint32_t used = wire_get(handle, buffer, &value, room, err);
  if (!used) return 0;
  handle->set_range(handle, field, sizeof value, txn, nullptr);
  std::memcpy(field, &value, sizeof value);
  return used;
}

// A boolean takes 4 bytes in an object and one on the wire; any value but 0 is sent, and kept, as 1.
inline std::uint32_t wire_put_boolean(kvt_handle* handle, std::uint8_t* buffer, std::uint32_t value, std::int32_t room,
                                      int* err) {
  return wire_put<std::uint8_t>(handle, buffer, value != 0, room, err);
}

inline std::uint32_t wire_get_boolean_field(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer,
                                            void* field, std::int32_t room, int* err) {
  std::uint8_t byte;
  const std::uint32_t used = wire_get(handle, buffer, &byte, room, err);
  if (!used) return 0;
  const std::uint32_t value = byte != 0;
  handle->set_range(handle, field, sizeof value, txn, nullptr);
  std::memcpy(field, &value, sizeof value);
  return used;
}

// A text or byte string as a field holds it: what follows its length on the wire.
constexpr std::uint32_t kWireLengthBytes = 4;
struct WireText {
  const char* bytes;
  std::uint32_t length;
};
inline WireText wire_text_of(const void* field) {
  const auto words = load<kvt_vstring>(field);
  if (!words.text) return {nullptr, 0};
  return {static_cast<const char*>(cage_at(words.text)), words.length};
}
inline std::uint32_t wire_text_len(const void* field) { return kWireLengthBytes + wire_text_of(field).length; }

// memmove for the few bytes that most texts have.
[[gnu::always_inline]] inline void copy_short(std::uint8_t* to, const char* from, std::uint32_t length) {
  auto both_ends = [&]<class Part>(Part) {
    const Part first = load<Part>(from), last = load<Part>(from + length - sizeof(Part));
    store(to, first);
    store(to + length - sizeof(Part), last);
  };
  if (length > 32) {
    std::memmove(to, from, length);
  } else if (length >= 16) {
    both_ends(static_cast<unsigned __int128>(0));
  } else if (length >= 8) {
    both_ends(std::uint64_t{0});
  } else if (length >= 4) {
    both_ends(std::uint32_t{0});
  } else {
    const char copy[3] = {length > 0 ? from[0] : '\0', length > 1 ? from[1] : '\0', length > 2 ? from[2] : '\0'};
    for (std::uint32_t i = 0; i < length; ++i) to[i] = static_cast<std::uint8_t>(copy[i]);
  }
}

// Gives a field new content in the block of the old, if that is as long as a new block would be and no transaction may
// want the old content back, which `announced` stores tell of. The field owns its block; the bytes may lie in it.
[[gnu::noinline]] inline bool text_replaced_in_place(bool announced, void* field, const void* bytes,
                                                     std::size_t length) {
  constexpr std::size_t kBlockUnit = 8;
  const WireText old = wire_text_of(field);
  if (announced || !old.bytes || !length || length > old.length || length / kBlockUnit != old.length / kBlockUnit)
    return false;
  auto* block = const_cast<char*>(old.bytes);
  copy_short(reinterpret_cast<std::uint8_t*>(block), static_cast<const char*>(bytes),
             static_cast<std::uint32_t>(length));
  block[length] = 0;
  store(at_offset(field, offsetof(kvt_vstring, length)), static_cast<std::uint32_t>(length));
  return true;
}

// The value of a reference: locator, then the two ids as they are.
constexpr std::uint32_t kWireOidBytes = 40;
inline void wire_store_oid(std::uint8_t* at, const void* value) {
  std::memcpy(at, value, kWireOidBytes);
  store(at, wire_order(load<std::uint64_t>(value)));
}

}  // namespace kvt

// Wire bytes of the fixed-width primitives, big-endian, see docs/formats/wire.md. Inline, so that a generated writer of
// a whole object compiles to plain stores with one room test a field.
#pragma once

#include <bit>
#include <cerrno>
#include <concepts>
#include <cstdint>
#include <cstring>

#include "kvt/frame.h"
#include "platform/report_error.h"

namespace kvt {

template <std::unsigned_integral T>
constexpr T wire_order(T value) {
  if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) return value;
  if constexpr (sizeof(T) == 2) return __builtin_bswap16(value);
  if constexpr (sizeof(T) == 4) return __builtin_bswap32(value);
  if constexpr (sizeof(T) == 8) return __builtin_bswap64(value);
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
  const T ordered = wire_order(value);
  std::memcpy(buffer, &ordered, sizeof ordered);
  return sizeof ordered;
}

// Reads into a local of the caller: nothing is announced.
template <std::unsigned_integral T>
inline std::uint32_t wire_get(kvt_handle* handle, const std::uint8_t* buffer, T* value, std::int32_t room, int* err) {
  if (!wire_room(handle, sizeof *value, room, err)) return 0;
  T ordered;
  std::memcpy(&ordered, buffer, sizeof ordered);
  *value = wire_order(ordered);
  return sizeof ordered;
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

}  // namespace kvt

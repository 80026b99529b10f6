// The 40-byte identity that a reference field holds, and the order of timer blocks. What an identity stands for in this
// process is not decided here.
#include <cstring>

#include "kvt/primitives.h"
#include "platform/ref.h"
#include "platform/wire_inline.h"

namespace {

STORED_SIZE(kvt_oid_value, 40);
STORED_FIELD(kvt_oid_value, locator, 0, std::uint64_t);
STORED_FIELD(kvt_oid_value, id, 8, std::uint8_t[16]);
STORED_FIELD(kvt_oid_value, src, 24, std::uint8_t[16]);

constexpr std::uint32_t kIdOffset = 8;
constexpr std::uint32_t kIdsSize = 32;  // id and src lie side by side, in an object and on the wire

// Head of a timer block: due time, then interval, each {seconds, microseconds}, all signed 64-bit.
constexpr int kTimerWords = 4;

std::int32_t sign_of(int order) { return (order > 0) - (order < 0); }

}  // namespace

extern "C" {

std::uint32_t kvtlib_oid_len(kvt_handle*, std::uint32_t, const void*) { return sizeof(kvt_oid_value); }

std::uint32_t kvtlib_oid_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer, const void* oid,
                                 std::int32_t room, int* err) {
  if (!kvt::wire_room(handle, sizeof(kvt_oid_value), room, err)) return 0;
  kvt::wire_store_oid(buffer, oid);
  return sizeof(kvt_oid_value);
}

std::uint32_t kvtlib_oid_unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* oid,
                                   std::int32_t room, std::uint32_t, int* err) {
  if (!kvt::wire_room(handle, sizeof(kvt_oid_value), room, err)) return 0;
  kvt_oid_value value;
  value.locator = kvt::wire_order(kvt::load<std::uint64_t>(buffer));
  std::memcpy(value.id, buffer + kIdOffset, kIdsSize);
  kvt::store_announced(handle, txn, oid, value);
  return sizeof value;
}

// The locator says where the target lies today; which object is meant is told by the two ids, so they come first.
std::int32_t kvtlib_oid_compare(const void* a, const void* b) {
  if (const int order = std::memcmp(kvt::at_offset(a, kIdOffset), kvt::at_offset(b, kIdOffset), kIdsSize))
    return sign_of(order);
  const auto left = kvt::load<std::uint64_t>(a), right = kvt::load<std::uint64_t>(b);
  return (left > right) - (left < right);
}

// Identities are not counted, so a field that goes away leaves nothing to take back.
void kvtlib_oid_release_internal(kvt_handle*, std::uint32_t, void*, int*) {}

int kvt_oid_id_is_zero(const void* id) {
  return (kvt::load<std::uint64_t>(id) | kvt::load<std::uint64_t>(kvt::at_offset(id, 8))) == 0;
}

std::int32_t kvtlib_timer_compare(const void* a, const void* b) {
  for (int word = 0; word < kTimerWords; ++word) {
    const auto left = kvt::load<std::int64_t>(kvt::at_offset(a, 8 * word));
    const auto right = kvt::load<std::int64_t>(kvt::at_offset(b, 8 * word));
    if (left != right) return left < right ? -1 : 1;
  }
  return 0;
}

}  // extern "C"

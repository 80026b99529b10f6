// The 40-byte identity that a reference field holds, and the order of timer blocks. What an identity stands for is
// decided in oid.cc.
#include <cstring>

#include "platform/handle.h"
#include "platform/oid.h"
#include "platform/wire_inline.h"

namespace {

STORED_SIZE(kvt_oid_value, 40);
STORED_FIELD(kvt_oid_value, locator, 0, std::uint64_t);
STORED_FIELD(kvt_oid_value, id, 8, std::uint8_t[16]);
STORED_FIELD(kvt_oid_value, src, 24, std::uint8_t[16]);

constexpr std::uint32_t kIdOffset = 8;
constexpr std::uint32_t kValueOffset = 8;  // of the identity in a reference field
constexpr std::uint32_t kIdsSize = 32;     // id and src lie side by side, in an object and on the wire

// Head of a timer block: due time, then interval, each {seconds, microseconds}, all signed 64-bit.
constexpr int kTimerWords = 4;

std::int32_t sign_of(int order) { return (order > 0) - (order < 0); }

}  // namespace

extern "C" {

std::uint32_t kvtlib_oid_len(kvt_handle*, std::uint32_t, const void*) { return sizeof(kvt_oid_value); }

std::uint32_t kvtlib_oid_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer, const void* oid,
                                 std::int32_t room, int* err) {
  if (!kvt::wire_room(handle, sizeof(kvt_oid_value), room, err)) return 0;
  kvt::store(buffer, kvt::wire_order(kvt::load<std::uint64_t>(oid)));
  std::memcpy(buffer + kIdOffset, kvt::at_offset(oid, kIdOffset), kIdsSize);
  return sizeof(kvt_oid_value);
}

std::uint32_t kvtlib_oid_unmarshal(kvt_handle* handle, std::uint32_t txn, const std::uint8_t* buffer, void* oid,
                                   std::int32_t room, std::uint32_t, int* err) {
  if (!kvt::wire_room(handle, sizeof(kvt_oid_value), room, err)) return 0;
  kvt_oid_value value;
  value.locator = kvt::wire_order(kvt::load<std::uint64_t>(buffer));
  std::memcpy(value.id, buffer + kIdOffset, kIdsSize);
  kvt::Store& store = *handle->runtime->store;
  kvt::OidEntry* before = kvt::oid_find(store, oid);
  kvt::OidEntry* after = kvt::oid_find(store, &value);
  // The new count comes first: the old one may be what an identity lives by.
  int error = after && after != before ? kvt::oid_take(store, txn, after) : 0;
  if (!error && before && before != after) error = kvt::oid_drop(store, txn, before);
  if (error) {
    kvt::report_error(handle, error, err);
    return 0;
  }
  kvt::store_announced(handle, txn, oid, value);
  return sizeof value;
}

// Which object is meant is told by the two ids, so they come first; the locator tells a marked field from an empty one.
std::int32_t kvtlib_oid_compare(const void* a, const void* b) {
  if (const int order = std::memcmp(kvt::at_offset(a, kIdOffset), kvt::at_offset(b, kIdOffset), kIdsSize))
    return sign_of(order);
  const auto left = kvt::load<std::uint64_t>(a), right = kvt::load<std::uint64_t>(b);
  return (left > right) - (left < right);
}

void kvtlib_oid_release_internal(kvt_handle* handle, std::uint32_t txn, void* field, int* err) {
  if (*err) return;
  kvt::Store& store = *handle->runtime->store;
  kvt::OidEntry* entry = kvt::oid_find(store, kvt::at_offset(field, kValueOffset));
  const int error = entry ? kvt::oid_drop(store, txn, entry) : 0;
  if (error) kvt::report_error(handle, error, err);
}

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

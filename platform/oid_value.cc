// The 40-byte identity that a reference field holds, and the order of timer blocks. What an identity stands for is
// decided in oid.cc.
#include <cstring>

#include "platform/handle.h"
#include "platform/oid.h"
#include "platform/print_line.h"
#include "platform/ref.h"
#include "platform/super_fast_hash.h"
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
  kvt::wire_store_oid(buffer, oid);
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

std::uint32_t kvt_oid_print(kvt_handle* handle, std::uint32_t, char* buffer, std::uint32_t indent, const char* label,
                            const void* oid, std::int32_t room, int* err) {
  const std::uint64_t locator = kvt::wire_order(kvt::load<std::uint64_t>(oid));
  const auto* ids = static_cast<const char*>(kvt::at_offset(oid, kIdOffset));
  return kvt::print_line(handle, buffer, indent, label, "kvt_oid", room, err, [&](kvt::TextSink& sink) {
    sink.put_hex(std::string_view(reinterpret_cast<const char*>(&locator), sizeof locator));
    sink.put('/');
    sink.put_hex(std::string_view(ids, kIdsSize / 2));
    sink.put('/');
    sink.put_hex(std::string_view(ids + kIdsSize / 2, kIdsSize / 2));
  });
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

std::uint32_t kvtlib_timer_hash(const void* p, std::uint32_t seed) {
  return kvt::super_fast_hash(p, kTimerWords * sizeof(std::int64_t), seed);
}

}  // extern "C"

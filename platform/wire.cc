// The fixed parts of a serial object (variant, flag, remote-access data, jump) and of a serial record (message header).
// They are read into locals of the caller, so nothing here is announced.
#include "kvt/primitives.h"
#include "platform/ref.h"
#include "platform/wire_inline.h"

namespace {

// Message header on the wire; the block in memory that it is written from has another layout and no version.
enum HeaderOffset : std::size_t {
  kKind = 0,
  kReserved = 1,
  kStateTracking = 7,
  kWord = 8,
  kLength = 12,
  kLayout = 16,
  kZero = 18
};
constexpr std::size_t kHeaderSize = KVT_MESSAGE_HEADER_BYTES;
constexpr std::uint8_t kMessageKind = 0xBC;
constexpr std::uint16_t kHeaderLayout = 1;

constexpr std::uint32_t kRemoteBlockSize = 8;
constexpr std::uint32_t kRemoteSize = kRemoteBlockSize + 1;

template <class T>
void put_at(std::uint8_t* at, T value) {
  kvt::store(at, kvt::wire_order(value));
}
template <class T>
T get_at(const std::uint8_t* at) {
  return kvt::wire_order(kvt::load<T>(at));
}

}  // namespace

extern "C" {

std::uint32_t _kvt_instance_variant_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer,
                                            const std::int8_t* variant, std::int32_t room, int* err) {
  return kvt::wire_put(handle, buffer, static_cast<std::uint8_t>(*variant), room, err);
}

std::uint32_t _kvt_instance_variant_unmarshal(kvt_handle* handle, std::uint32_t, const std::uint8_t* buffer,
                                              std::int8_t* variant, std::int32_t room, int* err) {
  std::uint8_t byte;
  const std::uint32_t used = kvt::wire_get(handle, buffer, &byte, room, err);
  if (used) *variant = static_cast<std::int8_t>(byte);
  return used;
}

std::uint32_t _kvt_instance_obj_flag_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer,
                                             const std::uint8_t* flag, std::int32_t room, int* err) {
  return kvt::wire_put(handle, buffer, *flag, room, err);
}

std::uint32_t _kvt_instance_obj_flag_unmarshal(kvt_handle* handle, std::uint32_t, const std::uint8_t* buffer,
                                               std::uint8_t* flag, std::int32_t room, int* err) {
  return kvt::wire_get(handle, buffer, flag, room, err);
}

std::uint32_t _kvt_instance_ra_data_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer,
                                            const std::uint8_t* block, const std::uint8_t* byte, std::int32_t room,
                                            int* err) {
  if (!kvt::wire_room(handle, kRemoteSize, room, err)) return 0;
  std::memcpy(buffer, block, kRemoteBlockSize);
  buffer[kRemoteBlockSize] = *byte;
  return kRemoteSize;
}

std::uint32_t _kvt_instance_ra_data_unmarshal(kvt_handle* handle, std::uint32_t, const std::uint8_t* buffer,
                                              std::uint8_t* block, std::uint8_t* byte, std::int32_t room, int* err) {
  if (!kvt::wire_room(handle, kRemoteSize, room, err)) return 0;
  std::memcpy(block, buffer, kRemoteBlockSize);
  *byte = buffer[kRemoteBlockSize];
  return kRemoteSize;
}

std::uint32_t _kvt_variant_jump_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer,
                                        const std::uint32_t* jump, std::int32_t room, int* err) {
  return kvt::wire_put(handle, buffer, *jump, room, err);
}

std::uint32_t _kvt_variant_jump_unmarshal(kvt_handle* handle, std::uint32_t, const std::uint8_t* buffer,
                                          std::uint32_t* jump, std::int32_t room, int* err) {
  return kvt::wire_get(handle, buffer, jump, room, err);
}

std::uint32_t _kvt_message_header_marshal(kvt_handle* handle, std::uint32_t, std::uint8_t* buffer,
                                          const kvt_message_header* header, std::int32_t room, int* err) {
  if (!kvt::wire_room(handle, KVT_MESSAGE_HEADER_BYTES, room, err)) return 0;
  buffer[kKind] = header->kind;
  std::memcpy(buffer + kReserved, header->reserved, sizeof header->reserved);
  buffer[kStateTracking] = header->state_tracking;
  put_at(buffer + kWord, header->word);
  put_at(buffer + kLength, header->length);
  put_at(buffer + kLayout, kHeaderLayout);
  std::memset(buffer + kZero, 0, kHeaderSize - std::size_t{kZero});
  return KVT_MESSAGE_HEADER_BYTES;
}

std::uint32_t _kvt_message_header_unmarshal(kvt_handle* handle, std::uint32_t, const std::uint8_t* buffer,
                                            kvt_message_header* header, std::int32_t room, int* err) {
  if (!kvt::wire_room(handle, KVT_MESSAGE_HEADER_BYTES, room, err)) return 0;
  if (buffer[kKind] != kMessageKind || get_at<std::uint16_t>(buffer + kLayout) != kHeaderLayout) {
    kvt::report_error(handle, EPROTO, err);
    return 0;
  }
  header->kind = buffer[kKind];
  std::memcpy(header->reserved, buffer + kReserved, sizeof header->reserved);
  header->state_tracking = buffer[kStateTracking];
  header->word = get_at<std::uint32_t>(buffer + kWord);
  header->length = get_at<std::uint32_t>(buffer + kLength);
  return KVT_MESSAGE_HEADER_BYTES;
}

std::uint8_t kvtlib_type_header_get_state_tracking_flag(const std::uint8_t* bytes) {
  return bytes && (bytes[1] & KVT_OBJ_STATE_TRACKED);
}

}  // extern "C"

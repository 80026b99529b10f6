#include "serial/binary.h"

namespace kvt {
namespace {

// The variant to be written: what the object has, what the domain allows, what the type has.
int written_variant(kvt_handle* h, const void* object, const kvt_type_record* record, int cap, bool check_domain,
                    int* err) {
  int variant = kvt_get_instance_variant(object, 1, 0);
  const int allowed = kvt_domain_lookup_variant(h, &h->domain, record, err);
  if (check_domain && variant > allowed) {
    kvt_store_epoch_err(h, kEidrm, err);
    variant = allowed;
  }
  return cap_variant(variant, cap);
}

std::int32_t step(std::uint32_t bytes) { return static_cast<std::int32_t>(bytes); }

}  // namespace

WriteFrame write_begin(const StructDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                       const void* object, std::int32_t length, bool check_domain, int* err) {
  WriteFrame frame{buffer, length, 0, 0, 0, false, nullptr};
  frame.variant = written_variant(h, object, type.record, type.top, check_domain, err);
  frame.cursor += step(wire_put(h, buffer, static_cast<std::uint8_t>(frame.variant), frame.room(), err));

  std::uint8_t flag = static_cast<const std::uint8_t*>(object)[6];
  frame.states = tracking_of(h, type) == Tracking::kOn;
  if (frame.states) {
    if (flag & KVT_OBJ_STATE_TRACKED) frame.source = state_block(type, h, txn, const_cast<void*>(object));
    flag |= KVT_OBJ_STATE_TRACKED;
  } else {
    flag &= static_cast<std::uint8_t>(~KVT_OBJ_STATE_TRACKED);
  }
  flag &= kWireFlags;
  frame.cursor += step(wire_put(h, buffer + frame.cursor, flag, frame.room(), err));
  if (flag & KVT_OBJ_RA_DATA) {
    const std::uint8_t block[8] = {}, byte = 0;
    frame.cursor += step(_kvt_instance_ra_data_marshal(h, txn, buffer + frame.cursor, block, &byte, frame.room(), err));
  }
  frame.jump_at = frame.cursor;
  frame.cursor += step(wire_put(h, buffer + frame.cursor, std::uint32_t{0}, frame.room(), err));
  return frame;
}

// The jump is rewritten in the room that it has taken; when it had none, the slot is set.
std::uint32_t write_end(kvt_handle* h, const WriteFrame& frame, int* err) {
  wire_put(h, frame.buffer + frame.jump_at, static_cast<std::uint32_t>(frame.cursor - frame.jump_at), 4, err);
  return static_cast<std::uint32_t>(frame.cursor);
}

ReadFrame read_unusual_head(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                            void* object, std::int32_t length, int* err) {
  ReadFrame frame{buffer, length, 0, 0, 0, 0, 0, false, nullptr};
  std::uint8_t variant = 0, flag = 0;
  frame.cursor += step(wire_get(h, buffer, &variant, frame.room(), err));
  frame.cursor += step(wire_get(h, buffer + frame.cursor, &flag, frame.room(), err));
  flag &= kWireFlags;
  if (flag & KVT_OBJ_RA_DATA) {
    std::uint8_t block[8], byte;
    frame.cursor +=
        step(_kvt_instance_ra_data_unmarshal(h, txn, buffer + frame.cursor, block, &byte, frame.room(), err));
  }
  const auto* bytes = static_cast<const std::uint8_t*>(object);
  frame.variant = cap_variant(static_cast<std::int8_t>(variant), static_cast<std::int8_t>(bytes[5]));
  frame.jump_at = frame.cursor;
  frame.cursor += step(wire_get(h, buffer + frame.cursor, &frame.jump, frame.room(), err));

  frame.states = flag & KVT_OBJ_STATE_TRACKED;
  frame.kept = flag & static_cast<std::uint8_t>(~KVT_OBJ_STATE_TRACKED);
  if (tracking_of(h, type) == Tracking::kOn) {
    if (!(bytes[6] & KVT_OBJ_STATE_TRACKED)) {
      trace(type.trace, kStructMessages, kMsgStructTrackingMismatch);
      kvt_fatal();
    }
    frame.kept |= KVT_OBJ_STATE_TRACKED;
    if (frame.states) frame.target = state_block(type, h, txn, object);
  }
  return frame;
}

void trace_jump(const StructDesc& type, std::int32_t cursor, std::int32_t base, std::uint32_t jump) {
  trace(type.trace, kStructMessages, kMsgStructJump, cursor, base, static_cast<std::int32_t>(jump));
}

std::uint32_t enum_marshal(const EnumDesc& type, kvt_handle* h, std::uint32_t, std::uint8_t* buffer, const void* object,
                           std::int32_t length, int* err) {
  if (!enter(h, length, err)) return 0;
  const auto variant = static_cast<std::uint8_t>(written_variant(h, object, type.record, type.cap, true, err));
  std::int32_t cursor = step(wire_put(h, buffer, variant, length, err));
  const auto value = load<std::uint32_t>(at_offset(object, kEnumValueOffset));
  cursor += step(wire_put(h, buffer + cursor, value, length - cursor, err));
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t enum_unmarshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                             void* object, std::int32_t length, std::uint32_t, int* err) {
  if (!enter(h, length, err)) return 0;
  const FieldStores to{h, txn};
  std::uint8_t variant = 0;
  std::int32_t cursor = step(wire_get(h, buffer, &variant, length, err));
  const int built = static_cast<const std::int8_t*>(object)[5];
  to.put(at_offset(object, 4), static_cast<std::int8_t>(cap_variant(static_cast<std::int8_t>(variant), built)));
  int own = 0;  // the link is stored whatever the slot says
  restore_type_link(to, object, type.record, *type.module, &own);
  void* at = at_offset(object, kEnumValueOffset);
  auto value = load<std::uint32_t>(at);
  if (const std::uint32_t used = wire_get(h, buffer + cursor, &value, length - cursor, err)) {
    to.put(at, value);
    cursor += step(used);
  }
  to.put(at, value);
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t flag_marshal(const EnumDesc& type, kvt_handle* h, std::uint32_t, std::uint8_t* buffer, const void* object,
                           std::int32_t length, int* err) {
  if (!enter(h, length, err)) return 0;
  const auto variant = static_cast<std::uint8_t>(written_variant(h, object, type.record, type.cap, true, err));
  std::int32_t cursor = step(wire_put(h, buffer, variant, length, err));
  const std::int32_t jump_at = cursor;
  cursor += step(wire_put(h, buffer + cursor, std::uint32_t{0}, length - cursor, err));
  if (!*err) {
    if (length - cursor < 1) {
      fail(h, kEmsgsize, err);
    } else {
      buffer[cursor++] = load<std::uint8_t>(at_offset(object, kFlagBitsOffset));
    }
  }
  wire_put(h, buffer + jump_at, static_cast<std::uint32_t>(cursor - jump_at), 4, err);
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t flag_unmarshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                             void* object, std::int32_t length, std::uint32_t, int* err) {
  if (!enter(h, length, err)) return 0;
  const FieldStores to{h, txn};
  std::uint8_t variant = 0;
  std::uint32_t jump = 0;
  std::int32_t cursor = step(wire_get(h, buffer, &variant, length, err));
  const std::int32_t jump_at = cursor;
  cursor += step(wire_get(h, buffer + cursor, &jump, length - cursor, err));
  to.put(at_offset(object, 4), static_cast<std::int8_t>(cap_variant(static_cast<std::int8_t>(variant), type.cap)));
  int own = 0;
  restore_type_link(to, object, type.record, *type.module, &own);
  if (*err) return static_cast<std::uint32_t>(cursor);
  if (length - cursor < 1) {
    fail(h, kEmsgsize, err);
    return static_cast<std::uint32_t>(cursor);
  }
  to.put(at_offset(object, kFlagBitsOffset), buffer[cursor++]);
  const std::int32_t end = wrapped_sum(jump_at, jump);
  if (end <= cursor) return static_cast<std::uint32_t>(cursor);
  trace(type.trace, kEnumMessages, kMsgEnumJump, cursor, jump_at, static_cast<std::int32_t>(jump));
  return static_cast<std::uint32_t>(end);
}

}  // namespace kvt

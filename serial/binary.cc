#include "serial/binary.h"

#include "objects/state_tracking.h"

namespace kvt {
namespace {

constexpr std::uint8_t kWireFlags = KVT_OBJ_STATE_TRACKED | KVT_OBJ_RA_DATA;

// The entry of every writer and reader.
bool enter(kvt_handle* h, std::int32_t length, int* err) {
  if (*err) return false;
  kvt_clear_last_error(h);
  if (length >= 1) return true;
  fail(h, kEmsgsize, err);
  return false;
}

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

// A wire form carries no type identity: the reader's type goes into the object.
void restore_type_link(kvt_handle* h, std::uint32_t txn, void* object, const kvt_type_record* record,
                       const ModuleDesc& module, int* err) {
  void* cell = kvt_get_manifested_type_info_ptr_mem(object, err);
  if (*err || !cell) return;
  if (const kvt_type_record* linked = linked_record(h, txn, record, module)) {
    store_announced(h, txn, cell, kvt_type_link_of(linked));
  }
}

std::int32_t step(std::uint32_t bytes) { return static_cast<std::int32_t>(bytes); }

// Takes the cursor to where the object ends when the writer knew more fields. A jump beyond the bytes there are is that
// of a cut form.
std::int32_t follow_jump(const TracePlace& place, std::uint32_t family, MessagePlace message, kvt_handle* h,
                         std::int32_t cursor, std::int32_t base, std::uint32_t jump, std::int32_t length, int* err) {
  const std::int64_t end = static_cast<std::int64_t>(base) + static_cast<std::int32_t>(jump);
  if (end <= cursor) return cursor;
  if (end > length) {
    if (!*err) fail(h, kEmsgsize, err);
    return cursor;
  }
  trace(place, family, message, cursor, base, static_cast<std::int32_t>(jump));
  return static_cast<std::int32_t>(end);
}

}  // namespace

bool write_begin(const StructDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                 std::int32_t length, bool check_domain, int* err, WriteFrame& frame) {
  if (!enter(h, length, err)) return false;
  frame = WriteFrame{buffer, length, 0, 0, 0, false, nullptr};
  frame.variant = written_variant(h, object, type.record, type.top, check_domain, err);
  const auto variant = static_cast<std::int8_t>(frame.variant);
  frame.cursor += step(_kvt_instance_variant_marshal(h, txn, buffer, &variant, frame.room(), err));

  std::uint8_t flag = static_cast<const std::uint8_t*>(object)[6];
  frame.states = tracking_of(h, type) == Tracking::kOn;
  if (frame.states) {
    if (flag & KVT_OBJ_STATE_TRACKED) frame.source = state_block(type, h, txn, const_cast<void*>(object));
    flag |= KVT_OBJ_STATE_TRACKED;
  } else {
    flag &= static_cast<std::uint8_t>(~KVT_OBJ_STATE_TRACKED);
  }
  flag &= kWireFlags;
  frame.cursor += step(_kvt_instance_obj_flag_marshal(h, txn, buffer + frame.cursor, &flag, frame.room(), err));
  if (flag & KVT_OBJ_RA_DATA) {
    const std::uint8_t block[8] = {}, byte = 0;
    frame.cursor += step(_kvt_instance_ra_data_marshal(h, txn, buffer + frame.cursor, block, &byte, frame.room(), err));
  }
  frame.jump_at = frame.cursor;
  const std::uint32_t jump = 0;
  frame.cursor += step(_kvt_variant_jump_marshal(h, txn, buffer + frame.cursor, &jump, frame.room(), err));
  return true;
}

std::uint32_t write_end(kvt_handle* h, std::uint32_t txn, WriteFrame& frame, int* err) {
  const auto jump = static_cast<std::uint32_t>(frame.cursor - frame.jump_at);
  _kvt_variant_jump_marshal(h, txn, frame.buffer + frame.jump_at, &jump, 4, err);
  return static_cast<std::uint32_t>(frame.cursor);
}

bool read_begin(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer, void* object,
                std::int32_t length, int* err, ReadFrame& frame) {
  if (!enter(h, length, err)) return false;
  frame = ReadFrame{buffer, length, 0, 0, 0, 0, 0, false, nullptr};
  std::int8_t variant = 0;
  std::uint8_t flag = 0;
  frame.cursor += step(_kvt_instance_variant_unmarshal(h, txn, buffer, &variant, frame.room(), err));
  frame.cursor += step(_kvt_instance_obj_flag_unmarshal(h, txn, buffer + frame.cursor, &flag, frame.room(), err));
  flag &= kWireFlags;
  if (flag & KVT_OBJ_RA_DATA) {
    std::uint8_t block[8], byte;
    frame.cursor +=
        step(_kvt_instance_ra_data_unmarshal(h, txn, buffer + frame.cursor, block, &byte, frame.room(), err));
  }
  const auto* bytes = static_cast<const std::uint8_t*>(object);
  frame.variant = cap_variant(variant, static_cast<std::int8_t>(bytes[5]));
  frame.jump_at = frame.cursor;
  frame.cursor += step(_kvt_variant_jump_unmarshal(h, txn, buffer + frame.cursor, &frame.jump, frame.room(), err));

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
  return true;
}

std::uint32_t read_end(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, ReadFrame& frame,
                       int* err) {
  frame.cursor = follow_jump(type.trace, kStructMessages, kMsgStructJump, h, frame.cursor, frame.jump_at, frame.jump,
                             frame.length, err);
  auto* bytes = static_cast<std::uint8_t*>(object);
  store_announced(h, txn, bytes + 4, static_cast<std::int8_t>(frame.variant));
  store_announced(h, txn, bytes + 6, static_cast<std::uint8_t>(bytes[6] | frame.kept));
  restore_type_link(h, txn, object, type.record, *type.module, err);
  return static_cast<std::uint32_t>(frame.cursor);
}

std::uint32_t enum_marshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                           const void* object, std::int32_t length, int* err) {
  if (!enter(h, length, err)) return 0;
  const auto variant = static_cast<std::int8_t>(written_variant(h, object, type.record, type.cap, true, err));
  std::int32_t cursor = step(_kvt_instance_variant_marshal(h, txn, buffer, &variant, length, err));
  const auto value = load<std::uint32_t>(at_offset(object, kEnumValueOffset));
  cursor += step(u_int32_marshal(h, txn, buffer + cursor, &value, length - cursor, err));
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t enum_unmarshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                             void* object, std::int32_t length, std::uint32_t update, int* err) {
  if (!enter(h, length, err)) return 0;
  std::int8_t variant = 0;
  std::int32_t cursor = step(_kvt_instance_variant_unmarshal(h, txn, buffer, &variant, length, err));
  variant = static_cast<std::int8_t>(cap_variant(variant, static_cast<const std::int8_t*>(object)[5]));
  store_announced(h, txn, at_offset(object, 4), variant);
  int own = 0;
  restore_type_link(h, txn, object, type.record, *type.module, &own);
  void* at = at_offset(object, kEnumValueOffset);
  cursor += step(u_int32_unmarshal(h, txn, buffer + cursor, at, length - cursor, update, err));
  store_announced(h, txn, at, load<std::uint32_t>(at));
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t flag_marshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                           const void* object, std::int32_t length, int* err) {
  if (!enter(h, length, err)) return 0;
  const auto variant = static_cast<std::int8_t>(written_variant(h, object, type.record, type.cap, true, err));
  std::int32_t cursor = step(_kvt_instance_variant_marshal(h, txn, buffer, &variant, length, err));
  const std::int32_t jump_at = cursor;
  std::uint32_t jump = 0;
  cursor += step(_kvt_variant_jump_marshal(h, txn, buffer + cursor, &jump, length - cursor, err));
  if (!*err) {
    if (length - cursor < 1) {
      fail(h, kEmsgsize, err);
    } else {
      buffer[cursor++] = load<std::uint8_t>(at_offset(object, kFlagBitsOffset));
    }
  }
  jump = static_cast<std::uint32_t>(cursor - jump_at);
  _kvt_variant_jump_marshal(h, txn, buffer + jump_at, &jump, 4, err);
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t flag_unmarshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                             void* object, std::int32_t length, std::uint32_t, int* err) {
  if (!enter(h, length, err)) return 0;
  std::int8_t variant = 0;
  std::uint32_t jump = 0;
  std::int32_t cursor = step(_kvt_instance_variant_unmarshal(h, txn, buffer, &variant, length, err));
  const std::int32_t jump_at = cursor;
  cursor += step(_kvt_variant_jump_unmarshal(h, txn, buffer + cursor, &jump, length - cursor, err));
  store_announced(h, txn, at_offset(object, 4), static_cast<std::int8_t>(cap_variant(variant, type.cap)));
  int own = 0;
  restore_type_link(h, txn, object, type.record, *type.module, &own);
  if (*err) return static_cast<std::uint32_t>(cursor);
  if (length - cursor < 1) {
    fail(h, kEmsgsize, err);
    return static_cast<std::uint32_t>(cursor);
  }
  store_announced(h, txn, at_offset(object, kFlagBitsOffset), buffer[cursor++]);
  return static_cast<std::uint32_t>(
      follow_jump(type.trace, kEnumMessages, kMsgEnumJump, h, cursor, jump_at, jump, length, err));
}

}  // namespace kvt

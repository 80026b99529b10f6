// The reader of the binary form. It tests room and error at every field; serial/quick_read.h has the one for the common
// case, and comes back to this one in all others.
#pragma once

#include "serial/binary.h"

namespace kvt {

// What a reader hands to all its fields.
struct ReadContext : FieldStores {
  ReadContext(kvt_handle* handle, std::uint32_t context, std::uint32_t word, int* slot)
      : FieldStores(handle, context), update(word), err(slot) {}
  std::uint32_t update;
  int* err;
};

struct ReadFrame {
  const std::uint8_t* buffer;
  std::int32_t length;
  std::int32_t cursor;
  std::int32_t jump_at;
  std::uint32_t jump;
  int variant;
  std::uint8_t kept;     // flag bits to be kept
  bool states;           // a state byte follows each field on the wire
  std::uint8_t* target;  // where they go; null: dropped
  std::int32_t room() const { return length - cursor; }
  const std::uint8_t* position() const { return buffer + (room() < 0 ? length : cursor); }
};

// The head of an object with remote-access data or state bytes, of one on a tracking handle, and of one that is cut.
ReadFrame read_unusual_head(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                            void* object, std::int32_t length, int* err);
[[gnu::cold]] void trace_jump(const StructDesc& type, std::int32_t cursor, std::int32_t base, std::uint32_t jump);

// A wire form carries no type identity: the reader's type goes into the object.
inline void restore_type_link(const FieldStores& to, void* object, const kvt_type_record* record,
                              const ModuleDesc& module, int* err) {
  void* cell = load<std::uint8_t>(at_offset(object, 6)) & KVT_OBJ_TYPE_LINK_OWNED
                   ? kvt_get_manifested_type_info_ptr_mem(object, err)
                   : object;
  if (*err || !cell) return;
  if (const kvt_type_record* linked = linked_record(to.h, to.txn, record, module)) {
    to.put(cell, kvt_type_link_of(linked));
  }
}

// Reads a field that is in no run.
template <class Type>
[[gnu::always_inline]] inline std::uint32_t wire_read(const ReadContext& to, const std::uint8_t* b, void* p,
                                                      std::int32_t room) {
  if constexpr (requires { Wire<Type>::read(to, b, p, room); }) {
    return Wire<Type>::read(to, b, p, room);
  } else {
    return Wire<Type>::unmarshal(to.h, to.txn, b, p, room, to.update, to.err);
  }
}

template <class Field>
[[gnu::always_inline]] inline void read_field(ReadFrame& frame, const ReadContext& to, void* object) {
  if constexpr (kOnWire<Field>) {
    if (frame.variant < Field::kVariant) return;
    using Type = typename Field::Type;
    void* p = at_offset(object, Field::kOffset);
    if constexpr (HasInlineForm<Type>) {
      if (wire_room(to.h, InlineForm<Type>::kBytes, frame.room(), to.err)) {
        InlineForm<Type>::get(to, frame.buffer + frame.cursor, p);
        frame.cursor += InlineForm<Type>::kBytes;
      }
    } else {
      frame.cursor = advanced(frame.cursor, wire_read<Type>(to, frame.position(), p, frame.room()));
    }
    if (frame.states && state_has_room<Field>(frame.room())) {
      const std::uint8_t state = frame.buffer[frame.cursor++];
      if (frame.target) to.put(frame.target + Field::kState, state);
    }
  }
}

template <class... Fields>
[[gnu::always_inline]] inline void read_fields(FieldList<Fields...>, ReadFrame& frame, const ReadContext& to,
                                               void* object) {
  (read_field<Fields>(frame, to, object), ...);
}
template <class D>
[[gnu::always_inline]] inline std::uint32_t read_object(ReadFrame frame, const ReadContext& to, void* object) {
  if (frame.variant >= 0) read_fields(typename D::Fields{}, frame, to, object);
  if (const std::int32_t end = wrapped_sum(frame.jump_at, frame.jump); end > frame.cursor) {
    trace_jump(D::kDesc, frame.cursor, frame.jump_at, frame.jump);
    frame.cursor = end;
  }
  auto* bytes = static_cast<std::uint8_t*>(object);
  to.put(bytes + 4, static_cast<std::int8_t>(frame.variant));
  to.put(bytes + 6, static_cast<std::uint8_t>(bytes[6] | frame.kept));
  restore_type_link(to, object, D::kDesc.record, *D::kDesc.module, to.err);
  return static_cast<std::uint32_t>(frame.cursor);
}
template <class D>
[[gnu::noinline]] std::uint32_t read_unusual_object(const ReadContext& to, const std::uint8_t* buffer, void* object,
                                                    std::int32_t length) {
  return read_object<D>(read_unusual_head(D::kDesc, to.h, to.txn, buffer, object, length, to.err), to, object);
}

template <class D>
std::uint32_t struct_read(const ReadContext& to, const std::uint8_t* buffer, void* object, std::int32_t length) {
  if (!enter(to.h, length, to.err)) return 0;
  if (length < static_cast<std::int32_t>(kObjectOverhead) || buffer[1] & kWireFlags ||
      tracking_of(to.h, D::kDesc) == Tracking::kOn) {
    return read_unusual_object<D>(to, buffer, object, length);
  }
  constexpr std::int32_t kJumpAt = 2;
  const int built = static_cast<const std::int8_t*>(object)[5];
  const ReadFrame frame{buffer,
                        length,
                        kObjectOverhead,
                        kJumpAt,
                        wire_order(load<std::uint32_t>(buffer + kJumpAt)),
                        cap_variant(static_cast<std::int8_t>(buffer[0]), built),
                        0,
                        false,
                        nullptr};
  return read_object<D>(frame, to, object);
}

}  // namespace kvt

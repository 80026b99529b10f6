// The reader of the binary form. What it tests at every field it tests once for a run of fields that have a fixed
// width.
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
    if constexpr (IsText<Type>) {
      if (room >= static_cast<std::int32_t>(kWireLengthBytes) && !*to.err) {
        const auto length = wire_order(load<std::uint32_t>(b));
        if (length <= static_cast<std::uint32_t>(room) - kWireLengthBytes &&
            text_replaced_in_place(to.announced, p, b + kWireLengthBytes, length)) {
          return kWireLengthBytes + length;
        }
      }
    }
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

// Fields in a run are read without a test between them where nothing can go wrong: all their bytes are there, no state
// bytes are between them and nobody needs to be told of the stores.
template <class Type>
struct RunForm;
template <HasInlineForm Type>
struct RunForm<Type> : InlineForm<Type> {};
// Enumerated types, of siblings too.
template <class Type>
requires(Type::kKind == FieldKind::kEnum) struct RunForm<Type> {
  static constexpr std::uint32_t kBytes = kEnumBytes;
  static void get(const ReadContext& to, const std::uint8_t* at, void* p) {
    const std::uint8_t* header = static_cast<const std::uint8_t*>(p);
    if (to.h->mode || header[6] & KVT_OBJ_TYPE_LINK_OWNED) {
      Wire<Type>::unmarshal(to.h, to.txn, at, p, kBytes, to.update, to.err);
      return;
    }
    const int built = static_cast<std::int8_t>(header[5]);
    store(at_offset(p, 4), static_cast<std::int8_t>(cap_variant(static_cast<std::int8_t>(*at), built)));
    store(p, kvt_type_link_of(Type::record()));
    store(at_offset(p, kEnumValueOffset), wire_order(load<std::uint32_t>(at + 1)));
  }
};

// The first fields of a list that make a run, all of one variant, and those behind them.
template <class Taken, class Left>
struct LeadingRun {
  using Run = Taken;
  using Rest = Left;
};
template <class Field, class... Taken>
concept Joins = requires {
  RunForm<typename Field::Type>::kBytes;
}
&&((Field::kVariant == Taken::kVariant) && ...);
template <class... Taken, class Field, class... Left>
requires Joins<Field, Taken...>
struct LeadingRun<FieldList<Taken...>, FieldList<Field, Left...>>
    : LeadingRun<FieldList<Taken..., Field>, FieldList<Left...>> {
};

template <class First, class... Others>
[[gnu::always_inline]] inline void read_run(FieldList<First, Others...>, ReadFrame& frame, const ReadContext& to,
                                            void* object) {
  constexpr std::uint32_t kBytes =
      (RunForm<typename First::Type>::kBytes + ... + RunForm<typename Others::Type>::kBytes);
  if (frame.variant < First::kVariant) return;
  if (frame.states || to.announced || *to.err || frame.room() < static_cast<std::int32_t>(kBytes)) {
    read_field<First>(frame, to, object);
    (read_field<Others>(frame, to, object), ...);
    return;
  }
  const std::uint8_t* at = frame.buffer + frame.cursor;
  auto get = [&]<class Field>(Field) __attribute__((always_inline)) {
    using Form = RunForm<typename Field::Type>;
    Form::get(to, at, at_offset(object, Field::kOffset));
    at += Form::kBytes;
  };
  get(First{});
  (get(Others{}), ...);
  frame.cursor += kBytes;
}

template <class... Fields>
[[gnu::always_inline]] inline void read_fields(FieldList<Fields...>, ReadFrame& frame, const ReadContext& to,
                                               void* object);
template <class First, class... Rest>
[[gnu::always_inline]] inline void read_single(FieldList<First, Rest...>, ReadFrame& frame, const ReadContext& to,
                                               void* object) {
  read_field<First>(frame, to, object);
  read_fields(FieldList<Rest...>{}, frame, to, object);
}
template <class... Fields>
[[gnu::always_inline]] inline void read_fields(FieldList<Fields...> all, ReadFrame& frame, const ReadContext& to,
                                               void* object) {
  using Cut = LeadingRun<FieldList<>, FieldList<Fields...>>;
  if constexpr (sizeof...(Fields) == 0) {
    return;
  } else if constexpr (std::is_same_v<typename Cut::Run, FieldList<>>) {
    read_single(all, frame, to, object);
  } else {
    read_run(typename Cut::Run{}, frame, to, object);
    read_fields(typename Cut::Rest{}, frame, to, object);
  }
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

template <class D>
std::uint32_t struct_unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer, void* object,
                               std::int32_t length, std::uint32_t update, int* err) {
  return struct_read<D>(ReadContext(h, txn, update, err), buffer, object, length);
}

}  // namespace kvt

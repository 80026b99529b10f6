// The binary form of objects: writer, reader and length, made for each type from its field list. Layout and byte order:
// docs/formats/wire.md.
#pragma once

#include "objects/field_types.h"

namespace kvt {

constexpr std::uint32_t kObjectOverhead = 6;  // variant, flag, jump

struct WriteFrame {
  std::uint8_t* buffer;
  std::int32_t length;
  std::int32_t cursor;
  std::int32_t jump_at;
  int variant;
  bool states;                 // a state byte follows each field
  const std::uint8_t* source;  // where those bytes are; null: each is 0
  std::int32_t room() const { return length - cursor; }
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
};

// Everything around the fields. false: nothing was done, the result is 0.
bool write_begin(const StructDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                 std::int32_t length, bool check_domain, int* err, WriteFrame& frame);
std::uint32_t write_end(kvt_handle* h, std::uint32_t txn, WriteFrame& frame, int* err);
bool read_begin(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer, void* object,
                std::int32_t length, int* err, ReadFrame& frame);
std::uint32_t read_end(const StructDesc& type, kvt_handle* h, std::uint32_t txn, void* object, ReadFrame& frame,
                       int* err);

std::uint32_t enum_marshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                           const void* object, std::int32_t length, int* err);
std::uint32_t enum_unmarshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                             void* object, std::int32_t length, std::uint32_t update, int* err);
std::uint32_t flag_marshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                           const void* object, std::int32_t length, int* err);
std::uint32_t flag_unmarshal(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer,
                             void* object, std::int32_t length, std::uint32_t update, int* err);
constexpr std::uint32_t kEnumBytes = 5, kFlagBytes = 6;

template <class D>
std::uint32_t struct_marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                             std::int32_t length, bool check_domain, int* err);
template <class D>
std::uint32_t struct_unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer, void* object,
                               std::int32_t length, std::uint32_t update, int* err);
template <class D>
std::uint32_t struct_len(kvt_handle* h, const void* object, std::uint32_t txn);

// The bytes of a field's type: by name for primitives and sibling types, by template for the module's own.
template <class Type>
struct Wire : Type {};
template <class D>
struct Wire<Nested<D>> {
  static std::uint32_t len(kvt_handle* h, std::uint32_t txn, const void* p) { return struct_len<D>(h, p, txn); }
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* b, const void* p, std::int32_t room,
                               int* err) {
    return struct_marshal<D>(h, txn, b, p, room, true, err);
  }
  static std::uint32_t unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* b, void* p, std::int32_t room,
                                 std::uint32_t update, int* err) {
    return struct_unmarshal<D>(h, txn, b, p, room, update, err);
  }
};
template <class D>
struct Wire<Enumerated<D>> {
  static std::uint32_t len(kvt_handle*, std::uint32_t, const void*) { return kEnumBytes; }
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* b, const void* p, std::int32_t room,
                               int* err) {
    return enum_marshal(D::kDesc, h, txn, b, p, room, err);
  }
  static std::uint32_t unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* b, void* p, std::int32_t room,
                                 std::uint32_t update, int* err) {
    return enum_unmarshal(D::kDesc, h, txn, b, p, room, update, err);
  }
};
template <class D>
struct Wire<FlagSet<D>> {
  static std::uint32_t len(kvt_handle*, std::uint32_t, const void*) { return kFlagBytes; }
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* b, const void* p, std::int32_t room,
                               int* err) {
    return flag_marshal(D::kDesc, h, txn, b, p, room, err);
  }
  static std::uint32_t unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* b, void* p, std::int32_t room,
                                 std::uint32_t update, int* err) {
    return flag_unmarshal(D::kDesc, h, txn, b, p, room, update, err);
  }
};

// Behind a reference a state byte needs two bytes of room, behind any other field one.
template <class Field>
constexpr std::int32_t kStateRoom = Field::Type::kKind == FieldKind::kReference ? 2 : 1;

template <class Field>
void write_field(WriteFrame& frame, kvt_handle* h, std::uint32_t txn, const void* object, int* err) {
  if constexpr (Field::Type::kKind != FieldKind::kTimer) {
    if (frame.variant < Field::kVariant) return;
    frame.cursor += static_cast<std::int32_t>(Wire<typename Field::Type>::marshal(
        h, txn, frame.buffer + frame.cursor, at_offset(object, Field::kOffset), frame.room(), err));
    if (frame.states && frame.room() >= kStateRoom<Field>) {
      frame.buffer[frame.cursor++] = frame.source ? frame.source[Field::kState] : 0;
    }
  }
}

template <class Field>
void read_field(ReadFrame& frame, kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t update, int* err) {
  if constexpr (Field::Type::kKind != FieldKind::kTimer) {
    if (frame.variant < Field::kVariant) return;
    frame.cursor += static_cast<std::int32_t>(Wire<typename Field::Type>::unmarshal(
        h, txn, frame.buffer + frame.cursor, at_offset(object, Field::kOffset), frame.room(), update, err));
    if (frame.states && frame.room() >= kStateRoom<Field>) {
      const std::uint8_t state = frame.buffer[frame.cursor++];
      if (frame.target) store_announced(h, txn, frame.target + Field::kState, state);
    }
  }
}

template <class Field>
std::uint32_t field_len(kvt_handle* h, std::uint32_t txn, const void* object, int variant, std::uint32_t state_byte) {
  if (variant < Field::kVariant) return 0;
  if constexpr (Field::Type::kKind == FieldKind::kTimer) {
    return state_byte;  // counted, though never written
  } else {
    return Wire<typename Field::Type>::len(h, txn, at_offset(object, Field::kOffset)) + state_byte;
  }
}

template <class... Fields>
void write_fields(FieldList<Fields...>, WriteFrame& frame, kvt_handle* h, std::uint32_t txn, const void* object,
                  int* err) {
  (write_field<Fields>(frame, h, txn, object, err), ...);
}
template <class... Fields>
void read_fields(FieldList<Fields...>, ReadFrame& frame, kvt_handle* h, std::uint32_t txn, void* object,
                 std::uint32_t update, int* err) {
  (read_field<Fields>(frame, h, txn, object, update, err), ...);
}
template <class... Fields>
std::uint32_t fields_len(FieldList<Fields...>, kvt_handle* h, std::uint32_t txn, const void* object, int variant,
                         std::uint32_t state_byte) {
  return (field_len<Fields>(h, txn, object, variant, state_byte) + ...);
}

template <class D>
std::uint32_t struct_marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                             std::int32_t length, bool check_domain, int* err) {
  WriteFrame frame;
  if (!write_begin(D::kDesc, h, txn, buffer, object, length, check_domain, err, frame)) return 0;
  if (frame.variant >= 0) write_fields(typename D::Fields{}, frame, h, txn, object, err);
  return write_end(h, txn, frame, err);
}

template <class D>
std::uint32_t struct_unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer, void* object,
                               std::int32_t length, std::uint32_t update, int* err) {
  ReadFrame frame;
  if (!read_begin(D::kDesc, h, txn, buffer, object, length, err, frame)) return 0;
  if (frame.variant >= 0) read_fields(typename D::Fields{}, frame, h, txn, object, update, err);
  return read_end(D::kDesc, h, txn, object, frame, err);
}

template <class D>
std::uint32_t struct_len(kvt_handle* h, const void* object, std::uint32_t txn) {
  const int variant = kvt_get_instance_variant(object, 1, 0);
  if (variant < 0) {
    if (object) tracking_of(h, D::kDesc);
    return kObjectOverhead;
  }
  const std::uint32_t state_byte = tracking_of(h, D::kDesc) == Tracking::kOn ? 1 : 0;
  return kObjectOverhead + fields_len(typename D::Fields{}, h, txn, object, variant, state_byte);
}

template <class D>
std::uint32_t struct_len_cr(kvt_handle* h, const void* object) {
  return h->last_error ? 0 : struct_len<D>(h, object, h->default_txn);
}

}  // namespace kvt

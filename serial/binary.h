// The binary form of objects: writer, reader and length, made for each type from its field list. Layout and byte order:
// docs/formats/wire.md. The writer here tests room and error at every field; serial/quick_write.h has the one for the
// common case, and comes back to this one in all others. The readers: serial/binary_read.h and serial/quick_read.h.
#pragma once

#include "objects/field_types.h"
#include "objects/state_tracking.h"
#include "platform/wire_inline.h"

namespace kvt {

constexpr std::uint32_t kObjectOverhead = 6;  // variant, flag, jump
constexpr std::uint8_t kWireFlags = KVT_OBJ_STATE_TRACKED | KVT_OBJ_RA_DATA;

// Stores into an object. Where announcing does nothing the calls are left out.
struct FieldStores {
  FieldStores(kvt_handle* handle, std::uint32_t context)
      : h(handle), txn(context), announced(handle->set_range != kvt_set_range_private) {}
  kvt_handle* h;
  std::uint32_t txn;
  bool announced;
  template <class T>
  void put(void* at, T value) const {
    if (announced) h->set_range(h, at, sizeof value, txn, nullptr);
    store(at, value);
  }
};

// The same where announcing does nothing.
struct PlainStores {
  template <class T>
  void put(void* at, T value) const {
    store(at, value);
  }
};

struct ReadContext;

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

// The entry of every writer and reader. false: nothing is to be done, the result is 0.
inline bool enter(kvt_handle* h, std::int32_t length, int* err) {
  if (*err) return false;
  kvt_clear_last_error(h);
  if (length >= 1) return true;
  fail(h, kEmsgsize, err);
  return false;
}

// Everything around the fields.
WriteFrame write_begin(const StructDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                       const void* object, std::int32_t length, bool check_domain, int* err);
std::uint32_t write_end(kvt_handle* h, const WriteFrame& frame, int* err);
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
std::uint32_t struct_marshal_checked(kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                                     std::int32_t length, bool check_domain, int* err);
template <class D>
std::uint32_t struct_read(const ReadContext& to, const std::uint8_t* buffer, void* object, std::int32_t length);
template <class D>
std::uint32_t struct_len(kvt_handle* h, const void* object, std::uint32_t txn);

// The bytes of the types that are written and read in line: always as many, whatever the value.
template <class T>
struct NumberForm {
  static constexpr std::uint32_t kBytes = sizeof(T);
  static void put(std::uint8_t* at, const void* p) { store(at, wire_order(load<T>(p))); }
  template <class Stores>
  static void get(const Stores& to, const std::uint8_t* at, void* p) {
    to.put(p, wire_order(load<T>(at)));
  }
};
template <class Type>
struct InlineForm;
template <>
struct InlineForm<U8> : NumberForm<std::uint8_t> {};
template <>
struct InlineForm<U16> : NumberForm<std::uint16_t> {};
template <>
struct InlineForm<U32> : NumberForm<std::uint32_t> {};
template <>
struct InlineForm<U64> : NumberForm<std::uint64_t> {};
template <>
struct InlineForm<Boolean> {
  static constexpr std::uint32_t kBytes = 1;
  static void put(std::uint8_t* at, const void* p) { *at = load<kvt_boolean>(p) != 0; }
  template <class Stores>
  static void get(const Stores& to, const std::uint8_t* at, void* p) {
    to.put(p, kvt_boolean{*at != 0});
  }
};
template <class Type>
concept HasInlineForm = requires {
  InlineForm<Type>::kBytes;
};

// The bytes of a field's type: of the module's own by template, of siblings and other primitives by name.
template <class Type>
struct Wire : Type {};
template <HasInlineForm Type>
struct Wire<Type> {
  using Form = InlineForm<Type>;
  static std::uint32_t len(kvt_handle*, std::uint32_t, const void*) { return Form::kBytes; }
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t, std::uint8_t* b, const void* p, std::int32_t room,
                               int* err) {
    if (!wire_room(h, Form::kBytes, room, err)) return 0;
    Form::put(b, p);
    return Form::kBytes;
  }
};
template <class Type>
concept IsText = std::is_same_v<Type, Vstring> || std::is_same_v<Type, Bytestr>;
template <IsText Type>
struct Wire<Type> : Type {
  static std::uint32_t len(kvt_handle*, std::uint32_t, const void* p) { return wire_text_len(p); }
};
template <class D>
struct Wire<Nested<D>> {
  static std::uint32_t len(kvt_handle* h, std::uint32_t txn, const void* p) { return struct_len<D>(h, p, txn); }
  static std::uint32_t marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* b, const void* p, std::int32_t room,
                               int* err) {
    return struct_marshal_checked<D>(h, txn, b, p, room, true, err);
  }
  static std::uint32_t read(const ReadContext& to, const std::uint8_t* b, void* p, std::int32_t room) {
    return struct_read<D>(to, b, p, room);
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

template <class Field>
constexpr bool kOnWire = Field::Type::kKind != FieldKind::kTimer;

// Whether the state byte of a field has room, when it is written, read, or passed over: behind a reference it needs two
// bytes, behind any other field one. Room is all that counts, also after an error.
template <class Field>
bool state_has_room(std::int32_t room) {
  return room >= (Field::Type::kKind == FieldKind::kReference ? 2 : 1);
}

template <class Field>
void write_field(WriteFrame& frame, kvt_handle* h, std::uint32_t txn, const void* object, int* err) {
  if constexpr (kOnWire<Field>) {
    if (frame.variant < Field::kVariant) return;
    frame.cursor += static_cast<std::int32_t>(Wire<typename Field::Type>::marshal(
        h, txn, frame.buffer + frame.cursor, at_offset(object, Field::kOffset), frame.room(), err));
    if (frame.states && state_has_room<Field>(frame.room())) {
      frame.buffer[frame.cursor++] = frame.source ? frame.source[Field::kState] : 0;
    }
  }
}

template <class Field>
std::uint32_t field_len(kvt_handle* h, std::uint32_t txn, const void* object, int variant) {
  if constexpr (kOnWire<Field>) {
    return variant < Field::kVariant ? 0 : Wire<typename Field::Type>::len(h, txn, at_offset(object, Field::kOffset));
  } else {
    return 0;
  }
}

template <class... Fields>
void write_fields(FieldList<Fields...>, WriteFrame& frame, kvt_handle* h, std::uint32_t txn, const void* object,
                  int* err) {
  (write_field<Fields>(frame, h, txn, object, err), ...);
}
template <class... Fields>
std::uint32_t fields_len(FieldList<Fields...>, kvt_handle* h, std::uint32_t txn, const void* object, int variant) {
  return (field_len<Fields>(h, txn, object, variant) + ...);
}

template <class D>
[[gnu::noinline]] std::uint32_t struct_marshal_checked(kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                                                       const void* object, std::int32_t length, bool check_domain,
                                                       int* err) {
  if (!enter(h, length, err)) return 0;
  WriteFrame frame = write_begin(D::kDesc, h, txn, buffer, object, length, check_domain, err);
  if (frame.variant >= 0) write_fields(typename D::Fields{}, frame, h, txn, object, err);
  return write_end(h, frame, err);
}

// State bytes are counted by the schema, which counts a field that has no bytes of its own as well.
template <class D>
std::uint32_t struct_len(kvt_handle* h, const void* object, std::uint32_t txn) {
  const int variant = kvt_get_instance_variant(object, 1, 0);
  std::uint32_t bytes = kObjectOverhead;
  if (variant >= 0) bytes += fields_len(typename D::Fields{}, h, txn, object, variant);
  if (!object || tracking_of(h, D::kDesc) != Tracking::kOn || variant < 0) return bytes;
  return bytes + D::kLenStates[cap_variant(variant, D::kTop)];
}

template <class D>
std::uint32_t struct_len_cr(kvt_handle* h, const void* object) {
  return h->last_error ? 0 : struct_len<D>(h, object, h->default_txn);
}

}  // namespace kvt

#include "serial/binary_read.h"
#include "serial/quick_read.h"
#include "serial/quick_write.h"

// The reader for the common case: an object that nobody watches, of the top variant and with its static type record at
// every level, and bytes that hold just that, all of them there. It tests room once for all that has a fixed width and
// then only at strings. Where the case is another one, also when that shows half-way, the reader of
// serial/binary_read.h reads the object from its first byte: it finds the bytes unchanged, and fields that this one has
// read take the same values once more.
#pragma once

#include "serial/quick_write.h"

namespace kvt {

struct QuickRead : PlainStores, QuickLimit {
  kvt_handle* h;
  std::uint32_t txn;
  std::uint32_t update;
  const std::uint8_t* end;
};

// The header of an object that is linked to a static record and of the variant that it was built with. What its
// instance variant is doesn't matter, it is stored anew; nor do flags, but the one that tells of another kind of link.
inline bool head_fits(const void* object, std::uint32_t link, std::int8_t built) {
  const auto* bytes = static_cast<const std::uint8_t*>(object);
  return load<std::uint32_t>(object) == link && static_cast<std::int8_t>(bytes[5]) == built &&
         !(bytes[6] & KVT_OBJ_TYPE_LINK_OWNED);
}

template <class D>
const std::uint8_t* quick_read(QuickRead& from, const std::uint8_t* at, void* object);

// One of these for each type of a field: reads it, or refuses and gives any position. A refusal ends the reading.
// A type that is read by name: its bytes are as many as it says.
template <class Type>
struct QuickIn {
  static const std::uint8_t* get(QuickRead& from, const std::uint8_t* at, void* p) {
    int err = 0;
    const auto room = static_cast<std::int32_t>(from.end - at);
    const std::uint32_t used = Type::unmarshal(from.h, from.txn, at, p, room, from.update, &err);
    constexpr std::uint32_t kFixed = Quick<Type, false>::kFixed;
    if (err) from.refused = true;
    return err || (used != kFixed && !from.take(used - kFixed)) ? at : at + used;
  }
};
template <HasInlineForm Type>
struct QuickIn<Type> {
  static const std::uint8_t* get(QuickRead& from, const std::uint8_t* at, void* p) {
    InlineForm<Type>::get(from, at, p);
    return at + InlineForm<Type>::kBytes;
  }
};
template <IsText Type>
struct QuickIn<Type> {
  static const std::uint8_t* get(QuickRead& from, const std::uint8_t* at, void* p) {
    const auto length = wire_order(load<std::uint32_t>(at));
    if (!from.take(length)) return at;
    if (!text_replaced_in_place(false, p, at + kWireLengthBytes, length)) {
      int err = 0;
      Type::unmarshal(from.h, from.txn, at, p, static_cast<std::int32_t>(kWireLengthBytes + length), from.update, &err);
      if (err) from.refused = true;
    }
    return at + kWireLengthBytes + length;
  }
};
template <class Type>
requires(Type::kKind == FieldKind::kEnum) struct QuickIn<Type> {
  static const std::uint8_t* get(QuickRead& from, const std::uint8_t* at, void* p) {
    const int variant = static_cast<std::int8_t>(*at);
    if (!head_fits(p, Type::kLink, Type::kTop) || variant > Type::kTop) {
      from.refused = true;
      return at;
    }
    store(at_offset(p, 4), static_cast<std::int8_t>(variant));
    store(at_offset(p, kEnumValueOffset), wire_order(load<std::uint32_t>(at + 1)));
    return at + kEnumBytes;
  }
};
template <class D>
struct QuickIn<FlagSet<D>> : QuickIn<Wire<FlagSet<D>>> {};
template <class D>
struct QuickIn<Nested<D>> {
  static const std::uint8_t* get(QuickRead& from, const std::uint8_t* at, void* p) {
    return quick_read<D>(from, at, p);
  }
};

template <class Field>
[[gnu::always_inline]] inline bool quick_read_field(QuickRead& from, const std::uint8_t*& at, void* object) {
  if constexpr (kOnWire<Field>) {
    using Type = typename Field::Type;
    at = QuickIn<Type>::get(from, at, at_offset(object, Field::kOffset));
    if constexpr (!HasInlineForm<Type>) return !from.refused;
  }
  return true;
}
template <class... Fields>
[[gnu::always_inline]] inline bool quick_read_fields(FieldList<Fields...>, QuickRead& from, const std::uint8_t*& at,
                                                     void* object) {
  return (quick_read_field<Fields>(from, at, object) && ...);
}

template <class D>
const std::uint8_t* quick_read(QuickRead& from, const std::uint8_t* at, void* object) {
  const std::uint8_t* jump = at + 2;
  if (at[0] != D::kTop || at[1] || !head_fits(object, D::kLink, D::kTop)) {
    from.refused = true;
    return at;
  }
  at += kObjectOverhead;
  if (!quick_read_fields(typename D::Fields{}, from, at, object)) return at;
  if (wire_order(load<std::uint32_t>(jump)) != static_cast<std::uint32_t>(at - jump)) from.refused = true;
  store(at_offset(object, 4), static_cast<std::int8_t>(D::kTop));
  return at;
}

template <class D>
std::uint32_t struct_unmarshal(kvt_handle* h, std::uint32_t txn, const std::uint8_t* buffer, void* object,
                               std::int32_t length, std::uint32_t update, int* err) {
  constexpr auto kFixed = static_cast<std::int32_t>(Quick<Nested<D>, false>::kFixed);
  if (!*err && length >= kFixed && !h->mode && tracking_of(h, D::kDesc) != Tracking::kOn && store_is_unheard(h)) {
    kvt_clear_last_error(h);
    QuickRead from{{}, {length - kFixed}, h, txn, update, buffer + length};
    const std::uint8_t* end = quick_read<D>(from, buffer, object);
    if (!from.refused) return static_cast<std::uint32_t>(end - buffer);
  }
  return struct_read<D>(ReadContext(h, txn, update, err), buffer, object, length);
}

}  // namespace kvt

// The writer for the common case: a domain without rules, no remote-access data, and room for everything. It tests
// room once for all that has a fixed width and then only at strings. Where the case is another one, also when that
// shows half-way, the writer of serial/binary.h writes the object from its first byte: this one changes nothing but
// bytes inside the room.
#pragma once

#include "serial/binary.h"

namespace kvt {

// What one on the quick way has left, of room or of bytes.
struct QuickLimit {
  std::int32_t slack;  // beyond what all fixed-width parts take
  bool refused = false;

  // For bytes whose number only the object, or the bytes themselves tell.
  bool take(std::uint32_t bytes) {
    if (bytes > static_cast<std::uint32_t>(slack)) {
      refused = true;
      return false;
    }
    slack -= static_cast<std::int32_t>(bytes);
    return true;
  }
};

struct QuickWrite : QuickLimit {
  kvt_handle* h;
  std::uint32_t txn;
  const std::uint8_t* end;
};

template <class D, bool kStates>
std::uint8_t* quick_object(QuickWrite& to, std::uint8_t* at, const void* object);

// A type that is written by name: its bytes are as many as it says.
template <class Type, bool kStates>
struct Quick {
  static constexpr std::uint32_t kFixed = 0;
  static std::uint8_t* put(QuickWrite& to, std::uint8_t* at, const void* p) {
    int err = 0;
    const std::uint32_t used = Type::marshal(to.h, to.txn, at, p, static_cast<std::int32_t>(to.end - at), &err);
    if (err) to.refused = true;
    return err || !to.take(used) ? at : at + used;
  }
};
template <HasInlineForm Type, bool kStates>
struct Quick<Type, kStates> {
  static constexpr std::uint32_t kFixed = InlineForm<Type>::kBytes;
  static std::uint8_t* put(QuickWrite&, std::uint8_t* at, const void* p) {
    InlineForm<Type>::put(at, p);
    return at + kFixed;
  }
};
template <IsText Type, bool kStates>
struct Quick<Type, kStates> {
  static constexpr std::uint32_t kFixed = kWireLengthBytes;
  static std::uint8_t* put(QuickWrite& to, std::uint8_t* at, const void* p) {
    const WireText text = wire_text_of(p);
    store(at, wire_order(text.length));
    at += kFixed;
    if (!to.take(text.length)) return at;
    copy_short(at, text.bytes, text.length);
    return at + text.length;
  }
};
template <bool kStates>
struct Quick<Oid, kStates> {
  static constexpr std::uint32_t kFixed = kWireOidBytes;
  static std::uint8_t* put(QuickWrite&, std::uint8_t* at, const void* p) {
    wire_store_oid(at, at_offset(p, Oid::kValueOffset));
    return at + kFixed;
  }
};
template <class Type, bool kStates>
requires(Type::kKind == FieldKind::kEnum) struct Quick<Type, kStates> {
  static constexpr std::uint32_t kFixed = kEnumBytes;
  static std::uint8_t* put(QuickWrite& to, std::uint8_t* at, const void* p) {
    const auto variant = load<std::int8_t>(at_offset(p, 4));
    if (variant > 0) {  // how many variants there are, the type itself knows
      int err = 0;
      if (Wire<Type>::marshal(to.h, to.txn, at, p, kFixed, &err) != kFixed) to.refused = true;
      return at + kFixed;
    }
    store(at, variant);
    store(at + 1, wire_order(load<std::uint32_t>(at_offset(p, kEnumValueOffset))));
    return at + kFixed;
  }
};
template <class D, bool kStates>
struct Quick<FlagSet<D>, kStates> : Quick<Wire<FlagSet<D>>, kStates> {};

template <class D, bool kStates>
struct Quick<Nested<D>, kStates> {
  template <class Field>
  static constexpr std::uint32_t fixed_of() {
    if constexpr (kOnWire<Field>) {
      return Quick<typename Field::Type, kStates>::kFixed + kStates;
    } else {
      return 0;
    }
  }
  template <class... Fields>
  static constexpr std::uint32_t fixed(FieldList<Fields...>) {
    return kObjectOverhead + (fixed_of<Fields>() + ...);
  }
  static constexpr std::uint32_t kFixed = fixed(typename D::Fields{});
  static std::uint8_t* put(QuickWrite& to, std::uint8_t* at, const void* p) {
    return quick_object<D, kStates>(to, at, p);
  }
};

template <class Field, bool kStates>
[[gnu::always_inline]] inline std::uint8_t* quick_field(QuickWrite& to, std::uint8_t* at, const void* object,
                                                        int variant, const std::uint8_t* source) {
  if constexpr (kOnWire<Field>) {
    if (variant < Field::kVariant) return at;
    at = Quick<typename Field::Type, kStates>::put(to, at, at_offset(object, Field::kOffset));
    if constexpr (kStates) {
      if (state_has_room<Field>(static_cast<std::int32_t>(to.end - at))) *at++ = source ? source[Field::kState] : 0;
    }
  }
  return at;
}
template <bool kStates, class... Fields>
[[gnu::always_inline]] inline std::uint8_t* quick_fields(FieldList<Fields...>, QuickWrite& to, std::uint8_t* at,
                                                         const void* object, int variant, const std::uint8_t* source) {
  ((at = quick_field<Fields, kStates>(to, at, object, variant, source)), ...);
  return at;
}

template <class D, bool kStates>
std::uint8_t* quick_object(QuickWrite& to, std::uint8_t* at, const void* object) {
  const auto* bytes = static_cast<const std::uint8_t*>(object);
  const int variant = cap_variant(static_cast<std::int8_t>(bytes[4]), D::kTop);
  if (bytes[6] & KVT_OBJ_RA_DATA) to.refused = true;
  const std::uint8_t* source = nullptr;
  if (kStates && bytes[6] & KVT_OBJ_STATE_TRACKED) {
    source = state_block(D::kDesc, to.h, to.txn, const_cast<void*>(object));
  }
  store(at, static_cast<std::int8_t>(variant));
  at[1] = kStates ? KVT_OBJ_STATE_TRACKED : 0;
  std::uint8_t* jump = at + 2;
  at += kObjectOverhead;
  if (variant >= 0) at = quick_fields<kStates>(typename D::Fields{}, to, at, object, variant, source);
  store(jump, wire_order(static_cast<std::uint32_t>(at - jump)));
  return at;
}

// @return the bytes written; 0: the case is not the common one
template <class D, bool kStates>
std::uint32_t quick_marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                            std::int32_t length) {
  constexpr auto kFixed = static_cast<std::int32_t>(Quick<Nested<D>, kStates>::kFixed);
  if (length < kFixed) return 0;
  QuickWrite to{{length - kFixed}, h, txn, buffer + length};
  const std::uint8_t* at = quick_object<D, kStates>(to, buffer, object);
  return to.refused ? 0 : static_cast<std::uint32_t>(at - buffer);
}

template <class D>
std::uint32_t struct_marshal(kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, const void* object,
                             std::int32_t length, bool check_domain, int* err) {
  if (!enter(h, length, err)) return 0;
  if (!h->domain.rules) {
    const std::uint32_t written = tracking_of(h, D::kDesc) == Tracking::kOn
                                      ? quick_marshal<D, true>(h, txn, buffer, object, length)
                                      : quick_marshal<D, false>(h, txn, buffer, object, length);
    if (written) return written;
  }
  return struct_marshal_checked<D>(h, txn, buffer, object, length, check_domain, err);
}

}  // namespace kvt

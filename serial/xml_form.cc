#include "serial/xml_form.h"

#include <cstdio>

#include "objects/flag_set.h"
#include "objects/state_tracking.h"

namespace kvt {
namespace {

constexpr int kAbsent = 2;
constexpr std::size_t kChildSize = 256;

bool has_xml(const FieldDesc& f) { return f.type->to_xml != nullptr; }

// An element in a document, and where its children are looked for.
class XmlElement {
 public:
  XmlElement(kvt_xml_document* document, const char* path)
      : document_(document), level_(kvt_xml_enter(document, path)), entered_(path && level_) {}
  ~XmlElement() {
    if (entered_) kvt_xml_leave(document_, level_);
  }
  XmlElement(const XmlElement&) = delete;
  XmlElement& operator=(const XmlElement&) = delete;
  explicit operator bool() const { return level_ != 0; }
  // Whether the child is there. The document stands at it then.
  bool child(const char* name) { return kvt_xml_child(document_, level_, name); }

 private:
  kvt_xml_document* document_;
  std::uint32_t level_;
  bool entered_;
};

std::uint32_t empty_child(kvt_handle* h, std::uint32_t txn, const EnumDesc& type, const char* child, bool known,
                          char* buffer, std::int32_t room, int* err) {
  char text[kChildSize];
  const int length = known ? std::snprintf(text, sizeof text, "<%s/>", child)
                           : std::snprintf(text, sizeof text, "<%s value out of range/>", type.name);
  return xml_enum_print(h, txn, buffer, text, room, static_cast<std::uint32_t>(length), err);
}

}  // namespace

std::uint32_t struct_to_xml(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                            const void* object, std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  const int variant = kvt_get_instance_variant(object, 1, 0);
  const bool tracked = tracking_of(h, type) == Tracking::kOn;
  std::uint32_t cursor = start_tag(h, txn, buffer, name, room, state, err);
  auto left = [&] { return room - static_cast<std::int32_t>(cursor); };
  for (const FieldDesc* f = type.fields; !*err && f != type.fields + type.field_count; ++f) {
    if (variant < f->variant || !has_xml(*f)) continue;
    const std::uint32_t own = tracked ? state_flag_get(type, h, txn, const_cast<void*>(object), f->state, err) : 0;
    cursor += f->type->to_xml(h, txn, f->name, buffer + cursor, at_offset(object, f->offset), left(), own, err);
  }
  cursor += end_tag(h, txn, buffer + cursor, name, left(), err);
  return cursor;
}

std::int32_t struct_to_xml_cr(const StructDesc& type, kvt_handle* h, const void* object, char* buffer,
                              std::int32_t room) {
  return result_cr(h, struct_to_xml(type, h, h->default_txn, type.name, buffer, object, room, 0, &h->last_error));
}

void struct_from_xml(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const char* path,
                     kvt_xml_document* document, void* object, int* err, char* message, std::size_t size) {
  if (*err) return;
  kvt_clear_last_error(h);
  XmlElement element(document, path);
  if (!element) {
    fail(h, kAbsent, err);
    return;
  }
  if (!object) {
    fail(h, kEinval, err);
    return;
  }
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (!has_xml(*f) || !type.has_room_for(*f, object)) continue;
    if (element.child(f->name)) {
      f->type->from_xml(h, txn, nullptr, document, at_offset(object, f->offset), err, message, size);
    } else {
      fail(h, kAbsent, err);
    }
    if (*err == kAbsent) *err = 0;
    if (*err) return;
  }
}

std::uint32_t enum_to_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                          const void* object, std::int32_t room, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  const std::uint32_t value = object ? load<std::uint32_t>(at_offset(object, kEnumValueOffset)) : type.count;
  const bool known = value < type.count;
  std::uint32_t cursor = start_tag(h, txn, buffer, name, room, 0, err);
  cursor += empty_child(h, txn, type, known ? type.names[value] : nullptr, known, buffer + cursor,
                        room - static_cast<std::int32_t>(cursor), err);
  cursor += end_tag(h, txn, buffer + cursor, name, room - static_cast<std::int32_t>(cursor), err);
  return cursor;
}

std::int32_t enum_to_xml_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room) {
  return result_cr(h, enum_to_xml(type, h, h->default_txn, type.name, buffer, object, room, &h->last_error));
}

void enum_from_xml(const EnumDesc& type, kvt_handle* h, const char* path, kvt_xml_document* document, void* object,
                   int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  XmlElement element(document, path);
  for (std::uint32_t value = 0; value < type.count; ++value) {
    if (!element.child(type.names[value])) {
      fail(h, kAbsent, err);
      continue;
    }
    if (!object) {
      fail(h, kEinval, err);
    } else {
      *err = 0;
      store(at_offset(object, kEnumValueOffset), value);
    }
    return;
  }
}

std::uint32_t flag_to_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                          const void* object, std::int32_t room, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  std::uint32_t cursor = start_tag(h, txn, buffer, name, room, 0, err);
  for (std::uint32_t bit = 0; bit < type.count; ++bit) {
    int own = 0;
    const bool on = flag_get_value(type, h, object, bit, &own) != 0;
    const std::int32_t left = room - static_cast<std::int32_t>(cursor);
    if (own) {
      static const char kText[] = "<error>ERR</error>";
      cursor += xml_enum_print(h, txn, buffer + cursor, kText, left, sizeof kText - 1, err);
    } else if (on) {
      cursor += empty_child(h, txn, type, type.names[bit], true, buffer + cursor, left, err);
    }
  }
  cursor += end_tag(h, txn, buffer + cursor, name, room - static_cast<std::int32_t>(cursor), err);
  return cursor;
}

std::int32_t flag_to_xml_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room) {
  return result_cr(h, flag_to_xml(type, h, h->default_txn, type.name, buffer, object, room, &h->last_error));
}

void flag_from_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* path, kvt_xml_document* document,
                   void* object, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  XmlElement element(document, path);
  for (std::uint32_t bit = 0; bit < type.count; ++bit) {
    if (element.child(type.names[bit])) {
      kvt_clear_last_error(h);
      flag_set_value(type, h, txn, object, bit, 1, err);
    } else {
      fail(h, kAbsent, err);
    }
    if (*err == kAbsent) *err = 0;
    if (*err) return;
  }
}

}  // namespace kvt

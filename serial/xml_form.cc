#include "serial/xml_form.h"

#include <cstdio>
#include <cstring>

#include "objects/flag_set.h"
#include "objects/state_tracking.h"

namespace kvt {
namespace {

constexpr std::size_t kXmlValueSize = 128;
constexpr int kAbsent = 2;

bool has_xml(const FieldDesc& f) { return f.type->to_xml != nullptr; }

// The paths of an element's children, one after the other.
class ChildPath {
 public:
  explicit ChildPath(const char* parent) : parent_(std::strlen(parent)) {
    if (parent_ < kXmlPathSize) std::memcpy(text_, parent, parent_);
  }
  // NULL when the path does not fit. It would be cut, and a cut name may be that of another child: such a child is
  // absent, and nobody asks the document.
  const char* of(const char* child) {
    const std::size_t length = std::strlen(child);
    if (parent_ + 1 + length >= kXmlPathSize) return nullptr;
    text_[parent_] = '/';
    std::memcpy(text_ + parent_ + 1, child, length + 1);
    return text_;
  }

 private:
  std::size_t parent_;
  char text_[kXmlPathSize];
};

// Whether the child element stands there: 0, or what the document says. Its text is not looked at, so one that is
// longer than the buffer counts as present.
int child_present(kvt_xml_document* document, ChildPath* path, const char* child) {
  const char* child_path = path->of(child);
  if (!child_path) return kAbsent;
  char value[kXmlValueSize];
  const int result = xml_get_element_value(document, child_path, value, sizeof value, 0);
  return result == kEmsgsize ? 0 : result;
}

void say_failed(const char* path, char* message, std::size_t size) {
  if (message && size) std::snprintf(message, size, "Failed xpath: %s", path);
}

std::uint32_t empty_child(kvt_handle* h, std::uint32_t txn, const EnumDesc& type, const char* child, bool known,
                          char* buffer, std::int32_t room, int* err) {
  char text[kXmlPathSize];
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
  if (!kvt_xml_exists(document, path)) {
    fail(h, kAbsent, err);
    return;
  }
  ChildPath child(path);
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (!has_xml(*f) || !type.has_room_for(*f, object)) continue;
    const char* child_path = child.of(f->name);
    if (!child_path) {
      kvt_store_err(h, kAbsent);
      continue;
    }
    f->type->from_xml(h, txn, child_path, document, at_offset(object, f->offset), err, message, size);
    if (*err == kAbsent) *err = 0;
    if (*err) return;
  }
}

std::uint32_t enum_to_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                          const void* object, std::int32_t room, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  const auto value = load<std::uint32_t>(at_offset(object, kEnumValueOffset));
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
                   int* err, char* message, std::size_t size) {
  if (*err) return;
  kvt_clear_last_error(h);
  ChildPath child(path);
  for (std::uint32_t value = 0; value < type.count; ++value) {
    *err = child_present(document, &child, type.names[value]);
    if (!*err) {
      store(at_offset(object, kEnumValueOffset), value);
      return;
    }
    kvt_store_err(h, *err);
    if (*err != kAbsent) {
      say_failed(path, message, size);
      return;
    }
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
                   void* object, int* err, char* message, std::size_t size) {
  if (*err) return;
  kvt_clear_last_error(h);
  ChildPath child(path);
  for (std::uint32_t bit = 0; bit < type.count; ++bit) {
    *err = child_present(document, &child, type.names[bit]);
    if (*err) kvt_store_err(h, *err);
    if (*err == kAbsent) {
      *err = 0;
      continue;
    }
    if (*err) {
      say_failed(path, message, size);
      return;
    }
    kvt_clear_last_error(h);
    flag_set_value(type, h, txn, object, bit, 1, err);
    if (*err == kAbsent) *err = 0;
    if (*err) return;
  }
}

}  // namespace kvt

#include "serial/print_form.h"

#include "kvt/print.h"
#include "objects/flag_set.h"

namespace kvt {
namespace {

constexpr std::uint32_t kNesting = 2;

// Where a worker stands in its buffer. An error stops no worker: each piece behind it writes nothing by itself.
class Printer {
 public:
  Printer(kvt_handle* h, std::uint32_t txn, char* buffer, std::int32_t room, int* err)
      : h_(h), txn_(txn), buffer_(buffer), room_(room), err_(err) {}
  std::uint32_t written() const { return cursor_; }
  void indentation(std::uint32_t indent) {
    cursor_ += kvt_print_space(h_, txn_, buffer_ + cursor_, indent, left(), err_);
  }
  template <class... Args>
  void text(const char* format, Args... args) {
    cursor_ += kvt_snprintf(h_, txn_, buffer_ + cursor_, left(), err_, format, args...);
  }
  void field(const FieldDesc& f, const void* object, std::uint32_t indent) {
    cursor_ += f.type->print(h_, txn_, buffer_ + cursor_, indent, f.name, at_offset(object, f.offset), left(), err_);
  }

 private:
  std::int32_t left() const { return room_ - static_cast<std::int32_t>(cursor_); }
  kvt_handle* h_;
  std::uint32_t txn_;
  char* buffer_;
  std::int32_t room_;
  int* err_;
  std::uint32_t cursor_ = 0;
};

}  // namespace

std::uint32_t struct_print(const StructDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, std::uint32_t indent,
                           const char* label, const void* object, std::int32_t room, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  const int variant = kvt_get_instance_variant(object, 1, 0);
  Printer out(h, txn, buffer, room, err);
  out.indentation(indent);
  out.text("%s@%s: {\n", label, type.name);
  for (const FieldDesc* f = type.fields; f != type.fields + type.field_count; ++f) {
    if (variant >= f->variant && f->type->print) out.field(*f, object, indent + kNesting);
  }
  out.indentation(indent);
  out.text("}\n");
  return out.written();
}

std::int32_t struct_print_cr(const StructDesc& type, kvt_handle* h, const void* object, char* buffer,
                             std::int32_t room) {
  return result_cr(h, struct_print(type, h, h->default_txn, buffer, 0, type.name, object, room, &h->last_error));
}

std::uint32_t enum_print(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, std::uint32_t indent,
                         const char* label, const void* object, std::int32_t room, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  Printer out(h, txn, buffer, room, err);
  out.indentation(indent);
  out.text("%s@%s:", label, type.name);
  const std::uint32_t value = object ? load<std::uint32_t>(at_offset(object, kEnumValueOffset)) : type.count;
  if (value < type.count) {
    out.text("%s\n", type.names[value]);
  } else {
    out.text("Enum value out of range");
  }
  return out.written();
}

std::int32_t enum_print_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room) {
  return result_cr(h, enum_print(type, h, h->default_txn, buffer, 0, type.name, object, room, &h->last_error));
}

std::uint32_t flag_print(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, std::uint32_t indent,
                         const char* label, const void* object, std::int32_t room, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  Printer out(h, txn, buffer, room, err);
  out.indentation(indent);
  out.text("%s@%s:", label, type.name);
  for (std::uint32_t bit = 0; bit < type.count; ++bit) {
    // A null object leaves its error in the handle; where that is the caller's slot, nothing follows.
    int own = 0;
    const bool on = flag_get_value(type, h, object, bit, &own) != 0;
    if (own) {
      out.text("ERR ");
    } else if (on) {
      out.text("%s ", type.names[bit]);
    }
  }
  out.text("\n");
  return out.written();
}

std::int32_t flag_print_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room) {
  return result_cr(h, flag_print(type, h, h->default_txn, buffer, 0, type.name, object, room, &h->last_error));
}

}  // namespace kvt

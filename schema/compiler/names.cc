// How symbols are spelled.
#include "schema/compiler/emit.h"

namespace zarnc {

std::string record_symbol(const std::string& type) { return "_" + type + "_type_info_internal"; }
std::string table_record_symbol(const Table& table) { return "_" + table.name + "_table_type_info_internal"; }
std::string table_row_symbol(const Table& table) { return "_" + table.name + "_table_record_type_info_internal"; }

bool is_own(const Module& module, const Field& field) {
  if (field.enumeration) return field.enumeration->module == &module;
  if (field.flag) return field.flag->module == &module;
  return field.nested && field.nested->module == &module;
}

std::string field_tag(const Field& field) {
  switch (field.kind) {
    case Kind::kInteger:
      return field.width == 1 ? "U8" : field.width == 2 ? "U16" : field.width == 4 ? "U32" : "U64";
    case Kind::kBoolean:
      return "Boolean";
    case Kind::kVstring:
      return "Vstring";
    case Kind::kAesVstring:
      return "AesVstring";
    case Kind::kBytestr:
      return "Bytestr";
    case Kind::kReference:
      return "Oid";
    case Kind::kTimer:
      return "Timer";
    case Kind::kEnum:
      return "Enumerated<@schema@::" + field.type + ">";
    case Kind::kFlag:
      return "FlagSet<@schema@::" + field.type + ">";
    case Kind::kStruct:
      return "Nested<@schema@::" + field.type + ">";
  }
  return {};
}

std::string field_type_symbol(const Field& field) { return "k_" + field.type + "_field"; }

const char* value_type(const Field& field) {
  if (field.kind == Kind::kEnum) return "uint32_t";
  const Primitive* p = primitive(field.type);
  return p ? p->value_type : "";
}

std::string text_literal(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string luid_bytes(const std::string& luid) {
  std::string out;
  for (std::size_t i = 0; i < luid.size(); i += 2) out += (i ? ", 0x" : "0x") + luid.substr(i, 2);
  return out;
}

}  // namespace zarnc

// Names and identities of a schema. Every type, enumerator and bit becomes an identifier of one C namespace, so they
// are kept apart here and not by the C compiler, which would report a clash in generated text.
#include "schema/compiler/names_check.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <string_view>

namespace zarnc {

namespace {

constexpr std::string_view kKeywords[] = {"alignas",
                                          "alignof",
                                          "and",
                                          "and_eq",
                                          "asm",
                                          "auto",
                                          "bitand",
                                          "bitor",
                                          "bool",
                                          "break",
                                          "case",
                                          "catch",
                                          "char",
                                          "char16_t",
                                          "char32_t",
                                          "char8_t",
                                          "class",
                                          "co_await",
                                          "co_return",
                                          "co_yield",
                                          "compl",
                                          "concept",
                                          "const",
                                          "const_cast",
                                          "consteval",
                                          "constexpr",
                                          "constinit",
                                          "continue",
                                          "decltype",
                                          "default",
                                          "delete",
                                          "do",
                                          "double",
                                          "dynamic_cast",
                                          "else",
                                          "enum",
                                          "explicit",
                                          "export",
                                          "extern",
                                          "false",
                                          "float",
                                          "for",
                                          "friend",
                                          "goto",
                                          "if",
                                          "inline",
                                          "int",
                                          "long",
                                          "mutable",
                                          "namespace",
                                          "new",
                                          "noexcept",
                                          "not",
                                          "not_eq",
                                          "nullptr",
                                          "operator",
                                          "or",
                                          "or_eq",
                                          "private",
                                          "protected",
                                          "public",
                                          "register",
                                          "reinterpret_cast",
                                          "requires",
                                          "restrict",
                                          "return",
                                          "short",
                                          "signed",
                                          "sizeof",
                                          "static",
                                          "static_assert",
                                          "static_cast",
                                          "struct",
                                          "switch",
                                          "template",
                                          "this",
                                          "thread_local",
                                          "throw",
                                          "true",
                                          "try",
                                          "typedef",
                                          "typeid",
                                          "typename",
                                          "typeof",
                                          "union",
                                          "unsigned",
                                          "using",
                                          "virtual",
                                          "void",
                                          "volatile",
                                          "wchar_t",
                                          "while",
                                          "xor",
                                          "xor_eq"};

// A type record keeps names in 64 bytes with a NUL; a record's name is its table's with a suffix.
constexpr std::size_t kNameMost = 63;
constexpr std::string_view kRecordSuffix = "_record";
constexpr std::size_t kLuidDigits = 32;

bool is_identifier(std::string_view name) {
  const auto legal = [](unsigned char c) { return std::isalnum(c) || c == '_'; };
  return !name.empty() && !std::isdigit(static_cast<unsigned char>(name[0])) &&
         std::all_of(name.begin(), name.end(), legal);
}

// C and C++ keep these for themselves.
bool is_reserved(std::string_view name) {
  return name.find("__") != name.npos ||
         (name.size() > 1 && name[0] == '_' && std::isupper(static_cast<unsigned char>(name[1])));
}

class NameChecker {
 public:
  explicit NameChecker(std::vector<Diagnostic>& errors) : errors_(errors) {}

  void spelling(const std::string& name, const Position& at, std::size_t most = kNameMost) {
    if (!is_identifier(name)) {
      error(at, "'" + name + "' is no C identifier");
    } else if (std::find(std::begin(kKeywords), std::end(kKeywords), name) != std::end(kKeywords)) {
      error(at, "'" + name + "' is a keyword of C or C++");
    } else if (is_reserved(name)) {
      error(at, "'" + name + "' is reserved by C and C++");
    } else if (name.size() > most) {
      error(at, "'" + name + "' has more than " + std::to_string(most) + " characters");
    }
  }

  // @param what says in a message what the name stands for
  void claim(const std::string& name, const std::string& what, const Position& at) {
    if (primitive(name)) {
      error(at, "'" + name + "' is the name of a primitive type");
      return;
    }
    unique(identifiers_, name, what, at);
  }

  void luid(const std::string& text, const std::string& owner, const Position& at) {
    const auto legal = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
    if (text.empty()) {
      error(at, "the " + owner + " is missing");
      return;
    }
    if (text.size() != kLuidDigits || !std::all_of(text.begin(), text.end(), legal)) {
      error(at, "'" + text + "' is no luid: 32 lower-case hexadecimal digits");
      return;
    }
    unique(luids_, text, owner, at);
  }

  using Claims = std::map<std::string, std::string>;
  void unique(Claims& claims, const std::string& key, const std::string& what, const Position& at) {
    const auto [old, fresh] = claims.emplace(key, what + " at " + at.file + ":" + std::to_string(at.line));
    if (!fresh) error(at, "'" + key + "' is already taken: " + old->second);
  }

  void error(const Position& at, const std::string& text) { errors_.push_back({at, text}); }

 private:
  std::vector<Diagnostic>& errors_;
  Claims identifiers_, luids_;
};

template <class Type>
void check_type_name(NameChecker& names, const Type& type, const std::string& kind) {
  names.spelling(type.name, type.at);
  names.claim(type.name, kind, type.at);
  names.luid(type.luid, "luid of " + type.name, type.luid_at);
}

void check_modules(NameChecker& names, const Schema& schema) {
  NameChecker::Claims module_names, numbers;
  for (const auto& module : schema.modules) {
    names.spelling(module->name, module->at);
    names.unique(module_names, module->name, "module", module->at);
    if (module->number < 1 || module->number > 255) {
      names.error(module->number_at, "a module's number is 1 to 255");
    } else {
      names.unique(numbers, std::to_string(module->number), "number of module " + module->name, module->number_at);
    }
  }
}

// The accessors of a field `ifid` of `st_wlan` begin with `st_wlan_ifid`; a type of that name has operations that do,
// too.
void check_accessor_names(NameChecker& names, const Schema& schema) {
  std::map<std::string, bool> types;
  for (const auto& type : schema.structs) types[type->name] = true;
  for (const auto& type : schema.enums) types[type->name] = true;
  for (const auto& type : schema.flags) types[type->name] = true;
  for (const auto& type : schema.tables) types[type->name] = true;
  for (const auto& type : schema.structs) {
    for (const Field& field : type->fields) {
      const std::string prefix = type->name + "_" + field.name;
      if (types.count(prefix)) {
        names.error(field.at, "the operations of field '" + field.name + "' would have the names of those of type '" +
                                  prefix + "'");
      }
    }
  }
}

}  // namespace

void check_names(const Schema& schema, std::vector<Diagnostic>& errors) {
  NameChecker names(errors);
  check_modules(names, schema);
  for (const auto& type : schema.structs) {
    check_type_name(names, *type, "struct");
    NameChecker::Claims fields;
    for (const Field& field : type->fields) {
      names.spelling(field.name, field.at);
      names.unique(fields, field.name, "field of " + type->name, field.at);
    }
  }
  for (const auto& type : schema.enums) {
    check_type_name(names, *type, "enum");
    for (const Enumerator& enumerator : type->enumerators) {
      names.spelling(enumerator.name, enumerator.at);
      names.claim(enumerator.name, "enumerator of " + type->name, enumerator.at);
    }
  }
  for (const auto& type : schema.flags) {
    check_type_name(names, *type, "flag");
    for (const Bit& bit : type->bits) {
      names.spelling(bit.name, bit.at);
      names.claim(bit.name, "bit of " + type->name, bit.at);
    }
  }
  for (const auto& type : schema.tables) {
    names.spelling(type->name, type->at, kNameMost - kRecordSuffix.size());
    names.claim(type->name, "table", type->at);
    names.claim(type->name + std::string(kRecordSuffix), "record type of " + type->name, type->at);
    names.luid(type->luid, "luid of " + type->name, type->luid_at);
    names.luid(type->record_luid, "record luid of " + type->name, type->record_luid_at);
  }
  check_accessor_names(names, schema);
}

}  // namespace zarnc

// What the built file says of its types to build tools: the manifest, and when and by whom it was made. The form is
// told in docs/formats/manifest.md.
#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "schema/compiler/emit.h"

namespace zarnc {
namespace {

constexpr std::size_t kDigestBytes = 16;
constexpr std::uint32_t kEnumUsed = 12, kFlagUsed = 8;

// A definition as text, from which its digest is made: all that the type's forms in memory, on the wire and in XML hang
// on, and none of the words that only explain. Types that lie inside stand there with their own digests; what is only
// referred to, with its name.
std::string definition(const Enum& type) {
  std::string text = "enum " + type.name + "\n";
  for (const Enumerator& e : type.enumerators)
    text += e.name + ' ' + std::to_string(e.value) + ' ' + std::to_string(e.since) + '\n';
  return text;
}

std::string definition(const Flag& type) {
  std::string text = "flag " + type.name + "\n";
  for (const Bit& bit : type.bits) text += bit.name + '\n';
  return text;
}

std::string definition(const Struct& type) {
  std::string text = "struct " + type.name + "\n";
  for (const Field& f : type.fields) {
    text += f.name + ' ' + f.type + ' ' + std::to_string(f.variant);
    if (f.enumeration) text += ' ' + hex_digits(digest(definition(*f.enumeration)));
    if (f.flag) text += ' ' + hex_digits(digest(definition(*f.flag)));
    if (f.nested) text += ' ' + hex_digits(digest(definition(*f.nested)));
    if (f.kind == Kind::kReference) text += (f.target_is_table ? " table " : " struct ") + f.target;
    text += '\n';
  }
  return text;
}

std::string definition(const Table& table) {
  std::string text = table.name + ' ' + hex_digits(digest(definition(*table.payload))) + '\n';
  for (const std::string& key : table.key_names) text += key + '\n';
  return text;
}

std::string line(const std::string& luid, const std::string& definition, const char* kind, int top,
                 std::uint32_t used) {
  char tail[32];
  std::snprintf(tail, sizeof tail, "%s%03d:%05uN\n", kind, top, (used + 3) & ~3u);
  return luid + ':' + hex_digits(digest(definition)) + tail;
}

const char* kStampNames[] = {"pkg_uid", "built by", "on host", "pid", "at", "comment"};

}  // namespace

std::string digest(const std::string& bytes) {
  unsigned char sum[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (!EVP_Digest(bytes.data(), bytes.size(), sum, &size, EVP_sha256(), nullptr)) {
    std::fputs("zarnc: SHA-256 is not available\n", stderr);
    std::abort();
  }
  return std::string(reinterpret_cast<const char*>(sum), kDigestBytes);
}

std::string hex_digits(const std::string& bytes) {
  std::string out;
  for (const unsigned char byte : bytes) {
    out += "0123456789abcdef"[byte >> 4];
    out += "0123456789abcdef"[byte & 15];
  }
  return out;
}

std::string manifest(const Module& module) {
  std::map<std::string, std::string> types;  // by name, in the order of which they stand
  for (const Struct* type : module.structs)
    types[type->name] = line(type->luid, definition(*type), "type", type->top, type->used.back());
  for (const Enum* type : module.enums)
    types[type->name] = line(type->luid, definition(*type), "enum", type->top, kEnumUsed);
  for (const Flag* type : module.flags) types[type->name] = line(type->luid, definition(*type), "flag", 0, kFlagUsed);
  std::string text = "# " + module.name + ".minime\n";
  for (const auto& [name, one] : types) text += one;
  for (const Table* table : module.tables) {
    text += line(table->luid, "table " + definition(*table), "tabl", 0, 0);
    text += line(table->record_luid, "record " + definition(*table), "trec", 0, 0);
  }
  return text;
}

std::vector<std::string> stamp_names() { return {std::begin(kStampNames), std::end(kStampNames)}; }

std::string build_stamp(const Module& module, const std::map<std::string, std::string>& given) {
  std::string text = module.name + "\n";
  for (const std::string& name : stamp_names()) {
    const auto found = given.find(name);
    std::string value = "-";
    if (found != given.end()) {
      value = found->second;
    } else if (name == "pkg_uid") {
      value = hex_digits(digest(manifest(module)));
    }
    text += name + ": " + value + "\n";
  }
  return text;
}

}  // namespace zarnc

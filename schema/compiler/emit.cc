// Runs the emitters and writes the files.
#include "schema/compiler/emit.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace zarnc {
namespace {

struct MessageText {
  const char* family;
  const char* text;
};
constexpr MessageText kMessages[] = {
#define KVT_MESSAGE(family, name, level, text) {#family, text},
#include "frame/messages.def"
#undef KVT_MESSAGE
};

std::uint32_t family_size(const std::string& family) {
  std::uint32_t n = 0;
  for (const MessageText& m : kMessages) n += family == m.family;
  return n;
}

void add_family(std::vector<std::string>& texts, const std::string& family, const Holes& holes) {
  for (const MessageText& m : kMessages) {
    if (family == m.family) texts.push_back(fill(m.text, holes));
  }
}

// The types of a module stand in a namespace of its own, so that several modules fit into one library.
std::string with_namespace(const std::string& text, const Module& module) {
  static const std::string kPlace = "@schema@";
  std::string out;
  std::size_t from = 0;
  for (std::size_t at; (at = text.find(kPlace, from)) != std::string::npos; from = at + kPlace.size()) {
    out += text.substr(from, at - from) + "schema_" + module.name;
  }
  return out + text.substr(from);
}

bool same_content(const std::filesystem::path& path, const std::string& text) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream old;
  old << in.rdbuf();
  return in && old.str() == text;
}

}  // namespace

std::string fill(const char* text, const Holes& holes) {
  std::string out;
  for (const char* p = text; *p;) {
    if (p[0] != '$' || p[1] != '(') {
      out += *p++;
      continue;
    }
    const char* end = p + 2;
    while (*end && *end != ')') ++end;
    const std::string name(p + 2, end);
    bool found = false;
    for (const auto& [hole, value] : holes) {
      if (name != hole) continue;
      out += value;
      found = true;
    }
    if (!found) {
      std::fprintf(stderr, "zarnc: no value for $(%s)\n", name.c_str());
      std::abort();
    }
    p = end + 1;
  }
  return out;
}

std::string top_comment(const Output& out, const char* what) {
  return fill("// $(what) Made by zarnc from the schema of $(module); not to be edited.\n",
              {{"what", what}, {"module", out.module.name}});
}

MessageIndex number_messages(const Module& module) {
  MessageIndex index;
  for (const Struct* type : module.structs) {
    index.type_first[type->name] = static_cast<std::uint32_t>(index.type_texts.size());
    add_family(index.type_texts, "STRUCT", {{"type", type->name}});
    for (const Field& f : type->fields) {
      if (f.kind == Kind::kReference)
        add_family(index.type_texts, "REFERENCE", {{"type", type->name}, {"field", f.name}});
    }
  }
  auto add_scalar = [&](const std::string& name) {
    index.type_first[name] = static_cast<std::uint32_t>(index.type_texts.size());
    add_family(index.type_texts, "ENUM", {{"type", name}});
  };
  for (const Enum* type : module.enums) add_scalar(type->name);
  for (const Flag* type : module.flags) add_scalar(type->name);
  for (const Table* table : module.tables) {
    index.table_first[table->name] = static_cast<std::uint32_t>(index.table_texts.size());
    const Holes holes = {{"table", table->name}, {"struct", table->payload_name}};
    add_family(index.table_texts, "TABLE", holes);
    for (const std::string& key : table->key_names) {
      Holes with_key = holes;
      with_key.emplace_back("key", key);
      add_family(index.table_texts, "KEY", with_key);
    }
  }
  return index;
}

std::uint32_t reference_message(const Struct& type, const Field& field) {
  std::uint32_t place = family_size("STRUCT");
  for (const Field& f : type.fields) {
    if (&f == &field) break;
    if (f.kind == Kind::kReference) place += family_size("REFERENCE");
  }
  return place;
}

std::uint32_t key_message(std::size_t key) {
  return family_size("TABLE") + static_cast<std::uint32_t>(key) * family_size("KEY");
}

FailureZone place_failure_objects(const Module& module) {
  FailureZone zone;
  auto place = [&](const std::string& name, std::uint32_t size) {
    zone.offset[name] = zone.size;
    zone.size += (size + 7) & ~7u;
  };
  for (const Struct* type : module.structs) place(type->name, type->plain.back());
  for (const Enum* type : module.enums) place(type->name, 12);
  for (const Flag* type : module.flags) place(type->name, 12);
  for (const Table* table : module.tables) place(table->name, table->record_size);
  if (!zone.size) zone.size = 8;
  return zone;
}

bool emit(const Schema& schema, const Module& module, const std::string& directory, std::string& message) {
  for (const Struct* type : module.structs) {
    for (const Field& f : type->fields) {
      if (f.kind != Kind::kStruct || is_own(module, f)) continue;
      for (const Field& inner : f.nested->fields) {
        if (inner.kind == Kind::kVstring || inner.kind == Kind::kAesVstring || inner.kind == Kind::kBytestr ||
            inner.kind == Kind::kStruct) {
          message = type->name + "." + f.name + ": a sibling's struct may be nested only if it owns nothing";
          return false;
        }
      }
    }
  }
  Output out{schema, module, {}};
  const MessageIndex messages = number_messages(module);
  const FailureZone zone = place_failure_objects(module);
  emit_headers(out);
  emit_descriptors(out, messages, zone);
  emit_module(out, messages, zone);
  emit_lifecycle(out);
  emit_accessors(out);
  emit_serial(out);
  emit_scalars(out);
  emit_tables(out);
  emit_xsd(out);
  for (const auto& [name, raw] : out.files) {
    const std::string text = with_namespace(raw, module);
    const std::filesystem::path path = std::filesystem::path(directory) / name;
    std::error_code error;
    std::filesystem::create_directories(path.parent_path(), error);
    if (same_content(path, text)) continue;
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush()) {
      message = path.string() + ": cannot be written";
      return false;
    }
  }
  return true;
}

}  // namespace zarnc

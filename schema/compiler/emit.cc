// Runs the emitters and writes the files.
#include "schema/compiler/emit.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace zarnc {
namespace {

struct Message {
  const char* family;
  unsigned level;
  const char* text;
};
constexpr Message kMessages[] = {
#define KVT_MESSAGE(family, name, level, text) {#family, level, text},
#include "frame/messages.def"
#include "platform/messages.def"
#undef KVT_MESSAGE
};

std::uint32_t family_size(const std::string& family) {
  std::uint32_t n = 0;
  for (const Message& m : kMessages) n += family == m.family;
  return n;
}

// A code says what happened, whatever it happened to, and stays when messages are added before it.
std::uint32_t code_of(const Message& m) {
  const std::string mark = digest(std::string(m.family) + ' ' + m.text);
  std::uint32_t code = m.level;
  for (std::size_t i = 0; i < 3; ++i) code = code << 8 | static_cast<unsigned char>(mark[i]);
  return code;
}

void add_family(std::vector<MessageText>& list, const std::string& family, const Holes& holes) {
  for (const Message& m : kMessages) {
    if (family == m.family) list.push_back({code_of(m), fill(m.text, holes)});
  }
}

// The messages that a field has of its own; null for none.
const char* family_of(const Field& f) {
  return f.kind == Kind::kReference ? "REFERENCE" : f.kind == Kind::kTimer ? "TIMER_FIELD" : nullptr;
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

std::string type_number(const Module& module, int index) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", 0xF0000000u | module.number << 20 | static_cast<std::uint32_t>(index));
  return text;
}

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

bool write_file(const std::string& directory, const std::string& name, const std::string& text, std::string& message) {
  const std::filesystem::path path = std::filesystem::path(directory) / name;
  std::error_code error;
  std::filesystem::create_directories(path.parent_path(), error);
  if (same_content(path, text)) return true;
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) message = path.string() + ": cannot be written";
  return message.empty();
}

MessageIndex number_messages(const Module& module) {
  MessageIndex index;
  for (const Struct* type : module.structs) {
    index.type_first[type->name] = static_cast<std::uint32_t>(index.type.size());
    add_family(index.type, "STRUCT", {{"type", type->name}});
    for (const Field& f : type->fields) {
      if (const char* family = family_of(f)) add_family(index.type, family, {{"type", type->name}, {"field", f.name}});
    }
  }
  auto add_scalar = [&](const std::string& name) {
    index.type_first[name] = static_cast<std::uint32_t>(index.type.size());
    add_family(index.type, "ENUM", {{"type", name}});
  };
  for (const Enum* type : module.enums) add_scalar(type->name);
  for (const Flag* type : module.flags) add_scalar(type->name);
  for (const Table* table : module.tables) {
    index.table_first[table->name] = static_cast<std::uint32_t>(index.table.size());
    const Holes holes = {{"table", table->name}, {"struct", table->payload_name}, {"module", module.name}};
    add_family(index.table, "TABLE", holes);
    for (const std::string& key : table->key_names) {
      Holes with_key = holes;
      with_key.emplace_back("key", key);
      add_family(index.table, "KEY", with_key);
    }
  }
  index.module_first = static_cast<std::uint32_t>(index.type.size());
  add_family(index.type, "MODULE", {});
  if (!timer_fields(module).empty()) add_family(index.timer, "TIMER", {{"queue", queue_name(module)}});
  return index;
}

std::vector<MessageText> runtime_messages() {
  std::vector<MessageText> list;
  add_family(list, "RUNTIME", {});
  return list;
}

std::vector<MessageTable> message_tables(const Module& module, const MessageIndex& index) {
  return {{module.name, 0, "timer", &index.timer},
          {module.name, 1, "table", &index.table},
          {module.name, 2, "type", &index.type}};
}

std::string message_symbol(const MessageTable& table) {
  return "kvt_messages_" + table.module + "_" + std::to_string(table.number);
}

std::uint32_t field_message(const Struct& type, const Field& field) {
  std::uint32_t place = family_size("STRUCT");
  for (const Field& f : type.fields) {
    if (&f == &field) return family_of(f) ? place : 0;
    if (const char* family = family_of(f)) place += family_size(family);
  }
  return 0;
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
            inner.kind == Kind::kStruct || inner.kind == Kind::kReference) {
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
  emit_timers(out);
  emit_xsd(out);
  for (const auto& [name, raw] : out.files) {
    if (!write_file(directory, name, with_namespace(raw, module), message)) return false;
  }
  return true;
}

}  // namespace zarnc

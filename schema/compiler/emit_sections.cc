// The sections of a built file that are no code and no data of it, as one source of assembler directives: so the bytes
// are the same whichever compiler builds it, and with sanitizers as without. See docs/formats/trace.md and manifest.md.
#include <bzlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "schema/compiler/emit.h"

namespace zarnc {
namespace {

constexpr unsigned kManifestKind = 2, kStampKind = 1;
constexpr std::size_t kBytesALine = 24;
constexpr std::size_t kTextMost = 65535;

std::string hex(std::uint32_t n, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*x", digits, n);
  return text;
}

std::string byte_lines(const std::string& bytes) {
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    out += i % kBytesALine ? "," : i ? "\n.byte " : ".byte ";
    out += hex(static_cast<unsigned char>(bytes[i]), 2);
  }
  return out + "\n";
}

// What stands in a comment of the assembler ends neither it nor the literal around it.
std::string remark(std::string text) {
  for (std::size_t i = 1; i < text.size(); ++i) {
    const std::string pair = text.substr(i - 1, 2);
    if (pair == "*/" || pair == "/*" || pair == ")\"") text[i] = ' ';
  }
  return "/* " + text + " */";
}

std::string table_id(const MessageTable& table) {
  std::string bytes = table.module + '\n' + std::to_string(table.number) + '\n';
  for (const MessageText& m : *table.messages) bytes += hex(m.code, 8) + ' ' + m.text + '\n';
  return digest(bytes);
}

std::string table_section(const MessageTable& table) {
  const std::string symbol = message_symbol(table);
  std::string out = fill(R"--(asm(R"(.pushsection .fenlog.$(module).$(number),"a",%progbits
.globl $(symbol)
.hidden $(symbol)
$(symbol):
.2byte 1,$(number)
$(id))--",
                         {{"symbol", symbol},
                          {"module", table.module},
                          {"number", std::to_string(table.number)},
                          {"id", byte_lines(table_id(table))}});
  for (const MessageText& m : *table.messages) {
    out += ".4byte " + hex(m.code, 8) + "; .2byte " + std::to_string(m.text.size()) + " " + remark(m.text) + "\n";
  }
  return out + ".popsection\n)\");\n";
}

std::string compressed(const std::string& text) {
  unsigned size = static_cast<unsigned>(text.size() + text.size() / 100 + 600);  // what bzip2 asks for at most
  std::string out(size, '\0');
  std::string in = text;
  if (BZ2_bzBuffToBuffCompress(out.data(), &size, in.data(), static_cast<unsigned>(in.size()), 9, 0, 0) != BZ_OK) {
    std::fputs("zarnc: the texts cannot be compressed\n", stderr);
    std::abort();
  }
  out.resize(size);
  return out;
}

std::string record(unsigned kind, const std::string& text) {
  return ".balign 4\n.4byte " + std::to_string(text.size() + 1) + "," + std::to_string(kind) + " " +
         (kind == kManifestKind ? "/* manifest */" : "/* build stamp */") + "\n" + byte_lines(text + '\0');
}

}  // namespace

bool emit_built_file(const BuiltFile& file, const std::string& directory, std::string& message) {
  std::vector<const Module*> modules = file.modules;
  std::sort(modules.begin(), modules.end(), [](const Module* a, const Module* b) { return a->name < b->name; });
  std::vector<MessageIndex> indexes;
  std::vector<MessageTable> tables;
  const std::vector<MessageText> runtime = runtime_messages();
  for (const Module* module : modules) indexes.push_back(number_messages(*module));
  for (std::size_t i = 0; i < modules.size(); ++i) {
    for (const MessageTable& table : message_tables(*modules[i], indexes[i])) tables.push_back(table);
  }
  if (file.runtime) tables.push_back({"kvt", 0, "runtime", &runtime});
  std::stable_sort(tables.begin(), tables.end(),
                   [](const MessageTable& a, const MessageTable& b) { return a.module < b.module; });

  std::string texts, sections, manifests;
  for (const MessageTable& table : tables) {
    if (table.messages->empty()) continue;
    sections += table_section(table);
    for (const MessageText& m : *table.messages) {
      if (m.text.size() > kTextMost) {
        message = "a message of " + table.module + " is longer than " + std::to_string(kTextMost) + " bytes";
        return false;
      }
      texts += m.text;
    }
  }
  // Only as readable as assembler is, so the lines themselves stand beside the bytes.
  for (const Module* module : modules) {
    const std::string lines = manifest(*module), stamp = build_stamp(*module, file.stamp);
    std::string shown = lines + stamp;
    for (std::size_t at = 0; at < shown.size();) {
      const std::size_t end = shown.find('\n', at);
      manifests += remark(shown.substr(at, end - at)) + "\n";
      at = end + 1;
    }
    manifests += record(kManifestKind, lines) + record(kStampKind, stamp);
  }
  std::string source = "// Message tables, their texts and the manifests of the built file of " + file.library +
                       ". Made by zarnc; not to be edited.\n";
  source += sections;
  if (!texts.empty()) {
    source +=
        "asm(R\"(.pushsection .fenlog_texts,\"\",%progbits\n" + byte_lines(compressed(texts)) + ".popsection\n)\");\n";
  }
  if (!manifests.empty()) {
    source += "asm(R\"(.pushsection .ostrel,\"\",%progbits\n" + manifests + ".balign 4\n.popsection\n)\");\n";
  }
  return write_file(directory, "src/" + file.library + "_sections.cc", source, message);
}

}  // namespace zarnc

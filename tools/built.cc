// trace, manifest: what built files tell of themselves, and what a process left of its trace. Neither needs a database.
#include <algorithm>
#include <cstdio>
#include <map>

#include "platform/built_file.h"
#include "platform/trace_ring.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

constexpr std::size_t kLineSize = 1024;

std::string level_name(std::uint32_t level) {
  switch (level >> 24) {
    case 0:
      return "fatal";
    case 3:
      return "error";
    case 6:
      return "notice";
    case 7:
      return "debug";
    case 8:
      return "verbose";
    default:
      return "level " + std::to_string(level >> 24);
  }
}

std::string hex(const kvt::TableId& id) {
  std::string out;
  for (const std::uint8_t byte : id) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    out += digits;
  }
  return out;
}

std::vector<kvt::BuiltTable> tables_of(const std::string& file) {
  std::vector<kvt::BuiltTable> tables;
  std::string why;
  if (!kvt::read_message_tables(file, &tables, &why)) throw Failure(file + ": " + why);
  return tables;
}

void list_messages(const std::string& file) {
  std::string out;
  for (const kvt::BuiltTable& table : tables_of(file)) {
    out += "table " + one_line(table.module) + " " + std::to_string(table.number) + ": " +
           std::to_string(table.messages.size()) + " messages, id " + hex(table.id) + "\n";
    for (std::size_t i = 0; i < table.messages.size(); ++i) {
      char code[16];
      std::snprintf(code, sizeof code, "%08x", table.messages[i].code);
      out += std::to_string(i) + " " + code + " " + level_name(table.messages[i].code) + ": " +
             one_line(table.messages[i].text) + "\n";
    }
  }
  write_output(out);
}

using Texts = std::map<kvt::TableId, std::vector<kvt::BuiltMessage>>;

void take(Texts& texts, std::vector<kvt::BuiltTable> tables) {
  for (kvt::BuiltTable& table : tables) texts.try_emplace(table.id, std::move(table.messages));
}

// The lines of a ring. Texts come from the files that are named, and from those that the process had, where they are
// still the same. A line whose text is nowhere shows its numbers; that is told at the end.
void decode_ring(const std::string& file, const std::vector<std::string>& libraries) {
  kvt::RingFile ring;
  std::string why;
  if (!kvt::read_ring(file, &ring, &why)) throw Failure(file + ": " + why);
  Texts texts;
  for (const std::string& library : libraries) take(texts, tables_of(library));
  for (const kvt::RingTable& table : ring.tables) {
    std::vector<kvt::BuiltTable> tables;
    if (!table.path.empty() && !texts.count(table.id) && kvt::read_message_tables(table.path, &tables, &why))
      take(texts, std::move(tables));
  }
  std::string out;
  if (ring.made > ring.calls.size())
    out += "(" + std::to_string(ring.made - ring.calls.size()) + " more calls are no longer in the ring)\n";
  std::size_t unknown = 0;
  const kvt::RingTable* missing = nullptr;
  for (const kvt::RingCall& call : ring.calls) {
    const kvt::RingTable& table = ring.tables[call.table];
    const auto found = texts.find(table.id);
    std::string_view text;
    if (found != texts.end() && call.entry.index < found->second.size()) text = found->second[call.entry.index].text;
    if (text.empty()) {
      ++unknown;
      missing = &table;
    }
    char line[kLineSize];
    kvt::trace_format_as(text, table.number, call.entry, line, sizeof line);
    const std::size_t module = call.entry.module;
    const std::string name = module && module <= ring.modules.size() ? ring.modules[module - 1] : "-";
    out += std::to_string(call.ticket) + " " + level_name(call.entry.level) + " " + one_line(name) + ": " +
           one_line(line) + "\n";
  }
  write_output(out);
  if (!unknown) return;
  throw Failure(file + ": " + std::to_string(unknown) + " lines have no text: no file has the table with id " +
                hex(missing->id) + (missing->path.empty() ? "" : ", which was in " + missing->path));
}

}  // namespace

void run_trace(const Options& options) {
  if (!options.ring.empty()) return decode_ring(options.ring, options.files);
  for (const std::string& file : options.files) list_messages(file);
}

void run_manifest(const Options& options) {
  std::vector<kvt::BuiltRecord> records;
  std::string why;
  if (!kvt::read_build_records(options.file, &records, &why)) throw Failure(options.file + ": " + why);
  std::string out;
  for (const kvt::BuiltRecord& record : records) {
    if (record.kind == kvt::kManifestKind || record.kind == kvt::kBuildStampKind) out += printable(record.text);
  }
  write_output(out);
}

}  // namespace wlanctl

// What all emitters share: text with named holes, the files of a run, the numbering of messages.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "schema/compiler/model.h"

namespace zarnc {

using Holes = std::vector<std::pair<const char*, std::string>>;
// The text with each $(name) filled in. A name without a value is a fault of the emitter and stops the compiler.
std::string fill(const char* text, const Holes& holes);

// Everything of one run: the files by their path below the output directory.
struct Output {
  const Schema& schema;
  const Module& module;
  std::map<std::string, std::string> files;
  std::string& header(const std::string& name) { return files["include/" + module.name + "/" + name]; }
  std::string& source(const std::string& name) { return files["src/" + module.name + "_" + name]; }
};

// How symbols are spelled; names.cc alone knows.
std::string record_symbol(const std::string& type);
std::string table_record_symbol(const Table& table);
std::string table_row_symbol(const Table& table);
std::string field_tag(const Field& field);  // the C++ type of a field in a constant record
std::string field_type_symbol(const Field& field);
bool is_own(const Module& module, const Field& field);  // of an enumerated, flag or struct type: this module's
std::string text_literal(const std::string& text);
std::string luid_bytes(const std::string& luid);
const char* value_type(const Field& field);  // C type of the field's value
std::string top_comment(const Output& out, const char* what);
// Writes a file unless it has that content already. @return false, with a message, when it cannot be written
bool write_file(const std::string& directory, const std::string& name, const std::string& text, std::string& message);

struct MessageText {
  std::uint32_t code;  // level, and what is the same for all members of a family
  std::string text;
};
// The messages of a module by table, and the first message of each member in its table: types and tables by name.
struct MessageIndex {
  std::map<std::string, std::uint32_t> type_first, table_first;
  std::uint32_t module_first = 0;  // in the type table
  std::vector<MessageText> timer, table, type;
};
MessageIndex number_messages(const Module& module);
std::vector<MessageText> runtime_messages();

// The message table of a module as it lies in the built file, and its symbol there.
struct MessageTable {
  std::string module;
  unsigned number;
  const char* name;  // of the fenlog_table that speaks of it
  const std::vector<MessageText>* messages;
};
std::vector<MessageTable> message_tables(const Module& module, const MessageIndex& index);
std::string message_symbol(const MessageTable& table);

// What stands in a stored word for a static type: the module's number and the type's index in its table.
std::string type_number(const Module& module, int index);

// The first 16 bytes of the SHA-256 of the bytes, as they are and as 32 hexadecimal digits.
std::string digest(const std::string& bytes);
std::string hex_digits(const std::string& bytes);
// The lines of a module's manifest and of its build stamp; see docs/formats/manifest.md.
std::string manifest(const Module& module);
std::string build_stamp(const Module& module, const std::map<std::string, std::string>& given);
// The first message of a field, counted from the type's first; 0 for a field without any.
std::uint32_t field_message(const Struct& type, const Field& field);
std::uint32_t key_message(std::size_t key);  // counted from the table's first

// The timers of a module, and what the name of its queue is made of. See emit_timers.cc.
struct TimerField {
  const Struct* type;
  const Field* field;
};
std::vector<TimerField> timer_fields(const Module& module);
std::string queue_name(const Module& module);
std::string declare_timer(const Struct& type, const Field& field);
std::string declare_timers(const Module& module);

// Where the failure object of each type and the failure record of each table lie in the module's zone.
struct FailureZone {
  std::map<std::string, std::uint32_t> offset;
  std::uint32_t size = 0;
};
FailureZone place_failure_objects(const Module& module);

// Sources of one family are spread over a fixed number of files, whatever the schema holds, so that the build knows
// their names beforehand and compiles them side by side.
constexpr std::size_t kAccessorShards = 4, kSerialShards = 2, kTableShards = 2;
template <class List, class Define>
void shard(Output& out, const std::string& name, std::size_t shards, const std::string& top, const List& list,
           Define define) {
  for (std::size_t n = 0; n < shards; ++n) {
    std::string& source = out.source(name + "_" + std::to_string(n) + ".cc");
    source = top;
    for (std::size_t i = n; i < list.size(); i += shards) source += define(list[i]);
  }
}

void emit_headers(Output& out);
void emit_descriptors(Output& out, const MessageIndex& messages, const FailureZone& zone);
void emit_module(Output& out, const MessageIndex& messages, const FailureZone& zone);
void emit_lifecycle(Output& out);
void emit_accessors(Output& out);
void emit_serial(Output& out);
void emit_scalars(Output& out);
void emit_tables(Output& out);
void emit_timers(Output& out);
void emit_xsd(Output& out);

}  // namespace zarnc

// What a schema says and what follows from it. parse.cc fills in what stands in the files, check.cc refuses what does
// not fit and resolves names, layout.cc computes the rest; emitters only read.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zarnc {

struct Position {
  std::string file;
  int line = 0;
  int column = 0;
};

enum class Kind { kInteger, kBoolean, kEnum, kFlag, kVstring, kAesVstring, kBytestr, kStruct, kReference, kTimer };

struct Module;
struct Struct;
struct Enum;
struct Flag;
struct Table;

struct Enumerator {
  std::string name;
  std::uint32_t value = 0;  // computed: 0 upward in order
  int since = 0;
  std::string meaning;
  Position at, since_at;
};

struct Enum {
  std::string name, luid, meaning;
  std::vector<Enumerator> enumerators;
  const Module* module = nullptr;
  int top = 0;                       // computed: highest `since`
  std::vector<std::uint32_t> count;  // computed: enumerators legal at each variant, [0..top]
  int index = 0;                     // computed: place in its module's type table
  Position at, luid_at;
};

struct Bit {
  std::string name, meaning;
  Position at;
};

struct Flag {
  std::string name, luid, meaning;
  std::vector<Bit> bits;
  const Module* module = nullptr;
  int index = 0;
  Position at, luid_at;
};

struct Field {
  std::string name, type, meaning;
  std::string unit;    // empty when not known
  std::string target;  // of a reference: a table's or a struct's name
  int variant = 0;
  bool bookkeeping = false;
  bool target_is_table = false;  // how the file calls the target
  Position at, type_at, variant_at, unit_at, target_at;
  // resolved by check
  Kind kind = Kind::kInteger;
  const Enum* enumeration = nullptr;
  const Flag* flag = nullptr;
  const Struct* nested = nullptr;
  const Table* target_table = nullptr;
  const Struct* target_struct = nullptr;
  // computed by layout
  std::uint32_t offset = 0, width = 0;
  std::uint32_t state = 0;  // index of its byte in its own type's block
  bool has_value() const { return kind == Kind::kInteger || kind == Kind::kBoolean || kind == Kind::kEnum; }
};

struct Struct {
  std::string name, luid, meaning;
  std::vector<Field> fields;  // schema order, the timer included
  const Module* module = nullptr;
  Position at, luid_at;
  // computed by layout; vectors by variant, [0..top]
  int top = 0;
  std::vector<std::uint32_t> used, plain, block, bounds;
  std::vector<std::uint32_t> states;  // own fields, the timer too: the state bytes that a length counts
  int index = 0;
};

struct Table {
  std::string name, payload_name, luid, record_luid, meaning;
  std::vector<std::string> key_names;
  std::vector<Position> key_at;
  const Module* module = nullptr;
  const Struct* payload = nullptr;  // resolved
  std::vector<const Field*> keys;   // resolved; index 0 is the primary key
  Position at, payload_at, luid_at, record_luid_at;
  std::uint32_t object_size = 0, record_size = 0, payload_slot = 0;  // computed: 368 + 8n; round8(slot + 4); 56 + 12n
  int index = 0;                                                     // of the table type; its record type is index + 1
};

// A line of a module's type table as it stands in the file.
struct Listed {
  std::string kind, name;  // kind: "struct", "enum", "flag" or "table"
  Position at;
};

// A module that another one stands on.
struct Need {
  std::string name;
  const Module* module = nullptr;  // resolved
  Position at;
};

// A result that stands beside the schema as a check: `expect st_wlan variant 3 size 1992`.
struct Expectation {
  static constexpr std::uint32_t kTop = UINT32_MAX;
  std::string type, what;
  std::uint32_t variant = kTop, value = 0;
  Position at, variant_at, what_at;
};

// A schema module: one type table, one registration, one number.
struct Module {
  std::string name;
  std::uint32_t number = 0;
  std::vector<Struct*> structs;  // in the order of the type table: structs, enums, flags, then table and record in turn
  std::vector<Enum*> enums;
  std::vector<Flag*> flags;
  std::vector<Table*> tables;
  std::vector<Listed> listed;  // from which check fills the four above
  std::vector<Need> needs;     // in the order written, in which bundle handlers are handed on
  Position at, number_at;
};

struct Schema {
  std::vector<std::unique_ptr<Module>> modules;
  std::vector<std::unique_ptr<Struct>> structs;
  std::vector<std::unique_ptr<Enum>> enums;
  std::vector<std::unique_ptr<Flag>> flags;
  std::vector<std::unique_ptr<Table>> tables;
  std::vector<Expectation> expectations;
};

// A primitive type as the compiler knows it; nullptr for any other name.
struct Primitive {
  const char* name;
  Kind kind;
  std::uint32_t width, alignment;
  const char* value_type;  // C type of get_value, "" if it has none
};
const Primitive* primitive(const std::string& name);

struct Diagnostic {
  Position at;
  std::string text;
};

// One function a stage. parse and check add to `errors`; nothing later runs when there are any.
void parse(const std::string& path, const std::string& text, Schema& schema, std::vector<Diagnostic>& errors);
void check(Schema& schema, std::vector<Diagnostic>& errors);
void layout(Schema& schema, std::vector<Diagnostic>& errors);
// Writes everything that belongs to `module` below `directory`; a file that would not change is left alone.
// @return false, with a message, when a file cannot be written
bool emit(const Schema& schema, const Module& module, const std::string& directory, std::string& message);

// What a built file tells of itself beside the code: message tables and their texts, manifests, build stamps.
struct BuiltFile {
  std::string library;  // names the source
  std::vector<const Module*> modules;
  bool runtime = false;                      // the runtime's own messages too
  std::map<std::string, std::string> stamp;  // by what stamp_names tells
};
// The names of what a stamp holds, in the order of its lines.
std::vector<std::string> stamp_names();
// As emit, for the built file that the modules go into.
bool emit_built_file(const BuiltFile& file, const std::string& directory, std::string& message);

}  // namespace zarnc

// Computes where everything lies: the places of types in their module's table, offsets, sizes by variant, state bytes,
// field index bounds and table sizes. These are stored formats, so nothing here may change for a schema that is in use.
#include <map>

#include "schema/compiler/model.h"

namespace zarnc {

namespace {

constexpr std::uint32_t kFieldSpace = 7;  // behind the header
constexpr std::uint32_t kObjectAlignment = 4;
constexpr std::uint32_t kWideAlignment = 8;
constexpr std::uint32_t kEnumSize = 12, kFlagSize = 12;
constexpr std::uint32_t kObjectMost = 65535;  // the manifest and the field records count no further

constexpr std::uint32_t kTableBase = 368, kTableEachKey = 8;
constexpr std::uint32_t kRecordBase = 56, kRecordEachKey = 12, kPayloadSlot = 4;

std::uint32_t round_up(std::uint32_t value, std::uint32_t alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

// Room behind the last field: more for larger objects, measured on the end rounded up to 4.
std::uint32_t reserved_room(std::uint32_t end) {
  if (end <= 36) return 4;
  return end <= 64 ? 8 : 16;
}

class Layouter {
 public:
  Layouter(Schema& schema, std::vector<Diagnostic>& errors) : errors_(errors) {
    for (const auto& type : schema.structs) structs_.emplace(type.get(), type.get());
  }

  void lay_out(Struct& type) {
    if (!type.plain.empty()) return;
    State state;
    for (Field& field : type.fields) {
      if (field.nested) lay_out(*structs_.at(field.nested));
      if (field.variant > static_cast<int>(type.plain.size())) close_variant(type, state);
      place(field, state);
    }
    close_variant(type, state);
    type.top = static_cast<int>(type.plain.size()) - 1;
    if (type.plain.back() > kObjectMost) {
      errors_.push_back({type.at, "an object of '" + type.name + "' takes " + std::to_string(type.plain.back()) +
                                      " bytes, more than " + std::to_string(kObjectMost)});
    }
  }

 private:
  struct State {
    std::uint32_t end = kFieldSpace;
    std::uint32_t block = 0;
    std::uint32_t bound = 0;
    bool wide = false;  // a field so far makes the object's size a multiple of 8
  };

  static std::uint32_t alignment_of(const Field& field) {
    const Primitive* found = primitive(field.type);
    return found ? found->alignment : kObjectAlignment;
  }

  static std::uint32_t width_of(const Field& field) {
    switch (field.kind) {
      case Kind::kStruct:
        return field.nested->plain.back();  // whatever variant the parent has
      case Kind::kEnum:
        return kEnumSize;
      case Kind::kFlag:
        return kFlagSize;
      default:
        return primitive(field.type)->width;
    }
  }

  static void place(Field& field, State& state) {
    const std::uint32_t alignment = alignment_of(field);
    field.width = width_of(field);
    field.offset = round_up(state.end, alignment);
    field.state = state.block;
    // An object keeps the size of its variant when later ones come, so a wide field counts from its own variant on.
    if (alignment == kWideAlignment && field.kind != Kind::kTimer) state.wide = true;
    state.end = field.offset + field.width;
    state.block += 1 + (field.nested ? field.nested->block.back() : 0);
    state.bound += 1;
  }

  static void close_variant(Struct& type, State& state) {
    const std::uint32_t end = round_up(state.end, kObjectAlignment);
    const std::uint32_t size = end + reserved_room(end);
    type.used.push_back(state.end);
    type.plain.push_back(state.wide ? round_up(size, kWideAlignment) : size);
    type.block.push_back(state.block);
    type.states.push_back(state.bound - static_cast<std::uint32_t>(type.bounds.size()));
    type.bounds.push_back(state.bound);
    // Each later variant takes one index more than it has fields.
    state.bound += 1;
  }

  std::vector<Diagnostic>& errors_;
  std::map<const Struct*, Struct*> structs_;  // fields link to types that others only read
};

void lay_out(Enum& type) {
  for (std::size_t value = 0; value < type.enumerators.size(); ++value) {
    Enumerator& enumerator = type.enumerators[value];
    enumerator.value = static_cast<std::uint32_t>(value);
    type.count.resize(static_cast<std::size_t>(enumerator.since) + 1);
    type.count.back() = enumerator.value + 1;
  }
  type.top = static_cast<int>(type.count.size()) - 1;
}

void lay_out(Table& table) {
  const auto keys = static_cast<std::uint32_t>(table.keys.size());
  table.object_size = kTableBase + kTableEachKey * keys;
  table.payload_slot = kRecordBase + kRecordEachKey * keys;
  table.record_size = round_up(table.payload_slot + kPayloadSlot, kWideAlignment);
}

void number_types(Module& module) {
  int index = 0;
  for (Struct* type : module.structs) type->index = index++;
  for (Enum* type : module.enums) type->index = index++;
  for (Flag* type : module.flags) type->index = index++;
  for (Table* table : module.tables) {
    table->index = index;
    index += 2;  // its record type follows
  }
}

using Results = std::map<std::string, std::uint32_t>;

// What an `expect` line may ask of a type at one variant, by name.
Results results(const Struct& type, std::size_t variant) {
  return {{"size", type.plain[variant]},
          {"block", type.block[variant]},
          {"used", type.used[variant]},
          {"bound", type.bounds[variant]}};
}

Results results(const Enum& type, std::size_t variant) { return {{"count", type.count[variant]}}; }

Results results(const Table& table, std::size_t) {
  return {{"size", table.object_size}, {"record", table.record_size}, {"slot", table.payload_slot}};
}

int top_of(const Struct& type) { return type.top; }
int top_of(const Enum& type) { return type.top; }
int top_of(const Table&) { return 0; }

void compare(const Expectation& expectation, const Results& known, std::vector<Diagnostic>& errors) {
  const auto found = known.find(expectation.what);
  if (found == known.end()) {
    std::string names;
    for (const auto& [name, value] : known) names += (names.empty() ? "" : ", ") + name;
    errors.push_back({expectation.what_at,
                      "'" + expectation.what + "' of " + expectation.type + " cannot be expected: " + names + " can"});
  } else if (found->second != expectation.value) {
    errors.push_back({expectation.what_at, expectation.what + " of " + expectation.type + " expected " +
                                               std::to_string(expectation.value) + ", computed " +
                                               std::to_string(found->second)});
  }
}

// @return whether the expectation speaks of one of these types
template <class Type>
bool check_expectation(const std::vector<std::unique_ptr<Type>>& types, const Expectation& expectation,
                       std::vector<Diagnostic>& errors) {
  for (const auto& type : types) {
    if (type->name != expectation.type) continue;
    const auto top = static_cast<std::uint32_t>(top_of(*type));
    const std::uint32_t variant = expectation.variant == Expectation::kTop ? top : expectation.variant;
    if (variant > top) {
      errors.push_back({expectation.variant_at, expectation.type + " has no variant " + std::to_string(variant)});
    } else {
      compare(expectation, results(*type, variant), errors);
    }
    return true;
  }
  return false;
}

void check_expectation(const Schema& schema, const Expectation& expectation, std::vector<Diagnostic>& errors) {
  if (check_expectation(schema.structs, expectation, errors) || check_expectation(schema.enums, expectation, errors) ||
      check_expectation(schema.tables, expectation, errors)) {
    return;
  }
  errors.push_back({expectation.at, "there is nothing to expect of '" + expectation.type + "'"});
}

}  // namespace

void layout(Schema& schema, std::vector<Diagnostic>& errors) {
  Layouter layouter(schema, errors);
  for (const auto& type : schema.structs) layouter.lay_out(*type);
  for (const auto& type : schema.enums) lay_out(*type);
  for (const auto& table : schema.tables) lay_out(*table);
  for (const auto& module : schema.modules) number_types(*module);
  for (const Expectation& expectation : schema.expectations) check_expectation(schema, expectation, errors);
}

}  // namespace zarnc

// Refuses schemas that do not hold together and resolves names into links. What follows from a sound schema is for
// layout.
#include <algorithm>
#include <cstdint>
#include <map>

#include "schema/compiler/model.h"
#include "schema/compiler/names_check.h"

namespace zarnc {

namespace {

constexpr std::size_t kFieldsMost = 255;
constexpr int kVariantMost = 126;  // the number of variants is a signed byte
constexpr int kNoneYet = -1;       // before the first variant
constexpr std::size_t kBitsMost = 8;
constexpr std::size_t kKeysMost = 3;
constexpr std::size_t kNestingMost = 32;

class Checker {
 public:
  Checker(Schema& schema, std::vector<Diagnostic>& errors) : schema_(schema), errors_(errors) {
    index(schema.structs, structs_);
    index(schema.enums, enums_);
    index(schema.flags, flags_);
    index(schema.tables, tables_);
  }

  void run() {
    for (const auto& module : schema_.modules) resolve_module(*module);
    require_modules();
    for (const auto& module : schema_.modules) resolve_needs(*module);
    for (const auto& module : schema_.modules) walk_needs(*module);
    for (const auto& type : schema_.structs) check_struct(*type);
    for (const auto& type : schema_.enums) check_enum(*type);
    for (const auto& type : schema_.flags) check_flag(*type);
    for (const auto& type : schema_.structs) walk_nesting(*type);
    for (const auto& table : schema_.tables) check_table(*table);
  }

 private:
  template <class Type>
  using Index = std::map<std::string, Type*>;

  template <class Type>
  static void index(const std::vector<std::unique_ptr<Type>>& all, Index<Type>& names) {
    for (const auto& type : all) names.emplace(type->name, type.get());
  }

  template <class Type>
  static Type* find(const Index<Type>& names, const std::string& name) {
    const auto found = names.find(name);
    return found == names.end() ? nullptr : found->second;
  }

  void error(const Position& at, const std::string& text) { errors_.push_back({at, text}); }

  void resolve_module(Module& module) {
    for (const Listed& listed : module.listed) {
      if (listed.kind == "struct") {
        list(module, listed, structs_, module.structs);
      } else if (listed.kind == "enum") {
        list(module, listed, enums_, module.enums);
      } else if (listed.kind == "flag") {
        list(module, listed, flags_, module.flags);
      } else {
        list(module, listed, tables_, module.tables);
      }
    }
  }

  template <class Type>
  void list(Module& module, const Listed& listed, const Index<Type>& names, std::vector<Type*>& order) {
    Type* type = find(names, listed.name);
    if (!type) {
      error(listed.at, "there is no " + listed.kind + " '" + listed.name + "'");
    } else if (type->module) {
      error(listed.at, "'" + listed.name + "' is already listed in module " + type->module->name);
    } else {
      type->module = &module;
      order.push_back(type);
    }
  }

  void require_modules() {
    require_module(schema_.structs, structs_);
    require_module(schema_.enums, enums_);
    require_module(schema_.flags, flags_);
    require_module(schema_.tables, tables_);
  }

  template <class Type>
  void require_module(const std::vector<std::unique_ptr<Type>>& all, const Index<Type>& names) {
    for (const auto& type : all) {
      const bool twin = find(names, type->name) != type.get();  // refused for its name already
      if (!type->module && !twin) error(type->at, "'" + type->name + "' is listed in no module");
    }
  }

  void resolve_needs(Module& module) {
    for (Need& need : module.needs) {
      for (const auto& other : schema_.modules) {
        if (other->name == need.name) need.module = other.get();
      }
      if (!need.module) error(need.at, "there is no module '" + need.name + "'");
      const auto first = std::find_if(module.needs.begin(), module.needs.end(),
                                      [&](const Need& one) { return one.name == need.name; });
      if (&*first != &need) error(need.at, "'" + need.name + "' is already needed");
    }
  }

  // A handler that is handed on in a ring never comes to rest. Reported once, at the line that closes the ring.
  void walk_needs(const Module& module) {
    if (walked_[&module]) return;
    needing_.push_back(&module);
    for (const Need& need : module.needs) {
      if (!need.module) continue;
      if (std::find(needing_.begin(), needing_.end(), need.module) == needing_.end()) {
        walk_needs(*need.module);
      } else {
        error(need.at, "module '" + need.name + "' would need itself");
      }
    }
    needing_.pop_back();
    walked_[&module] = true;
  }

  void check_struct(Struct& type) {
    if (type.fields.empty()) error(type.at, "struct '" + type.name + "' has no fields");
    if (type.fields.size() > kFieldsMost) {
      error(type.fields[kFieldsMost].at,
            "struct '" + type.name + "' has more than " + std::to_string(kFieldsMost) + " fields");
    }
    int variant = kNoneYet;
    const Field* timer = nullptr;
    for (Field& field : type.fields) {
      step("variant", field.variant, variant, field.variant_at);
      resolve_field(field);
      if (field.kind != Kind::kTimer) continue;
      if (timer) error(field.at, "struct '" + type.name + "' already has a timer, '" + timer->name + "'");
      timer = &field;
    }
  }

  // Variants only append: the next entry has the last one's or the one after it.
  void step(const std::string& what, int value, int& last, const Position& at) {
    if (last == kNoneYet && value != 0) {
      error(at, "the first " + what + " is 0");
    } else if (value < last) {
      error(at,
            what + " " + std::to_string(value) + " behind " + what + " " + std::to_string(last) + ": new ones append");
    } else if (value > last + 1) {
      error(at, what + " " + std::to_string(value) + " behind " + what + " " + std::to_string(last) + " leaves a gap");
    }
    if (value > kVariantMost) {
      error(at, "the highest " + what + " is " + std::to_string(kVariantMost));
    }
    last = std::max(last, std::min(value, kVariantMost));
  }

  void resolve_field(Field& field) {
    if (const Primitive* found = primitive(field.type)) {
      field.kind = found->kind;
    } else if ((field.nested = find(structs_, field.type))) {
      field.kind = Kind::kStruct;
    } else if ((field.enumeration = find(enums_, field.type))) {
      field.kind = Kind::kEnum;
    } else if ((field.flag = find(flags_, field.type))) {
      field.kind = Kind::kFlag;
    } else if (find(tables_, field.type)) {
      error(field.type_at, "a table is no type of a field");
      return;
    } else {
      error(field.type_at, "unknown type '" + field.type + "'");
      return;
    }
    if (!field.unit.empty() && field.kind != Kind::kInteger) error(field.unit_at, "only an integer has a unit");
    resolve_target(field);
  }

  void resolve_target(Field& field) {
    if (field.kind != Kind::kReference) {
      if (!field.target.empty()) error(field.target_at, "only a kvt_oid refers to something");
      return;
    }
    if (field.target.empty()) {
      error(field.type_at, "a kvt_oid needs its target: -> table NAME or -> struct NAME");
      return;
    }
    field.target_table = find(tables_, field.target);
    field.target_struct = find(structs_, field.target);
    const char* const wanted = field.target_is_table ? "table" : "struct";
    if (field.target_is_table ? field.target_table != nullptr : field.target_struct != nullptr) return;
    if (field.target_table || field.target_struct) {
      error(field.target_at, "'" + field.target + "' is no " + wanted);
    } else {
      error(field.target_at, "there is no " + std::string(wanted) + " '" + field.target + "'");
    }
  }

  void check_enum(const Enum& type) {
    if (type.enumerators.empty()) error(type.at, "enum '" + type.name + "' has no enumerators");
    int since = kNoneYet;
    for (const Enumerator& enumerator : type.enumerators) step("since", enumerator.since, since, enumerator.since_at);
  }

  void check_flag(const Flag& type) {
    if (type.bits.empty()) error(type.at, "flag '" + type.name + "' has no bits");
    if (type.bits.size() > kBitsMost) {
      error(type.bits[kBitsMost].at, "flag '" + type.name + "' has more than " + std::to_string(kBitsMost) + " bits");
    }
  }

  // An object that holds itself has no size. Reported once, at the field that closes the ring. Gives how many structs
  // deep the type goes; too deep is reported once, too, whatever order the structs stand in.
  std::size_t walk_nesting(const Struct& type) {
    const auto known = depths_.find(&type);
    if (known != depths_.end()) return known->second;
    path_.push_back(&type);
    std::size_t depth = 1;
    for (const Field& field : type.fields) {
      if (!field.nested) continue;
      const auto open = std::find(path_.begin(), path_.end(), field.nested);
      if (open != path_.end()) {
        std::string ring;
        for (auto at = open; at != path_.end(); ++at) ring += (*at)->name + " > ";
        error(field.type_at, "'" + field.nested->name + "' would contain itself: " + ring + field.nested->name);
        continue;
      }
      const std::size_t below = path_.size() < kNestingMost ? walk_nesting(*field.nested) : kNestingMost;
      if (below < kNestingMost) {
        depth = std::max(depth, below + 1);
      } else {
        error(field.type_at, "more than " + std::to_string(kNestingMost) + " structs inside each other");
      }
    }
    path_.pop_back();
    depths_[&type] = depth;
    return depth;
  }

  void check_table(Table& table) {
    table.payload = find(structs_, table.payload_name);
    if (!table.payload) error(table.payload_at, "there is no struct '" + table.payload_name + "'");
    if (table.key_names.empty()) error(table.at, "table '" + table.name + "' has no key");
    if (table.key_names.size() > kKeysMost) {
      error(table.key_at[kKeysMost], "table '" + table.name + "' has more than " + std::to_string(kKeysMost) + " keys");
    }
    for (std::size_t i = 0; table.payload && i < table.key_names.size(); ++i) resolve_key(table, i);
  }

  void resolve_key(Table& table, std::size_t which) {
    const std::string& name = table.key_names[which];
    const Position& at = table.key_at[which];
    const auto& fields = table.payload->fields;
    // No further than a struct may go: keys without end times fields without end take forever.
    const auto end = fields.begin() + static_cast<std::ptrdiff_t>(std::min(fields.size(), kFieldsMost));
    const auto field = std::find_if(fields.begin(), end, [&](const Field& one) { return one.name == name; });
    if (field == end) {
      error(at, "struct '" + table.payload->name + "' has no field '" + name + "'");
      return;
    }
    if (std::count(table.keys.begin(), table.keys.end(), &*field)) {
      error(at, "'" + name + "' is already a key");
      return;
    }
    const bool known = primitive(field->type) || field->nested || field->enumeration || field->flag;
    if (known && field->kind != Kind::kInteger && field->kind != Kind::kVstring && field->kind != Kind::kEnum) {
      error(at, "a field of type " + field->type + " is no key: integers, kvt_vstring and enums are");
    }
    // A record of an older variant would have no key.
    if (field->variant != 0) error(at, "a key is a field of variant 0");
    table.keys.push_back(&*field);
  }

  Schema& schema_;
  std::vector<Diagnostic>& errors_;
  Index<Struct> structs_;
  Index<Enum> enums_;
  Index<Flag> flags_;
  Index<Table> tables_;
  std::map<const Struct*, std::size_t> depths_;
  std::vector<const Struct*> path_;
  std::map<const Module*, bool> walked_;
  std::vector<const Module*> needing_;
};

}  // namespace

void check(Schema& schema, std::vector<Diagnostic>& errors) {
  check_names(schema, errors);
  Checker(schema, errors).run();
}

}  // namespace zarnc

// The constant records of a module's types: what the hand-written algorithms know of them.
#include "schema/compiler/emit_families.h"

namespace zarnc {
namespace {

std::string number(std::uint32_t n) { return std::to_string(n); }

std::string list(const std::vector<std::uint32_t>& values) {
  std::string out;
  for (std::uint32_t v : values) out += (out.empty() ? "" : ", ") + number(v);
  return out;
}

std::string tag(const Module& module, const Field& f) {
  const bool of_a_type = f.kind == Kind::kEnum || f.kind == Kind::kFlag || f.kind == Kind::kStruct;
  return of_a_type && !is_own(module, f) ? f.type + "_sibling" : field_tag(f);
}

const char* kFieldRecord = R"--(  struct $(field) {
    using Owner = $(type);
    using Type = $(tag);
    static constexpr std::uint32_t kOffset = $(offset), kState = $(state);
    static constexpr int kVariant = $(variant);
  };
)--";

void struct_record(const Module& module, const Struct& type, std::string& header) {
  std::string fields, names;
  for (const Field& f : type.fields) {
    fields += fill(kFieldRecord, {{"field", f.name},
                                  {"type", type.name},
                                  {"tag", tag(module, f)},
                                  {"offset", number(f.offset)},
                                  {"state", number(f.state)},
                                  {"variant", number(static_cast<std::uint32_t>(f.variant))}});
    names += (names.empty() ? "" : ", ") + f.name;
  }
  header += fill(R"--(struct $(type) {
  static const StructDesc kDesc;
  static constexpr std::uint32_t kLink = $(link);
  static constexpr int kTop = $(top);
  static constexpr std::uint16_t kLenStates[] = {$(states)};
  static constexpr std::uint32_t kPlain = $(plain);
$(fields)  using Fields = FieldList<$(names)>;
};

)--",
                 {{"type", type.name},
                  {"link", type_number(*type.module, type.index)},
                  {"top", std::to_string(type.top)},
                  {"states", list(type.states)},
                  {"plain", number(type.plain.back())},
                  {"fields", fields},
                  {"names", names}});
}

const char* field_kind(const Field& f) {
  switch (f.kind) {
    case Kind::kInteger:
      return "kInteger";
    case Kind::kBoolean:
      return "kBoolean";
    case Kind::kVstring:
    case Kind::kAesVstring:
    case Kind::kBytestr:
      return "kString";
    case Kind::kEnum:
      return "kEnum";
    case Kind::kFlag:
      return "kFlag";
    case Kind::kStruct:
      return "kStruct";
    case Kind::kReference:
      return "kReference";
    case Kind::kTimer:
      return "kTimer";
  }
  return nullptr;
}

std::string target_record(const Field& f) {
  if (!f.target_table && !f.target_struct) return "nullptr";
  return fill("&$(record)", {{"record", f.target_table ? table_record_symbol(*f.target_table)
                                                       : record_symbol(f.target_struct->name)}});
}

// The flat tables of a type: a struct with all that is nested in it.
struct Tree {
  explicit Tree(const Module& of) : module(of) {}
  const Module& module;
  std::string own, foreign, counts, others, booleans, owned;
  std::uint32_t own_count = 0, foreign_count = 0, other_count = 0, boolean_count = 0;
  bool possible = true;

  static std::string head(const std::string& link, int variant, const char* flags, std::uint32_t offset) {
    return fill("{$(link), $(variant), $(variant), $(flags), 0, $(offset)}, ",
                {{"link", link}, {"variant", std::to_string(variant)}, {"flags", flags}, {"offset", number(offset)}});
  }
  void add_other(const std::string& link, int variant, const char* flags, std::uint32_t offset) {
    others += head(link, variant, flags, offset);
    ++other_count;
  }
  void add_owned(std::uint32_t offset, const char* kind) {
    owned += fill("{$(offset), OwnedKind::$(kind)}, ", {{"offset", number(offset)}, {"kind", kind}});
  }
  static std::string target_number(const Field& f) {
    return f.target_table ? type_number(*f.target_table->module, f.target_table->index)
                          : type_number(*f.target_struct->module, f.target_struct->index);
  }
  void add(const Field& f, std::uint32_t at, bool nested) {
    switch (f.kind) {
      case Kind::kInteger:
        break;
      case Kind::kBoolean:
        booleans += number(at) + ", ";
        ++boolean_count;
        break;
      case Kind::kVstring:
      case Kind::kBytestr:
        add_owned(at, "kText");
        break;
      case Kind::kAesVstring:
        add_owned(at, "kSecret");
        break;
      case Kind::kEnum:
        add_other(type_number(*f.enumeration->module, f.enumeration->index), f.enumeration->top, "KVT_OBJ_NESTED", at);
        break;
      case Kind::kFlag:
        add_other(type_number(*f.flag->module, f.flag->index), 0, "KVT_OBJ_NESTED", at);
        break;
      case Kind::kStruct:
        add(*f.nested, at, "KVT_OBJ_NESTED");
        break;
      case Kind::kReference:
        // A nested object's destroy drops its counts in steps that may fail.
        if (nested) possible = false;
        add_other(target_number(f), 0, "0", at);
        add_owned(at, "kReference");
        break;
      case Kind::kTimer:
        add_owned(at, "kTimer");
        break;
    }
  }
  void add(const Struct& type, std::uint32_t base, const char* flags) {
    const bool is_own = type.module == &module, nested = own_count > 0;
    (is_own ? own : foreign) += head(type_number(*type.module, type.index), type.top, flags, base);
    ++(is_own ? own_count : foreign_count);
    if (is_own) {
      counts += fill("entries_$(i) + $(top), ", {{"i", std::to_string(type.index)}, {"top", std::to_string(type.top)}});
    }
    for (const Field& f : type.fields) add(f, base + f.offset, nested);
  }
};

const char* kTreeTables = R"--(constexpr TreeHead $(type)_heads[] = {$(heads)};
constexpr kvt_variant_entry* $(type)_counts[] = {$(counts)};
$(arrays)constexpr TreeDesc $(type)_tree = {
    $(type)_heads, $(type)_counts, $(own), $(structs), $(all), $(booleans), $(boolean_count), $(owned)};
)--";

// @return the address of the type's tree, as text
std::string tree_tables(const Struct& type, std::string& source) {
  Tree tree(*type.module);
  tree.add(type, 0, "0");
  if (!tree.possible) return "nullptr";
  const Holes name = {{"type", type.name}, {"booleans", tree.booleans}, {"owned", tree.owned}};
  std::string arrays;
  if (tree.boolean_count) arrays += fill("constexpr std::uint16_t $(type)_booleans[] = {$(booleans)};\n", name);
  if (!tree.owned.empty()) arrays += fill("constexpr OwnedField $(type)_owned[] = {$(owned)};\n", name);
  source += fill(kTreeTables, {{"type", type.name},
                               {"heads", tree.own + tree.foreign + tree.others},
                               {"counts", tree.counts},
                               {"arrays", arrays},
                               {"own", number(tree.own_count)},
                               {"structs", number(tree.own_count + tree.foreign_count)},
                               {"all", number(tree.own_count + tree.foreign_count + tree.other_count)},
                               {"booleans", tree.boolean_count ? fill("$(type)_booleans", name) : "nullptr"},
                               {"boolean_count", number(tree.boolean_count)},
                               {"owned", tree.owned.empty() ? "{}" : fill("$(type)_owned", name)}});
  return fill("&$(type)_tree", name);
}

const char* kStructTables = R"--(constexpr std::uint16_t $(type)_plain[] = {$(plain)};
constexpr std::uint16_t $(type)_block[] = {$(block)};
constexpr std::uint16_t $(type)_bounds[] = {$(bounds)};
const FieldDesc $(type)_fields[] = {
$(fields)};
const StructDesc $(type)::kDesc = {
    "$(type)", &$(record), &k_module, {&k_type_messages, $(first), &$(trace)}, $(top), $(oids), $(nested), $(count),
    $(type)_plain, $(type)_block, $(type)_bounds, $(type)_fields, $(failure), $(tree)};
const FieldType k_$(type)_field = {
    "$(type)", FieldKind::kStruct, &$(record), $(type)_initialize, $(type)_set_instance_embedded,
    $(type)_destroy_internal, $(type)_set, $(type)_to_xml, $(type)_from_xml, $(type)_print, $(type)_offset_update,
    $(type)_offset_remove, &$(type)::kDesc};

)--";

void struct_tables(const Output& out, const Struct& type, const MessageIndex& messages, const FailureZone& zone,
                   std::string& source) {
  std::string fields;
  std::uint32_t oids = 0;
  bool nested = false;
  for (const Field& f : type.fields) {
    oids += f.kind == Kind::kReference;
    nested = nested || f.kind == Kind::kStruct;
    fields += fill(
        "    {\"$(name)\", &$(ftype), $(target), $(offset), $(state), $(message), $(variant), FieldKind::$(kind)},\n",
        {{"name", f.name},
         {"ftype", field_type_symbol(f)},
         {"target", target_record(f)},
         {"offset", number(f.offset)},
         {"state", number(f.state)},
         {"variant", std::to_string(f.variant)},
         {"kind", field_kind(f)},
         {"message", number(field_message(type, f))}});
  }
  const std::string tree = tree_tables(type, source);
  source += fill(kStructTables, {{"type", type.name},
                                 {"tree", tree},
                                 {"record", record_symbol(type.name)},
                                 {"trace", "g_kvt_" + out.module.name + "_trace_module_id"},
                                 {"plain", list(type.plain)},
                                 {"block", list(type.block)},
                                 {"bounds", list(type.bounds)},
                                 {"fields", fields},
                                 {"first", number(messages.type_first.at(type.name))},
                                 {"top", std::to_string(type.top)},
                                 {"oids", number(oids)},
                                 {"nested", nested ? "true" : "false"},
                                 {"count", number(static_cast<std::uint32_t>(type.fields.size()))},
                                 {"failure", number(zone.offset.at(type.name))}});
}

const char* kScalarTables = R"--(constexpr const char* $(type)_names[] = {$(names)};
constexpr std::uint32_t $(type)_legal[] = {$(legal)};
const EnumDesc $(type)::kDesc = {
    "$(type)", &$(record), &k_module, {&k_type_messages, $(first), &$(trace)}, $(cap), $(count), $(type)_names,
    $(type)_legal, $(failure)};
const FieldType k_$(type)_field = {
    "$(type)", FieldKind::$(kind), &$(record), $(type)_initialize, $(type)_set_instance_embedded, nullptr, nullptr,
    $(type)_to_xml, $(type)_from_xml, $(type)_print, nullptr, nullptr, nullptr};

)--";

template <class Names>
void scalar_tables(const Output& out, const std::string& name, const Names& names,
                   const std::vector<std::uint32_t>& legal, const char* kind, const MessageIndex& messages,
                   const FailureZone& zone, std::string& source) {
  std::string quoted;
  for (const auto& n : names) quoted += (quoted.empty() ? "\"" : ", \"") + n.name + "\"";
  source += fill(kScalarTables, {{"type", name},
                                 {"record", record_symbol(name)},
                                 {"trace", "g_kvt_" + out.module.name + "_trace_module_id"},
                                 {"names", quoted},
                                 {"legal", list(legal)},
                                 {"kind", kind},
                                 {"first", number(messages.type_first.at(name))},
                                 {"cap", std::to_string(legal.size() - 1)},
                                 {"count", number(static_cast<std::uint32_t>(names.size()))},
                                 {"failure", number(zone.offset.at(name))}});
}

// The types of other modules that fields here have, each once.
std::vector<const Field*> sibling_fields(const Module& module) {
  std::vector<const Field*> found;
  auto add = [&](const Field& f) {
    if ((f.kind != Kind::kEnum && f.kind != Kind::kFlag && f.kind != Kind::kStruct) || is_own(module, f)) return;
    for (const Field* known : found) {
      if (known->type == f.type) return;
    }
    found.push_back(&f);
  };
  for (const Struct* type : module.structs) {
    for (const Field& f : type->fields) add(f);
  }
  for (const Table* table : module.tables) {
    for (const Field* key : table->keys) add(*key);
  }
  return found;
}

const Module* owner(const Field& f) {
  return f.enumeration ? f.enumeration->module : f.flag ? f.flag->module : f.nested->module;
}

void sibling_type(const Field& f, std::string& header, std::string& source) {
  const char* macro = f.enumeration ? "KVT_SIBLING_ENUM" : f.flag ? "KVT_SIBLING_FLAG" : "KVT_SIBLING_STRUCT";
  std::string more;
  if (f.enumeration) {
    more = fill(", $(link), $(top)", {{"link", type_number(*f.enumeration->module, f.enumeration->index)},
                                      {"top", std::to_string(f.enumeration->top)}});
  }
  header += fill("$(macro)($(type)$(more));\n", {{"macro", macro}, {"type", f.type}, {"more", more}});
  source +=
      fill(R"--(const FieldType k_$(type)_field = {
    "$(type)", FieldKind::$(kind), &$(record), $(type)_initialize, $(type)_set_instance_embedded, $(owned),
    $(type)_to_xml, $(type)_from_xml, $(type)_print, $(offsets), nullptr};

)--",
           {{"type", f.type},
            {"kind", f.enumeration ? "kEnum"
                     : f.flag      ? "kFlag"
                                   : "kStruct"},
            {"record", record_symbol(f.type)},
            {"owned", f.nested ? f.type + "_destroy_internal, " + f.type + "_set" : "nullptr, nullptr"},
            {"offsets", f.nested ? f.type + "_offset_update, " + f.type + "_offset_remove" : "nullptr, nullptr"}});
}

std::string event_handlers(const char* form, const Module& module, const Table& table) {
  std::string out;
  for (const Operation& event : kEventFamily)
    out += fill(form, {{"handler", event_handler_symbol(module, table, event)}});
  return out;
}

void table_record(const Output& out, const Table& table, const MessageIndex& messages, const FailureZone& zone,
                  std::string& header, std::string& source) {
  std::string key_structs, keys;
  for (std::size_t k = 0; k < table.keys.size(); ++k) {
    const Field& f = *table.keys[k];
    key_structs += fill(R"--(  struct $(key) {
    using Type = $(tag);
    static constexpr std::ptrdiff_t kIndex = $(index), kKeyCount = $(count);
    static constexpr std::uint32_t kOffset = $(offset);
  };
)--",
                        {{"key", f.name},
                         {"tag", tag(out.module, f)},
                         {"index", number(static_cast<std::uint32_t>(k))},
                         {"count", number(static_cast<std::uint32_t>(table.keys.size()))},
                         {"offset", number(f.offset)}});
    const bool is_enum = f.kind == Kind::kEnum;
    keys += fill(
        "    {\"$(key)\", $(offset), $(size), $(table)_$(payload)_$(key)_avl_compare, "
        "same_key<$(table)::$(key)>, key_word<$(table)::$(key)>, key_find<$(table)::$(key)>, $(message)},\n",
        {{"key", f.name},
         {"offset", number(f.offset + (is_enum ? 8 : 0))},
         {"size", number(is_enum ? 4 : f.width)},
         {"table", table.name},
         {"payload", table.payload_name},
         {"message", number(key_message(k))}});
  }
  header += fill(R"--(struct $(table) {
  static const TableDesc kDesc;
$(keys)};

)--",
                 {{"table", table.name}, {"keys", key_structs}});
  source += fill(R"--(const KeyDesc $(table)_keys[] = {
$(keys)};
IdRootCache $(table)_id_root;
LateHandlers $(table)_late_handlers;
// An application may have any of them or none.
$(weak)const EventHandler $(table)_handlers[] = {
$(handlers)};
const TableDesc $(table)::kDesc = {
    "$(table)", "//$(payload)", table_$(table)_luid, table_$(table)_luid_text, &$(record), &$(row), &k_module,
    {&k_table_messages, $(first), &$(trace)},
    {"$(payload)", $(plain), $(payload)_create, $(payload)_create_internal, $(payload)_destroy,
     $(payload)_set_instance_embedded, $(payload)_len, $(payload)_marshal, $(payload)_unmarshal, $(payload)_to_xml,
     $(payload)_from_xml, $(payload)_print},
    {$(primary_offset), $(primary)_len, $(primary)_marshal, $(primary)_unmarshal, $(primary)_print},
    $(table)_keys, $(count), $(object), $(row_size), $(slot), $(failure), &$(table)_id_root,
    $(table)_handlers, &$(table)_late_handlers};

)--",
                 {{"table", table.name},
                  {"weak", event_handlers("#pragma weak $(handler)\n", out.module, table)},
                  {"handlers", event_handlers("    {reinterpret_cast<AnyHandler>($(handler)), \"$(handler)\"},\n",
                                              out.module, table)},
                  {"payload", table.payload_name},
                  {"keys", keys},
                  {"primary", table.keys[0]->type},
                  {"primary_offset", number(table.keys[0]->offset)},
                  {"record", table_record_symbol(table)},
                  {"row", table_row_symbol(table)},
                  {"first", number(messages.table_first.at(table.name))},
                  {"trace", "g_kvt_" + out.module.name + "_trace_module_id"},
                  {"plain", number(table.payload->plain.back())},
                  {"count", number(static_cast<std::uint32_t>(table.keys.size()))},
                  {"object", number(table.object_size)},
                  {"row_size", number(table.record_size)},
                  {"slot", number(table.payload_slot)},
                  {"failure", number(zone.offset.at(table.name))}});
}

}  // namespace

void emit_descriptors(Output& out, const MessageIndex& messages, const FailureZone& zone) {
  std::string& header = out.source("schema.h");
  std::string& source = out.source("schema.cc");
  const Module& module = out.module;
  std::string includes, sibling_types, siblings, tables, table_source;
  const std::vector<const Field*> foreign = sibling_fields(module);
  std::vector<const Module*> owners;
  auto include = [&](const Module* m) {
    for (const Module* known : owners) {
      if (known == m) return;
    }
    owners.push_back(m);
    includes += "#include \"" + m->name + "/" + m->name + ".h\"\n";
  };
  for (const Field* f : foreign) {
    include(owner(*f));
    sibling_type(*f, sibling_types, siblings);
  }
  for (const Table* table : module.tables) {
    if (table->payload->module != &module) include(table->payload->module);
    table_record(out, *table, messages, zone, tables, table_source);
  }

  header = top_comment(out, "The types as constants.") +
           fill(R"--(#pragma once

#include "$(module)/$(module).h"
$(includes)#include "objects/field_types.h"
#include "objects/primitive_field_types.h"

namespace kvt {
$(siblings)
namespace @schema@ {

)--",
                {{"module", module.name}, {"includes", includes}, {"siblings", sibling_types}});
  source = top_comment(out, "The types as tables.") +
           fill(R"--(#include "$(module)_schema.h"

$(tables)#include "$(module)_module.h"

namespace kvt {
namespace @schema@ {

)--",
                {{"module", module.name},
                 {"tables", module.tables.empty() ? "" : "#include \"zarn_wlan/src/table_layout.h\"\n"}});
  for (const Enum* type : module.enums) {
    header +=
        fill(R"--(struct $(type) {
  static const EnumDesc kDesc;
  static constexpr std::uint32_t kLink = $(link);
  static constexpr std::int8_t kTop = $(top);
};
)--",
             {{"type", type->name}, {"link", type_number(module, type->index)}, {"top", std::to_string(type->top)}});
    header += "extern const FieldType k_" + type->name + "_field;\n";
    scalar_tables(out, type->name, type->enumerators, type->count, "kEnum", messages, zone, source);
  }
  for (const Flag* type : module.flags) {
    header += "struct " + type->name + " {\n  static const EnumDesc kDesc;\n};\n";
    header += "extern const FieldType k_" + type->name + "_field;\n";
    scalar_tables(out, type->name, type->bits, {static_cast<std::uint32_t>(type->bits.size())}, "kFlag", messages, zone,
                  source);
  }
  for (const Struct* type : module.structs)
    header += "struct " + type->name + ";\nextern const FieldType k_" + type->name + "_field;\n";
  header += "\n";
  for (const Struct* type : module.structs) {
    struct_record(module, *type, header);
  }
  source += siblings;
  for (const Struct* type : module.structs) struct_tables(out, *type, messages, zone, source);
  header += tables + "}  // namespace @schema@\n}  // namespace kvt\n";
  source += table_source + "}  // namespace @schema@\n}  // namespace kvt\n";
}

}  // namespace zarnc

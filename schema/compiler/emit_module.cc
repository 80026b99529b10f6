// A module's type records, its variant data, its message tables, and how it comes and goes with the process.
#include "schema/compiler/emit_families.h"

namespace zarnc {
namespace {

// Types in the order of the type table, as records.
struct Entry {
  std::string symbol, name, kind, luid, shape;  // shape: empty for types without one
  struct Variant {
    std::uint32_t number, used, slop;
  };
  std::vector<Variant> variants;
};

std::vector<Entry> entries_of(const Module& module) {
  std::vector<Entry> list;
  for (const Struct* type : module.structs) {
    Entry e{record_symbol(type->name), type->name, "type", type->luid, type->name, {}};
    for (int v = 0; v <= type->top; ++v) {
      const std::uint32_t used = type->used[static_cast<std::size_t>(v)];
      e.variants.push_back({static_cast<std::uint32_t>(v), used, type->plain.back() - used});
    }
    list.push_back(e);
  }
  for (const Enum* type : module.enums) {
    Entry e{record_symbol(type->name), type->name, "enum", type->luid, "", {}};
    for (int v = 0; v <= type->top; ++v) e.variants.push_back({static_cast<std::uint32_t>(v), 12, 0});
    list.push_back(e);
  }
  for (const Flag* type : module.flags)
    list.push_back({record_symbol(type->name), type->name, "flag", type->luid, "", {{0, 8, 4}}});
  for (const Table* table : module.tables) {
    list.push_back({table_record_symbol(*table), table->name, "table", table->luid, table->name, {{1, 4, 0}}});
    list.push_back({table_row_symbol(*table),
                    table->name + "_record",
                    "table_record",
                    table->record_luid,
                    table->name,
                    {{1, 4, 0}}});
  }
  return list;
}

const char* kRecord = R"--(extern const kvt_type_record $(symbol) = {
    KVT_TYPE_MAGIC, {$(bytes)}, "$(luid)", "$(name)", "$(module)", "$(kind)", {0, 0, 0}, -1, $(number), 0, 0};
)--";

// The tables whose texts the built file holds; without messages there is nothing to point at.
std::string message_tables_of(const Module& module, const MessageIndex& messages) {
  std::string sections, tables;
  for (const MessageTable& table : message_tables(module, messages)) {
    const bool any = !table.messages->empty();
    const Holes holes = {{"name", table.name},
                         {"number", std::to_string(table.number)},
                         {"count", std::to_string(table.messages->size())},
                         {"symbol", any ? message_symbol(table) : "nullptr"}};
    if (any) {
      sections += fill("extern \"C\" [[gnu::visibility(\"hidden\")]] const unsigned char $(symbol)[];\n", holes);
    }
    tables += fill("const fenlog_table k_$(name)_messages = {$(number), $(count), $(symbol)};\n", holes);
  }
  return sections + tables;
}

// The modules that this one stands on, as far as a bundle handler goes.
std::string needs_of(const Module& module) {
  std::string out;
  for (const Need& need : module.needs)
    out += fill("    {$(n)_bundle_handler_register, $(n)_bundle_handler_unregister},\n", {{"n", need.name}});
  return out + "    {nullptr, nullptr},\n";
}

// What the runtime calls when the time of an object, a table or a record has come.
std::string destroy_of(const Entry& e) {
  if (e.kind == "type") return e.name + "_destroy_internal";
  return e.kind == "table" || e.kind == "table_record" ? "collect_" + e.name : "nullptr";
}

std::string table_hooks(const Module& module) {
  std::string out;
  for (const Table* table : module.tables) {
    out += fill(R"--(void collect_$(table)(kvt_handle* handle, std::uint32_t txn, void* table, int) {
  table_collect($(table)::kDesc, handle, txn, table);
}
void collect_$(table)_record(kvt_handle* handle, std::uint32_t txn, void* record, int) {
  int err = 0;
  $(table)_destroy_record(handle, txn, record, &err);
}
constexpr kvt_record_events events_$(table) = {
    [] { return int{events_heard($(table)::kDesc)}; },
    [](kvt_handle* handle, std::uint32_t txn, std::uint32_t kind, void* table, void* record, int* err) {
      event_raise($(table)::kDesc, handle, txn, kind, table, record, err);
    },
    [](kvt_handle* handle, const void* payload, std::uint8_t* buffer, std::uint32_t room) {
      return record_key($(table)::kDesc, handle, payload, buffer, room);
    }};
)--",
                {{"table", table->name}});
  }
  return out;
}

const char* cell_kind(Kind kind) {
  switch (kind) {
    case Kind::kVstring:
    case Kind::kBytestr:
      return "KVT_CELL_TEXT";
    case Kind::kAesVstring:
      return "KVT_CELL_SECRET";
    case Kind::kEnum:
    case Kind::kFlag:
    case Kind::kStruct:
      return "KVT_CELL_OBJECT";
    case Kind::kReference:
      return "KVT_CELL_REFERENCE";
    case Kind::kTimer:
      return "KVT_CELL_TIMER";
    case Kind::kInteger:
    case Kind::kBoolean:
      break;
  }
  return nullptr;
}

std::string cell_type(const Field& f) {
  std::string symbol;
  if (f.kind == Kind::kEnum || f.kind == Kind::kFlag || f.kind == Kind::kStruct) {
    symbol = record_symbol(f.type);
  } else if (f.target_table) {
    symbol = table_record_symbol(*f.target_table);
  } else if (f.target_struct) {
    symbol = record_symbol(f.target_struct->name);
  }
  return symbol.empty() ? "nullptr" : symbol.insert(0, 1, '&');
}

std::string shape_of_struct(const Struct& type) {
  std::string cells, plain, states;
  std::size_t count = 0;
  for (const Field& f : type.fields) {
    const char* kind = cell_kind(f.kind);
    if (!kind) continue;
    ++count;
    cells +=
        fill("{$(offset), $(variant), $(kind), $(type), \"$(name)\"},\n    ", {{"offset", std::to_string(f.offset)},
                                                                               {"variant", std::to_string(f.variant)},
                                                                               {"kind", kind},
                                                                               {"type", cell_type(f)},
                                                                               {"name", f.name}});
  }
  for (int v = 0; v <= type.top; ++v) {
    plain += std::to_string(type.plain[static_cast<std::size_t>(v)]) + ", ";
    states += std::to_string(type.block[static_cast<std::size_t>(v)]) + ", ";
  }
  return fill(R"--(constexpr kvt_cell cells_$(name)[] = {
    $(cells){0, 0, 0, nullptr, nullptr}};
constexpr std::uint16_t plain_$(name)[] = {$(plain)}, states_$(name)[] = {$(states)};
constexpr kvt_shape shape_$(name) = {$(variants), $(count), plain_$(name), states_$(name), cells_$(name),
    nullptr, nullptr, 0, 0, 0, 0, nullptr, nullptr};
)--",
              {{"name", type.name},
               {"cells", cells},
               {"plain", plain},
               {"states", states},
               {"variants", std::to_string(type.top + 1)},
               {"count", std::to_string(count)}});
}

std::string shape_of_table(const Table& table) {
  std::string keys;
  for (const Field* key : table.keys) {
    keys += fill("    {\"$(key)\", $(table)_$(payload)_$(key)_avl_compare, key_word<$(table)::$(key)>},\n",
                 {{"key", key->name}, {"table", table.name}, {"payload", table.payload_name}});
  }
  return fill(R"--(constexpr kvt_key_shape keys_$(name)[] = {
$(keys)};
constexpr kvt_shape shape_$(name) = {0, 0, nullptr, nullptr, nullptr, &$(payload), &$(record), $(table_size),
    $(record_size), $(slot), $(count), keys_$(name), &events_$(name)};
)--",
              {{"name", table.name},
               {"keys", keys},
               {"payload", record_symbol(table.payload_name)},
               {"record", table_row_symbol(table)},
               {"table_size", std::to_string(table.object_size)},
               {"record_size", std::to_string(table.record_size)},
               {"slot", std::to_string(table.payload_slot)},
               {"count", std::to_string(table.keys.size())}});
}

std::string shapes_of(const Module& module) {
  std::string out;
  for (const Struct* type : module.structs) out += shape_of_struct(*type);
  for (const Table* table : module.tables) out += shape_of_table(*table);
  return out;
}

}  // namespace

void emit_module(Output& out, const MessageIndex& messages, const FailureZone& zone) {
  const Module& module = out.module;
  const std::string& m = module.name;
  std::string records, entry_names, variants, statics, types;
  const std::vector<Entry> entries = entries_of(module);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const Entry& e = entries[i];
    const std::string number = type_number(module, static_cast<int>(i));
    const std::string index = std::to_string(i);
    records += fill(kRecord, {{"symbol", e.symbol},
                              {"bytes", luid_bytes(e.luid)},
                              {"luid", e.luid},
                              {"name", e.name},
                              {"module", m},
                              {"kind", e.kind},
                              {"number", number}});
    entry_names += "extern kvt_variant_entry entries_" + index + "[" + std::to_string(e.variants.size()) + "];\n";
    variants += "kvt_variant_entry entries_" + index + "[] = {";
    for (const Entry::Variant& v : e.variants) {
      variants += fill(
          "{$(number), $(used), $(slop), 0, 0, 0, 0}, ",
          {{"number", std::to_string(v.number)}, {"used", std::to_string(v.used)}, {"slop", std::to_string(v.slop)}});
    }
    variants += fill("};\nstatic const kvt_variant_data varinfo_$(i) = {$(count), {0, 0, 0}, $(number)};\n",
                     {{"i", index}, {"count", std::to_string(e.variants.size())}, {"number", number}});
    statics += fill("    {&$(symbol), &varinfo_$(i), entries_$(i), $(destroy), $(shape)},\n",
                    {{"symbol", e.symbol},
                     {"i", index},
                     {"destroy", destroy_of(e)},
                     {"shape", e.shape.empty() ? "nullptr" : "&shape_" + e.shape}});
    types += "    &" + e.symbol + ",\n";
  }
  out.source("module.h") = top_comment(out, "The module's own records.") + fill(R"--(#pragma once

#include "frame/descriptor.h"

namespace kvt {
namespace @schema@ {
extern const ModuleDesc k_module;
extern const fenlog_table k_timer_messages, k_table_messages, k_type_messages;
// What the objects of a type are counted in; by the type's place in the type table.
$(entries)}  // namespace @schema@
}  // namespace kvt
)--",
                                                                                {{"entries", entry_names}});
  std::string includes;
  for (const Need& need : module.needs) includes += "#include \"" + need.name + "/" + need.name + ".h\"\n";
  std::string table_includes;
  if (!module.tables.empty()) {
    table_includes =
        "#include \"" + m +
        "_schema.h\"\n#include \"zarn_wlan/src/record_events.h\"\n#include \"zarn_wlan/src/table_handle.h\"\n";
  }
  std::string identities;
  for (const Table* table : module.tables) {
    identities += fill(R"--(extern const uint8_t table_$(table)_luid[16] = {$(bytes)};
extern const char table_$(table)_luid_text[33] = "$(luid)";
extern const char table_$(table)_name[] = "table $(table)";
)--",
                       {{"table", table->name}, {"bytes", luid_bytes(table->luid)}, {"luid", table->luid}});
  }
  out.source("module.cc") = top_comment(out, "Type records, message tables, load and unload.") +
                            fill(R"--(#include "$(m)_module.h"

#include "$(m)/$(m).h"
$(includes)#include "frame/bundle.h"
#include "frame/registration.h"
$(table_includes)
uint16_t g_kvt_$(m)_trace_module_id = 0;
uint16_t g_kvt_$(m)_stub_trace_module_id = 0;
namespace {
uint32_t g_trace_state = 0;
}

$(records)
$(identities)
namespace kvt {
namespace @schema@ {
$(variants)namespace {

$(hooks)$(shapes)
constexpr kvt_static_type kStaticTypes[] = {
$(statics)    {nullptr, nullptr, nullptr, nullptr, nullptr},
};
constexpr const kvt_type_record* kTypes[] = {
$(types)    nullptr,
};
void* g_failure_zone = nullptr;
kvt_module_record g_module = {"$(m)", kTypes, nullptr, nullptr};
std::uint8_t g_loaded = 0;

constexpr BundleSibling kNeeds[] = {
$(needs)};
}  // namespace

$(messages)const ModuleDesc k_module = {
    "$(m)", "kvt_$(m)", &g_kvt_$(m)_trace_module_id, &g_trace_state, $(m)_typeinfo_initialize, kStaticTypes, $(count),
    $(number), &g_failure_zone, $(zone), {&k_type_messages, $(first), &g_kvt_$(m)_trace_module_id}};

namespace {
__attribute__((constructor)) void load() { load_module(k_module, &g_module, &g_loaded); }
__attribute__((destructor)) void unload() { unload_module(k_module, &g_module); }
}  // namespace

}  // namespace @schema@
}  // namespace kvt

void $(m)_typeinfo_initialize(kvt_handle *handle, uint32_t txn, int *err) {
  kvt::register_types(handle, txn, kvt::@schema@::k_module, err);
}
void kvt_$(m)_trace_init(void) { fenlog_module_init_fn("kvt_$(m)", &g_kvt_$(m)_trace_module_id, &g_trace_state); }
void $(m)_type_variant_dump(int (*out)(const char *format, ...)) {
  kvt::dump_variants(kvt::@schema@::k_module, out);
}
void *$(m)_bundle_registered_handler = nullptr;
void *$(m)_bundle_handler_register(void *handler) {
  return kvt::register_bundle_handler($(m)_bundle_registered_handler, kvt::@schema@::kNeeds, handler);
}
void *$(m)_bundle_handler_unregister(void) {
  return kvt::unregister_bundle_handler($(m)_bundle_registered_handler, kvt::@schema@::kNeeds);
}
)--",
                                 {{"m", m},
                                  {"records", records},
                                  {"identities", identities},
                                  {"variants", variants},
                                  {"statics", statics},
                                  {"types", types},
                                  {"includes", includes},
                                  {"hooks", table_hooks(module)},
                                  {"shapes", shapes_of(module)},
                                  {"table_includes", table_includes},
                                  {"needs", needs_of(module)},
                                  {"messages", message_tables_of(module, messages)},
                                  {"first", std::to_string(messages.module_first)},
                                  {"count", std::to_string(entries.size())},
                                  {"number", std::to_string(module.number)},
                                  {"zone", std::to_string(zone.size)}});
}

}  // namespace zarnc

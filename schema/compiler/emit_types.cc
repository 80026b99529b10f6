// The families of struct, enumerated and flag types as sources, and the public headers of everything.
#include <algorithm>

#include "schema/compiler/emit_accessors.h"
#include "schema/compiler/emit_families.h"

namespace zarnc {
namespace {

std::string guard(const Output& out, const std::string& name) {
  std::string g = out.module.name + "_" + name + "_H";
  for (char& c : g) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return g;
}

std::string wrap(const Output& out, const std::string& name, const std::string& doc, const std::string& body) {
  return fill(R"--(/// @file
/// $(doc)
/// Made by zarnc from the schema of $(module); not to be edited.
#ifndef $(guard)
#define $(guard)

#include <kvt/kvt.h>

#ifdef __cplusplus
extern "C" {
#endif

$(body)
#ifdef __cplusplus
}
#endif
#endif
)--",
              {{"doc", doc}, {"module", out.module.name}, {"guard", guard(out, name)}, {"body", body}});
}

Holes struct_holes(const Struct& type) {
  Holes holes = type_holes(type.name, type.top);
  holes.emplace_back("plain", std::to_string(type.plain.back()));
  holes.emplace_back("tracked", std::to_string(type.plain.back() + type.block.back()));
  const bool timer =
      std::any_of(type.fields.begin(), type.fields.end(), [](const Field& f) { return f.kind == Kind::kTimer; });
  holes.emplace_back("timer_destroy", timer ? " It stops no timer: the caller has stopped the object's before. One "
                                              "that runs leaves its queue with the memory."
                                            : "");
  holes.emplace_back("timer_set", timer ? " The timer's block is copied as it is: neither timer may be running." : "");
  return holes;
}

Holes scalar_holes(const std::string& name, int top, bool marks) {
  Holes holes = type_holes(name, top);
  holes.emplace_back("marks", marks ? "true" : "false");
  return holes;
}

std::string record_declaration(const std::string& name) {
  return "/// The type's record.\nKVT_EXPORT extern const kvt_type_record " + record_symbol(name) + ";\n";
}

std::string enumerators(const Enum& type) {
  std::string out = "/// Enumerators of " + type.name + ".\nenum {\n";
  for (const Enumerator& e : type.enumerators) {
    out += "  " + e.name + " = " + std::to_string(e.value) + (&e == &type.enumerators.back() ? " " : ", ") + " ///< " +
           (e.meaning.empty() ? e.name : e.meaning) +
           (e.since ? " (since variant " + std::to_string(e.since) + ")" : "") + "\n";
  }
  return out + "};\n\n";
}

std::string bits(const Flag& type) {
  std::string out = "/// Bit indexes of " + type.name + ".\nenum {\n";
  for (std::size_t i = 0; i < type.bits.size(); ++i) {
    out += "  " + type.bits[i].name + " = " + std::to_string(i) + (i + 1 == type.bits.size() ? " " : ", ") + " ///< " +
           (type.bits[i].meaning.empty() ? type.bits[i].name : type.bits[i].meaning) + "\n";
  }
  return out + "};\n\n";
}

}  // namespace

void emit_headers(Output& out) {
  std::string includes;
  auto put = [&](const std::string& name, const std::string& doc, const std::string& body) {
    out.header(name + ".h") = wrap(out, name, doc, body);
    includes += "#include \"" + out.module.name + "/" + name + ".h\"\n";
  };
  for (const Struct* type : out.module.structs) {
    const Holes holes = struct_holes(*type);
    put(type->name, type->name + ": " + (type->meaning.empty() ? "a struct type" : type->meaning) + ".",
        declare(kStructLifecycleFamily, type->name, holes) + declare(kStructSerialFamily, type->name, holes) +
            record_declaration(type->name) + declare_accessors(*type));
  }
  for (const Enum* type : out.module.enums) {
    const Holes holes = scalar_holes(type->name, type->top, true);
    put(type->name, type->name + ": " + (type->meaning.empty() ? "an enumerated type" : type->meaning) + ".",
        enumerators(*type) + declare(kScalarFamily, type->name, holes) + declare(kEnumFamily, type->name, holes) +
            record_declaration(type->name));
  }
  for (const Flag* type : out.module.flags) {
    const Holes holes = scalar_holes(type->name, 0, false);
    put(type->name, type->name + ": " + (type->meaning.empty() ? "a flag type" : type->meaning) + ".",
        bits(*type) + declare(kScalarFamily, type->name, holes) + declare(kFlagFamily, type->name, holes) +
            record_declaration(type->name));
  }
  for (const Table* table : out.module.tables) {
    put(table->name,
        table->name + ": " + (table->meaning.empty() ? "a table of " + table->payload_name : table->meaning) + ".",
        declare_table(out.module, *table));
  }
  const std::string& m = out.module.name;
  std::string needs;
  for (const Need& need : out.module.needs) needs += (needs.empty() ? ": " : ", ") + need.name;
  std::string& umbrella = out.header(m + ".h");
  umbrella = wrap(out, "all", "All that the module " + m + " exports.",
                  includes +
                      fill(R"--(
/// Registers the module's types in the handle's registry; its address goes to kvt_type_info_ptr_get. ENOMEM.
KVT_EXPORT void $(m)_typeinfo_initialize(kvt_handle *handle, uint32_t txn, int *err);
/// Binds the module's trace id; cheap and idempotent.
KVT_EXPORT void kvt_$(m)_trace_init(void);
KVT_EXPORT extern uint16_t g_kvt_$(m)_trace_module_id;
/// Tells `out`, which is a function in the manner of printf, the variants of each type of the module: how many, and of
/// each the bytes in use and those left over.
KVT_EXPORT void $(m)_type_variant_dump(int (*out)(const char *format, ...));
/// Keeps a bundle handler for the module and for those that it stands on$(needs). The library itself never calls it.
/// @return the handler that was there before, NULL at first
KVT_EXPORT void *$(m)_bundle_handler_register(void *handler);
/// Takes the handler away, from the same modules. @return the handler that was there
KVT_EXPORT void *$(m)_bundle_handler_unregister(void);
/// The handler kept for the module itself.
KVT_EXPORT extern void *$(m)_bundle_registered_handler;
/// The trace id of generated stubs of the module; kept for them, not read here.
KVT_EXPORT extern uint16_t g_kvt_$(m)_stub_trace_module_id;
)--",
                           {{"m", m}, {"needs", needs}}) +
                      declare_timers(out.module));
}

void emit_lifecycle(Output& out) {
  std::string& source = out.source("lifecycle.cc");
  source = top_comment(out, "Lifecycle of struct types.") +
           fill(
               "#include \"$(module)_schema.h\"\n#include \"objects/references.h\"\n#include "
               "\"objects/state_tracking.h\"\n#include \"objects/struct_copy.h\"\n"
               "#include \"objects/struct_lifecycle.h\"\n#include \"objects/variants.h\"\n\n",
               {{"module", out.module.name}});
  for (const Struct* type : out.module.structs)
    source += define(kStructLifecycleFamily, type->name, struct_holes(*type));
}

void emit_serial(Output& out) {
  const std::string top =
      top_comment(out, "Serial forms of struct types.") +
      fill(
          "#include \"$(module)_schema.h\"\n#include \"serial/binary.h\"\n#include \"serial/clone.h\"\n"
          "#include \"serial/compare.h\"\n#include \"serial/hash.h\"\n#include \"serial/print_form.h\"\n"
          "#include \"serial/xml_form.h\"\n\n",
          {{"module", out.module.name}});
  shard(out, "serial", kSerialShards, top, out.module.structs,
        [](const Struct* type) { return define(kStructSerialFamily, type->name, struct_holes(*type)); });
}

void emit_scalars(Output& out) {
  std::string& source = out.source("scalars.cc");
  source = top_comment(out, "Enumerated and flag types.") +
           fill(
               "#include \"$(module)_schema.h\"\n#include \"objects/enumerated.h\"\n#include \"objects/flag_set.h\"\n"
               "#include \"serial/binary.h\"\n#include \"serial/print_form.h\"\n#include \"serial/xml_form.h\"\n\n",
               {{"module", out.module.name}});
  for (const Enum* type : out.module.enums) {
    const Holes holes = scalar_holes(type->name, type->top, true);
    source += define(kScalarFamily, type->name, holes) + define(kEnumFamily, type->name, holes);
  }
  for (const Flag* type : out.module.flags) {
    const Holes holes = scalar_holes(type->name, 0, false);
    source += define(kScalarFamily, type->name, holes) + define(kFlagFamily, type->name, holes);
  }
}

}  // namespace zarnc

// Field accessors: which operations a field has, how they are declared and defined.
#include "schema/compiler/emit_accessors.h"

namespace zarnc {
namespace {

constexpr const char* kObject = "kvt_handle *handle, uint32_t txn, void *object";

Holes field_holes(const Struct& type, const Field& f) {
  std::string doc = f.meaning;
  if (!f.unit.empty()) doc += ", in " + f.unit;
  doc += ". " + f.type + " at offset " + std::to_string(f.offset);
  if (f.variant) doc += ", since variant " + std::to_string(f.variant);
  if (f.bookkeeping) doc += "; bookkeeping of the WLAN manager";
  return {{"type", type.name}, {"field", f.name},        {"doc", doc},
          {"object", kObject}, {"value", value_type(f)}, {"record", "kvt::@schema@::" + type.name + "::" + f.name}};
}

bool has_access(const Field& f) { return f.kind != Kind::kReference && f.kind != Kind::kTimer; }

Holes reference_holes(const Struct& type, const Field& f) {
  Holes holes = field_holes(type, f);
  holes.emplace_back("kind", f.target_is_table ? "table" : "object of type");
  holes.emplace_back("target", f.target);
  holes.emplace_back("desc", "kvt::@schema@::" + type.name + "::kDesc");
  holes.emplace_back("place", std::to_string(&f - type.fields.data()));
  return holes;
}

// The value fields as parameters and as arguments, behind those that all calls have.
struct AllFields {
  std::string parameters_out, parameters_in, arguments, records;
};
AllFields all_fields(const Struct& type) {
  AllFields all;
  for (const Field& f : type.fields) {
    if (!f.has_value()) continue;
    all.parameters_out += std::string(value_type(f)) + " *" + f.name + ", ";
    all.parameters_in += std::string(value_type(f)) + " " + f.name + ", ";
    all.arguments += f.name + ", ";
    all.records += ", kvt::@schema@::" + type.name + "::" + f.name;
  }
  return all;
}

Holes all_holes(const Struct& type) {
  const AllFields all = all_fields(type);
  return {{"type", type.name},
          {"object", kObject},
          {"out", all.parameters_out},
          {"in", all.parameters_in},
          {"args", all.arguments},
          {"records", all.records},
          {"get_records", all.records.empty() ? "" : all.records.substr(2)}};
}

}  // namespace

std::string declare_accessors(const Struct& type) {
  std::string out;
  for (const Field& f : type.fields) {
    const Holes holes = field_holes(type, f);
    out += fill(
        "\n/// @name $(field)\n/// $(doc).\n/// Sticky err in all: EIDRM when the object's variant lacks the "
        "field.\n///@{\n",
        holes);
    if (has_access(f)) {
      out += fill(
          "/// The field's address, valid as long as the object; NULL on error.\n"
          "KVT_EXPORT void *$(type)_$(field)_get($(object), int *err);\n"
          "/// Copies from a like field or object, and marks the state byte. EINVAL: tracking handle, untracked "
          "object.\n"
          "KVT_EXPORT void $(type)_$(field)_set($(object), const void *source, int *err);\n",
          holes);
    }
    if (f.has_value()) {
      out += fill(
          "/// The value; 0 on error.\n"
          "KVT_EXPORT $(value) $(type)_$(field)_get_value($(object), int *err);\n"
          "/// Stores the value, and marks the state byte. EINVAL as above.\n"
          "KVT_EXPORT void $(type)_$(field)_set_value($(object), $(value) value, int *err);\n",
          holes);
    }
    if (f.kind == Kind::kReference) {
      out += fill(
          "/// The $(kind) $(target) that the field refers to; NULL when it refers to none. EINVAL: the identity is of "
          "another type;\n"
          "/// ENOENT: it is not of this store, or what it stood for is gone.\n"
          "KVT_EXPORT void *$(type)_$(field)_get_by_ref($(object), int *err);\n"
          "/// As above, with the handle's write context and last error.\n"
          "KVT_EXPORT void *$(type)_$(field)_get_by_ref_cr(kvt_handle *handle, void *object);\n"
          "/// Refers to `target`, which is counted as referred to, and marks the state byte; NULL clears the field, "
          "KVT_REF_MARKER\n"
          "/// marks it. The earlier target's count is dropped, except by the marker. EINVAL: a target of another "
          "type; "
          "EPERM: a nested\n"
          "/// object.\n"
          "KVT_EXPORT void $(type)_$(field)_set_by_ref($(object), void *target, int *err);\n"
          "/// As above, with the handle's write context; the last error afterwards.\n"
          "KVT_EXPORT int32_t $(type)_$(field)_set_by_ref_cr(kvt_handle *handle, void *object, void *target);\n",
          reference_holes(type, f));
    }
    out += fill(
        "/// The field's state byte. EINVAL without state tracking.\n"
        "KVT_EXPORT uint8_t $(type)_$(field)_state_flag_get($(object), int *err);\n",
        holes);
    if (f.kind != Kind::kTimer) {
      out += fill("KVT_EXPORT void $(type)_$(field)_state_flag_set($(object), uint32_t value, int *err);\n", holes);
    } else {
      out += declare_timer(type, f);
    }
    out += "///@}\n";
  }
  out += fill(
      "\n/// Reads every value field that the object's variant has; the others' outs stay as they are.\n"
      "KVT_EXPORT void $(type)_get_all($(object), $(out)int *err);\n"
      "/// Stores every value field that the object's variant has; marks no state byte.\n"
      "KVT_EXPORT void $(type)_set_all($(object), $(in)int *err);\n",
      all_holes(type));
  return out;
}

std::string define_accessors(const Struct& type) {
  std::string out;
  for (const Field& f : type.fields) {
    const Holes holes = field_holes(type, f);
    if (has_access(f)) {
      out += fill(
          "void *$(type)_$(field)_get($(object), int *err) {\n"
          "  return kvt::field_get<$(record)>(handle, txn, object, err);\n}\n"
          "void $(type)_$(field)_set($(object), const void *source, int *err) {\n"
          "  kvt::field_set<$(record)>(handle, txn, object, source, err);\n}\n",
          holes);
    }
    if (f.has_value()) {
      out += fill(
          "$(value) $(type)_$(field)_get_value($(object), int *err) {\n"
          "  return kvt::field_get_value<$(record)>(handle, txn, object, err);\n}\n"
          "void $(type)_$(field)_set_value($(object), $(value) value, int *err) {\n"
          "  kvt::field_set_value<$(record)>(handle, txn, object, value, err);\n}\n",
          holes);
    }
    if (f.kind == Kind::kReference) {
      out += fill(
          "void *$(type)_$(field)_get_by_ref($(object), int *err) {\n"
          "  return kvt::reference_get($(desc), $(place), handle, txn, object, err);\n}\n"
          "void *$(type)_$(field)_get_by_ref_cr(kvt_handle *handle, void *object) {\n"
          "  return kvt::reference_get($(desc), $(place), handle, handle->default_txn, object, "
          "&handle->last_error);\n}\n"
          "void $(type)_$(field)_set_by_ref($(object), void *target, int *err) {\n"
          "  kvt::reference_set($(desc), $(place), handle, txn, object, target, err);\n}\n"
          "int32_t $(type)_$(field)_set_by_ref_cr(kvt_handle *handle, void *object, void *target) {\n"
          "  kvt::reference_set($(desc), $(place), handle, handle->default_txn, object, target, "
          "&handle->last_error);\n"
          "  return handle->last_error;\n}\n",
          reference_holes(type, f));
    }
    out += fill(
        "uint8_t $(type)_$(field)_state_flag_get($(object), int *err) {\n"
        "  return kvt::field_state_get<$(record)>(handle, txn, object, err);\n}\n",
        holes);
    if (f.kind != Kind::kTimer) {
      out += fill(
          "void $(type)_$(field)_state_flag_set($(object), uint32_t value, int *err) {\n"
          "  kvt::field_state_set<$(record)>(handle, txn, object, value, err);\n}\n",
          holes);
    }
  }
  out += fill(
      "void $(type)_get_all($(object), $(out)int *err) {\n"
      "  kvt::struct_get_all<$(get_records)>(handle, txn, object, $(args)err);\n}\n"
      "void $(type)_set_all($(object), $(in)int *err) {\n"
      "  kvt::struct_set_all<kvt::@schema@::$(type)$(records)>(handle, txn, object, $(args)err);\n}\n",
      all_holes(type));
  return out;
}

void emit_accessors(Output& out) {
  const std::string top =
      top_comment(out, "Field accessors.") +
      fill(
          "#include \"$(module)_schema.h\"\n#include \"objects/field_access.h\"\n#include \"objects/references.h\"\n\n",
          {{"module", out.module.name}});
  shard(out, "accessors", kAccessorShards, top, out.module.structs,
        [](const Struct* type) { return define_accessors(*type); });
}

}  // namespace zarnc

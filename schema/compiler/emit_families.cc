// The exported functions of struct, enumerated and flag types: one line each over a constant record. A family is a list
// of operations; its declaration with documentation and its definition stand side by side, so that neither can be
// forgotten.
#include "schema/compiler/emit_families.h"

#include <iterator>

namespace zarnc {
namespace {

#define OBJECT "kvt_handle *handle, uint32_t txn, void *object"
#define XML_OUT                                                                                                   \
  "kvt_handle *handle, uint32_t txn, const char *name, char *buffer, const void *object, int32_t room, uint32_t " \
  "state, int *err"
#define PRINT_OUT                                                                                                    \
  "kvt_handle *handle, uint32_t txn, char *buffer, uint32_t indent, const char *label, const void *object, int32_t " \
  "room, int *err"
#define PRINT_CR "kvt_handle *handle, const void *object, char *buffer, int32_t room"
#define CLONE \
  "kvt_handle *handle, uint32_t txn, const void *source, void **clone, uint8_t *buffer, int32_t length, int *err"
#define XML_IN                                                                                                    \
  "kvt_handle *handle, uint32_t txn, const char *path, kvt_xml_document *document, void *object, int *err, char " \
  "*message, size_t size"
#define WIRE_OUT "kvt_handle *handle, uint32_t txn, uint8_t *buffer, const void *object, int32_t length, int *err"
#define WIRE_IN \
  "kvt_handle *handle, uint32_t txn, const uint8_t *buffer, void *object, int32_t length, uint32_t update, int *err"
#define INIT                                                                                                        \
  "kvt_handle *handle, uint32_t txn, void *object, const kvt_type_record *record, int announce, int no_stats, int " \
  "flags, void *sttr_base, int *err"

constexpr Operation kStructLifecycle[] = {
    {"create", "void *", "kvt_handle *handle, uint32_t txn",
     "A new object, all fields zero or empty. The caller destroys it. NULL when the store is exhausted; no error is "
     "kept.",
     "return kvt::struct_create($(d), handle, txn);"},
    {"create_internal", "void *", "kvt_handle *handle, uint32_t txn", "As $(type)_create, for generated callers.",
     "return kvt::struct_create_internal($(d), handle, txn);"},
    {"create_cr", "void *", "kvt_handle *handle",
     "As $(type)_create with the handle's write context; an exhausted store gives the failure object and last error "
     "ENOMEM.",
     "return kvt::struct_create_cr($(d), handle);"},
    {"initialize", "void", INIT,
     "Sets up header and fields of an object that lies elsewhere. `record` is the static type record, `flags` 4 for a "
     "nested "
     "object, `sttr_base` the state block of its top-level object. ENOMEM; EINVAL: nested and tracked without base.",
     "kvt::struct_initialize($(d), handle, txn, object, record, announce, no_stats, flags, sttr_base, err);"},
    {"destroy", "void", OBJECT,
     "Gives back the object and all that it holds, now, or when the last reference to it goes. NULL and the failure "
     "object are accepted. In a database the caller holds the write lock.$(timer_destroy)",
     "kvt::struct_destroy($(d), handle, txn, object);"},
    {"destroy_internal", "void", OBJECT ", int free_it",
     "As $(type)_destroy; with `free_it` 0 the memory of the object itself stays.",
     "kvt::struct_destroy_internal($(d), handle, txn, object, free_it);"},
    {"destroy_cr", "void", "kvt_handle *handle, void *object", "As $(type)_destroy with the handle's write context.",
     "kvt::struct_destroy_internal($(d), handle, handle->default_txn, object, 1);"},
    {"sizeof", "uint32_t", "kvt_handle *handle", "Bytes of a new object: $(plain), and with state tracking $(tracked).",
     "return kvt::struct_sizeof($(d), handle);"},
    {"sizeof_internal", "uint32_t", "kvt_handle *handle, const void *object, int with_block, int block_only",
     "Bytes of the object by its built variant (NULL: the top one), with its state block or the block alone.",
     "return kvt::struct_sizeof_internal($(d), handle, object, with_block, block_only);"},
    {"set_instance_embedded", "void", OBJECT, "Marks the object and its nested objects as taken over by a record.",
     "kvt::struct_set_embedded($(d), handle, txn, object);"},
    {"get_oid_count", "uint32_t", "kvt_handle *handle, uint32_t txn, const void *object, int *err",
     "How many reference fields the type has. EINVAL for NULL.",
     "(void)txn;\n  return kvt::struct_get_oid_count($(d), handle, object, err);"},
    {"get_object_references", "void",
     "kvt_handle *handle, uint32_t txn, const void *object, void **out, uint32_t count, int *err",
     "Puts into `out` the tables that the reference fields lead to, in schema order; NULL for a field that refers to "
     "none. References to objects are left out. `count` isn't read. EINVAL for NULL; ENOENT: a table is not there.",
     "(void)count;\n  kvt::struct_get_object_references($(d), handle, txn, object, out, err);"},
    {"set_all_state_tracking_flag", "void", OBJECT ", uint32_t value",
     "Fills the object's whole state block; nothing on an untracked handle or object. Not announced.",
     "kvt::state_set_all($(d), handle, txn, object, static_cast<std::uint8_t>(value));"},
    {"adjust_variant", "void", OBJECT ", int *err", "Lets the runtime raise the object's variant, at most to $(top).",
     "kvt::adjust_variant(handle, txn, object, $(d).top, err);"},
    {"variant_data_index_cap", "int32_t", "int32_t variant", "The variant, at most $(top).",
     "return kvt::cap_variant(variant, $(d).top);"},
    {"is_valid_cr", "uint32_t", "kvt_handle *handle, const void *object, uint32_t field_index, uint32_t domain_only",
     "1 if the field of that index exists in the domain (bit 0 of `domain_only`), or in domain and object.",
     "return kvt::struct_is_valid($(d), handle, object, field_index, domain_only);"},
    {"offset_update", "void", OBJECT ", void *anchor",
     "Tells the runtime where the state bytes of nested objects are; `anchor` is the object's own block.",
     "kvt::offset_update($(d), handle, txn, object, anchor);"},
    {"offset_remove", "void", OBJECT ", int *err", "Takes back what $(type)_offset_update told.",
     "kvt::offset_remove($(d), handle, txn, object, err);"},
    {"post_copyout_cleanup", "void *", "kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err",
     "After a raw copy of an object's bytes: gives every string of `dest` content of its own. Returns its first "
     "argument.",
     "return kvt::post_copyout_cleanup($(d), handle, txn, dest, source, err);"},
    {"get_luid", "const uint8_t *", "kvt_handle *handle, uint32_t txn, const void *object, int *err",
     "The 16 bytes of the object's type identity.", "return kvt_get_luid(handle, txn, object, err);"},
    {"get", "void *", OBJECT ", int *err", "The object itself, reported to the containment observer. `err` isn't read.",
     "(void)err;\n  return kvt::struct_get(handle, txn, object);"},
    {"set", "void", "kvt_handle *handle, uint32_t txn, void *dest, const void *source, int *err",
     "Copies a whole object; the old content of `dest` is given back. `err` must be clear. On a tracking handle both "
     "must have been created with state tracking. EIDRM: `dest` holds a lower variant than `source`, or was built with "
     "another one; EINVAL: no state block on a tracking handle; ENOMEM.$(timer_set)",
     "kvt::struct_set($(d), handle, txn, dest, source, err);"},
};

constexpr Operation kStructSerial[] = {
    {"marshal", "uint32_t", WIRE_OUT,
     "Writes the object's binary form. `length` is the room at `buffer`. EMSGSIZE: too little room; EIDRM: the domain "
     "allows only a lower variant. Bytes written.",
     "return kvt::struct_marshal<$(s)>(handle, txn, buffer, object, length, true, err);"},
    {"marshal_for_clone", "uint32_t", WIRE_OUT,
     "As $(type)_marshal, also above the variant that the domain allows; nested objects are held to theirs.",
     "return kvt::struct_marshal<$(s)>(handle, txn, buffer, object, length, false, err);"},
    {"unmarshal", "uint32_t", WIRE_IN,
     "Reads a binary form into an initialised object; what the bytes do not carry stays. EMSGSIZE: cut short; ENOMEM. "
     "Bytes read.",
     "return kvt::struct_unmarshal<$(s)>(handle, txn, buffer, object, length, update, err);"},
    {"len", "uint32_t", "kvt_handle *handle, uint32_t txn, const void *object",
     "Bytes that $(type)_marshal needs; 6 for NULL.", "return kvt::struct_len<$(s)>(handle, object, txn);"},
    {"len_cr", "uint32_t", "kvt_handle *handle, const void *object", "As $(type)_len; 0 when the last error is set.",
     "return kvt::struct_len_cr<$(s)>(handle, object);"},
    {"clone", "void", CLONE,
     "Copies `source` in depth into a new object and stores that in `*clone`, or NULL. `buffer` holds the binary form "
     "meanwhile; $(type)_len tells how many bytes that takes. ENOENT: no `clone` or `buffer`; EMSGSIZE: `length` is "
     "too short; EIDRM: a nested object is above its domain's variant; ENOMEM.",
     "kvt::struct_clone<$(s)>(handle, txn, source, clone, buffer, length, err);"},
    {"clone_internal", "void", CLONE,
     "As $(type)_clone, but an object that is in `*clone` is the one written to. When reading the copy fails that "
     "object is destroyed and `*clone` set to NULL.",
     "kvt::struct_clone_internal<$(s)>(handle, txn, source, clone, buffer, length, err);"},
    {"clone_cr", "void *", "kvt_handle *handle, const void *source",
     "As $(type)_clone with the handle's write context, last error and scratch buffer, which grows as need be. The new "
     "object, or NULL.",
     "return kvt::struct_clone_cr<$(s)>(handle, source);"},
    {"compare", "int32_t", "const void *a, const void *b",
     "0 when all fields are equal, else below or above 0 by the first difference in schema order. NULL sorts first.",
     "return kvt::struct_compare<$(s)>(a, b);"},
    {"hash", "uint32_t", "const void *object, uint32_t seed",
     "A hash of all fields under a seed, the seed for NULL. Objects that compare equal hash alike.",
     "return kvt::struct_hash<$(s)>(object, seed);"},
    {"print", "uint32_t", PRINT_OUT,
     "Writes the object as indented lines between \"label@$(type): {\" and \"}\". `room` is that at `buffer`, a NUL "
     "included that ends the text at any time. EMSGSIZE. Characters written.",
     "return kvt::struct_print($(d), handle, txn, buffer, indent, label, object, room, err);"},
    {"print_cr", "int32_t", PRINT_CR,
     "As $(type)_print without indentation, with the type's name as label; -1 when the last error is set.",
     "return kvt::struct_print_cr($(d), handle, object, buffer, room);"},
    {"to_xml", "uint32_t", XML_OUT,
     "Writes the object as the element `name`. `room` is that at `buffer`; no terminator is written. EMSGSIZE. "
     "Characters "
     "written.",
     "return kvt::struct_to_xml($(d), handle, txn, name, buffer, object, room, state, err);"},
    {"toxml_cr", "int32_t", "kvt_handle *handle, const void *object, char *buffer, int32_t room",
     "As $(type)_to_xml with the type's name; -1 when the last error is set.",
     "return kvt::struct_to_xml_cr($(d), handle, object, buffer, room);"},
    {"from_xml", "void", XML_IN,
     "Fills the object from the element at `path`; fields without an element stay, and leave 2 in the handle's last "
     "error while `err` is clear, which the caller clears before a call without a slot of its own. 2: no such element; "
     "EINVAL and others: a field cannot be read, and `message` (of `size` bytes, may be NULL) names it.",
     "kvt::struct_from_xml($(d), handle, txn, path, document, object, err, message, size);"},
};

// Enumerated and flag types alike; $(marks) tells them apart at destruction.
constexpr Operation kScalar[] = {
    {"variant_data_index_cap", "int32_t", "int32_t variant", "The variant, at most $(top).",
     "return kvt::cap_variant(variant, $(d).cap);"},
    {"get_luid", "const uint8_t *", "kvt_handle *handle, uint32_t txn, const void *object, int *err",
     "The 16 bytes of the object's type identity.", "return kvt_get_luid(handle, txn, object, err);"},
    {"create", "void *", "kvt_handle *handle, uint32_t txn",
     "A new object of value 0; NULL when the store is exhausted.",
     "return kvt::scalar_create_internal($(d), handle, txn);"},
    {"create_internal", "void *", "kvt_handle *handle, uint32_t txn", "As $(type)_create, for generated callers.",
     "return kvt::scalar_create_internal($(d), handle, txn);"},
    {"create_cr", "void *", "kvt_handle *handle",
     "As $(type)_create with the handle's write context; the failure object when the store is exhausted.",
     "return kvt::scalar_create_cr($(d), handle);"},
    {"initialize", "void", INIT, "Sets up the header of a field; its value stays.",
     "(void)no_stats, (void)sttr_base;\n  kvt::scalar_initialize($(d), handle, txn, object, record, announce, flags, "
     "err);"},
    {"set_instance_embedded", "void", OBJECT, "Marks the object as taken over by a record.",
     "kvt::scalar_set_embedded($(d), handle, txn, object);"},
    {"get_oid_count", "uint32_t", "kvt_handle *handle, uint32_t txn, const void *object, int *err",
     "0: such an object holds no references. EINVAL for NULL.",
     "(void)txn;\n  return kvt::scalar_get_oid_count($(d), handle, object, err);"},
    {"get_object_references", "void",
     "kvt_handle *handle, uint32_t txn, const void *object, void **out, uint32_t count, int *err",
     "Adds nothing to `out`. EINVAL for NULL.",
     "(void)txn, (void)out, (void)count;\n  kvt::scalar_get_object_references($(d), handle, object, err);"},
    {"destroy", "void", OBJECT, "Gives back an object that stands alone.",
     "kvt::scalar_destroy_internal($(d), handle, txn, object, 1, $(marks));"},
    {"destroy_internal", "void", OBJECT ", int free_it", "As $(type)_destroy; nothing when `free_it` is 0.",
     "kvt::scalar_destroy_internal($(d), handle, txn, object, free_it, $(marks));"},
    {"destroy_cr", "void", "kvt_handle *handle, void *object", "As $(type)_destroy with the handle's write context.",
     "kvt::scalar_destroy_internal($(d), handle, handle->default_txn, object, 1, $(marks));"},
    {"adjust_variant", "void", OBJECT ", int *err", "Lets the runtime raise the object's variant, at most to $(top).",
     "kvt::adjust_variant(handle, txn, object, $(d).cap, err);"},
    {"sizeof", "uint32_t", "kvt_handle *handle", "12 bytes.", "(void)handle;\n  return kvt::kScalarObjectSize;"},
};

constexpr Operation kEnum[] = {
    {"compare", "int32_t", "const void *a, const void *b", "The wrapped difference of the values; NULL sorts first.",
     "return kvt::enum_compare(a, b);"},
    {"hash", "uint32_t", "const void *object, uint32_t seed", "A hash of the value under a seed, the seed for NULL.",
     "return kvt::enum_hash(object, seed);"},
    {"print", "uint32_t", PRINT_OUT,
     "Writes \"label@$(type):\" and the enumerator's name as a line, or \"Enum value out of range\" and no line end. "
     "`room` includes the NUL behind the text. EMSGSIZE. Characters written.",
     "return kvt::enum_print($(d), handle, txn, buffer, indent, label, object, room, err);"},
    {"print_cr", "int32_t", PRINT_CR,
     "As $(type)_print without indentation, with the type's name as label; -1 when the last error is set.",
     "return kvt::enum_print_cr($(d), handle, object, buffer, room);"},
    {"map_to_internal_value", "uint32_t", "uint32_t value", "The value unchanged: one numbering serves everywhere.",
     "return value;"},
    {"len", "uint32_t", "kvt_handle *handle, uint32_t txn, const void *object", "5 bytes in binary form.",
     "(void)handle, (void)txn, (void)object;\n  return kvt::kEnumBytes;"},
    {"len_cr", "uint32_t", "kvt_handle *handle", "As $(type)_len; 0 when the last error is set.",
     "return handle->last_error ? 0 : kvt::kEnumBytes;"},
    {"get", "void *", OBJECT, "The object itself, reported to the containment observer.",
     "return kvt::enum_get(handle, txn, object);"},
    {"get_value", "uint32_t", OBJECT ", int *err", "The enumerator's number. EINVAL for NULL.",
     "(void)txn;\n  return kvt::enum_get_value(handle, object, err);"},
    {"set", "void", "kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err",
     "Copies a whole object. EIDRM: the value isn't legal at the object's variant; EINVAL for NULL.",
     "kvt::enum_set($(d), handle, txn, object, source, err);"},
    {"set_value", "void", OBJECT ", uint32_t value, int *err",
     "Stores an enumerator's number. EIDRM: not legal at the object's variant; EINVAL for NULL.",
     "kvt::enum_set_value($(d), handle, txn, object, value, err);"},
    {"marshal", "uint32_t", WIRE_OUT, "Writes the binary form, 5 bytes. EMSGSIZE, EIDRM.",
     "return kvt::enum_marshal($(d), handle, txn, buffer, object, length, err);"},
    {"unmarshal", "uint32_t", WIRE_IN, "Reads the binary form; any number is stored as it came. EMSGSIZE.",
     "return kvt::enum_unmarshal($(d), handle, txn, buffer, object, length, update, err);"},
    {"to_xml", "uint32_t", XML_OUT, "Writes an element that holds one empty child named after the enumerator.",
     "(void)state;\n  return kvt::enum_to_xml($(d), handle, txn, name, buffer, object, room, err);"},
    {"toxml_cr", "int32_t", "kvt_handle *handle, const void *object, char *buffer, int32_t room",
     "As $(type)_to_xml with the type's name; -1 when the last error is set.",
     "return kvt::enum_to_xml_cr($(d), handle, object, buffer, room);"},
    {"from_xml", "void", XML_IN, "Takes the first enumerator that stands below `path`. 2: none does.",
     "(void)txn;\n  (void)message;\n  (void)size;\n  kvt::enum_from_xml($(d), handle, path, document, object, err);"},
    {"is_valid_cr", "uint32_t", "kvt_handle *handle, int32_t value",
     "1 if the domain allows the number, compared signed.", "return kvt::enum_is_valid($(d), handle, value);"},
};

constexpr Operation kFlag[] = {
    {"compare", "int32_t", "const void *a, const void *b", "The difference of the bits; NULL sorts first.",
     "return kvt::flag_compare(a, b);"},
    {"hash", "uint32_t", "const void *object, uint32_t seed", "A hash of the bits under a seed, the seed for NULL.",
     "return kvt::flag_hash(object, seed);"},
    {"print", "uint32_t", PRINT_OUT,
     "Writes \"label@$(type):\" and the names of the set bits as a line; \"ERR \" for NULL, which leaves EIDRM in the "
     "handle. `room` includes the NUL behind the text. EMSGSIZE. Characters written.",
     "return kvt::flag_print($(d), handle, txn, buffer, indent, label, object, room, err);"},
    {"print_cr", "int32_t", PRINT_CR,
     "As $(type)_print without indentation, with the type's name as label; -1 when the last error is set, as it is for "
     "NULL.",
     "return kvt::flag_print_cr($(d), handle, object, buffer, room);"},
    {"len", "uint32_t", "kvt_handle *handle, uint32_t txn, const void *object", "6 bytes in binary form.",
     "(void)handle, (void)txn, (void)object;\n  return kvt::kFlagBytes;"},
    {"len_cr", "uint32_t", "kvt_handle *handle, const void *object", "As $(type)_len; 0 when the last error is set.",
     "(void)object;\n  return handle->last_error ? 0 : kvt::kFlagBytes;"},
    {"in_range", "uint32_t", "uint32_t bit", "1 if the type has a bit of that index.",
     "return kvt::flag_in_range($(d), bit);"},
    {"get", "void *", OBJECT, "The object itself.", "(void)handle, (void)txn;\n  return object;"},
    {"set", "void", "kvt_handle *handle, uint32_t txn, void *object, const void *source, int *err",
     "Copies a whole object, untested.", "kvt::flag_set(handle, txn, object, source, err);"},
    {"get_value", "uint32_t", OBJECT ", uint32_t bit, int *err",
     "0 or 1. EIDRM for NULL and for a bit that isn't there.",
     "(void)txn;\n  return kvt::flag_get_value($(d), handle, object, bit, err);"},
    {"get_cr", "uint32_t", "kvt_handle *handle, void *object, uint32_t bit",
     "As $(type)_get_value on the handle's last error; 0 when that is set.",
     "const std::uint32_t on = kvt::flag_get_value($(d), handle, object, bit, &handle->last_error);\n"
     "  return handle->last_error ? 0 : on;"},
    {"set_value", "void", OBJECT ", uint32_t bit, uint32_t on, int *err",
     "Sets the bit when `on` is not 0, clears it otherwise. EIDRM: no such bit.",
     "kvt::flag_set_value($(d), handle, txn, object, bit, on, err);"},
    {"set_cr", "int32_t", "kvt_handle *handle, void *object, uint32_t bit, uint32_t on",
     "As $(type)_set_value with the handle's write context; the last error afterwards.",
     "kvt::flag_set_value($(d), handle, handle->default_txn, object, bit, on, &handle->last_error);\n"
     "  return handle->last_error;"},
    {"marshal", "uint32_t", WIRE_OUT, "Writes the binary form, 6 bytes. EMSGSIZE, EIDRM.",
     "return kvt::flag_marshal($(d), handle, txn, buffer, object, length, err);"},
    {"unmarshal", "uint32_t", WIRE_IN, "Reads the binary form; all eight bits are stored. EMSGSIZE.",
     "return kvt::flag_unmarshal($(d), handle, txn, buffer, object, length, update, err);"},
    {"to_xml", "uint32_t", XML_OUT, "Writes an element that holds one empty child for each set bit.",
     "(void)state;\n  return kvt::flag_to_xml($(d), handle, txn, name, buffer, object, room, err);"},
    {"toxml_cr", "int32_t", "kvt_handle *handle, const void *object, char *buffer, int32_t room",
     "As $(type)_to_xml with the type's name; -1 when the last error is set.",
     "return kvt::flag_to_xml_cr($(d), handle, object, buffer, room);"},
    {"from_xml", "void", XML_IN, "Sets the bits whose elements stand below `path`; clears none.",
     "(void)message;\n  (void)size;\n  kvt::flag_from_xml($(d), handle, txn, path, document, object, err);"},
    {"is_valid_cr", "uint32_t", "kvt_handle *handle, uint32_t bit", "1 if the type has a bit of that index.",
     "return kvt::flag_is_valid($(d), handle, bit);"},
};

}  // namespace

const Family kStructLifecycleFamily{std::begin(kStructLifecycle), std::end(kStructLifecycle)};
const Family kStructSerialFamily{std::begin(kStructSerial), std::end(kStructSerial)};
const Family kScalarFamily{std::begin(kScalar), std::end(kScalar)};
const Family kEnumFamily{std::begin(kEnum), std::end(kEnum)};
const Family kFlagFamily{std::begin(kFlag), std::end(kFlag)};

std::string declare(const Family& family, const std::string& prefix, const Holes& holes) {
  std::string out;
  for (const Operation& op : family) {
    out += "/// " + fill(op.doc, holes) + "\nKVT_EXPORT " + op.result +
           (op.result[std::string(op.result).size() - 1] == '*' ? "" : " ") + prefix + "_" + op.name + "(" +
           op.arguments + ");\n";
  }
  return out;
}

std::string define(const Family& family, const std::string& prefix, const Holes& holes) {
  std::string out;
  for (const Operation& op : family) {
    const std::string result = op.result;
    out += result + (result.back() == '*' ? "" : " ") + prefix + "_" + op.name + "(" + op.arguments + ") {\n  " +
           fill(op.body, holes) + "\n}\n";
  }
  return out;
}

Holes type_holes(const std::string& name, int top) {
  return {{"type", name},
          {"s", "kvt::@schema@::" + name},
          {"d", "kvt::@schema@::" + name + "::kDesc"},
          {"top", std::to_string(top)}};
}

}  // namespace zarnc

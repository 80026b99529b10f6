// A layout as text: one line a fact, in the order of the type table, the same on every run.
#include "schema/compiler/listing.h"

namespace zarnc {

namespace {

void list(const Struct& type, std::ostream& out) {
  out << type.index << " struct " << type.name << ' ' << type.luid << '\n';
  for (int variant = 0; variant <= type.top; ++variant) {
    const auto at = static_cast<std::size_t>(variant);
    out << "  variant " << variant << " used " << type.used[at] << " size " << type.plain[at] << " block "
        << type.block[at] << " bound " << type.bounds[at] << '\n';
  }
  for (const Field& field : type.fields) {
    out << "  field " << field.name << ' ' << field.type << " offset " << field.offset << " width " << field.width
        << " variant " << field.variant << " state " << field.state;
    if (!field.unit.empty()) out << " unit " << field.unit;
    if (!field.target.empty()) out << " -> " << (field.target_is_table ? "table " : "struct ") << field.target;
    if (field.bookkeeping) out << " bookkeeping";
    out << '\n';
  }
}

void list(const Enum& type, std::ostream& out) {
  out << type.index << " enum " << type.name << ' ' << type.luid << '\n';
  for (std::size_t variant = 0; variant < type.count.size(); ++variant) {
    out << "  variant " << variant << " count " << type.count[variant] << '\n';
  }
  for (const Enumerator& enumerator : type.enumerators) {
    out << "  " << enumerator.value << ' ' << enumerator.name << " since " << enumerator.since << '\n';
  }
}

void list(const Flag& type, std::ostream& out) {
  out << type.index << " flag " << type.name << ' ' << type.luid << '\n';
  for (std::size_t bit = 0; bit < type.bits.size(); ++bit) out << "  " << bit << ' ' << type.bits[bit].name << '\n';
}

void list(const Table& table, std::ostream& out) {
  out << table.index << " table " << table.name << ' ' << table.luid << '\n';
  out << "  payload " << table.payload->name << " size " << table.object_size << " record " << table.record_size
      << " slot " << table.payload_slot << ' ' << table.record_luid << '\n';
  for (const Field* key : table.keys) out << "  key " << key->name << ' ' << key->type << '\n';
}

template <class Type>
void list_all(const std::vector<Type*>& types, std::ostream& out) {
  for (const Type* type : types) list(*type, out);
}

}  // namespace

void list_module(const Module& module, std::ostream& out) {
  out << "module " << module.name << ' ' << module.number << '\n';
  list_all(module.structs, out);
  list_all(module.enums, out);
  list_all(module.flags, out);
  list_all(module.tables, out);
}

}  // namespace zarnc

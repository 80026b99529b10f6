// set and delete: changes of one record.
#include <dlfcn.h>

#include <pugixml.hpp>
#include <string_view>
#include <vector>

#include "tools/commands.h"
#include "tools/references.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

// The forms that a field's operations have, whatever its type.
using FieldGet = void* (*)(kvt_handle*, std::uint32_t txn, void* object, int* err);
using FieldSet = void (*)(kvt_handle*, std::uint32_t txn, void* object, const void* source, int* err);
using StateGet = std::uint8_t (*)(kvt_handle*, std::uint32_t txn, void* object, int* err);

// A field of one type, by name. That an operation is called type_field_operation is the library's contract, and it
// spares a list of all fields here.
class Field {
 public:
  Field(const std::string& type, const std::string& field)
      : name_(field),
        get_(reinterpret_cast<FieldGet>(operation(type, field, "_get"))),
        set_(reinterpret_cast<FieldSet>(operation(type, field, "_set"))),
        state_get_(reinterpret_cast<StateGet>(operation(type, field, "_state_flag_get"))) {
    if (get_ == nullptr || set_ == nullptr || state_get_ == nullptr) {
      throw Failure(type + " has no field \"" + field + "\" that can be set");
    }
  }
  void* get(kvt_handle* handle, std::uint32_t txn, void* object) const {
    int err = 0;
    void* field = get_(handle, txn, object, &err);
    if (field == nullptr) throw Failure(name_ + " cannot be reached" + reason(err));
    return field;
  }
  void set(kvt_handle* handle, std::uint32_t txn, void* object, const void* source) const {
    int err = 0;
    set_(handle, txn, object, source, &err);
    if (err != 0) throw Failure(name_ + " cannot be set" + reason(err));
  }
  unsigned state(kvt_handle* handle, std::uint32_t txn, void* object) const {
    int err = 0;
    const unsigned state = state_get_(handle, txn, object, &err);
    if (err != 0) throw Failure(name_ + " has no state" + reason(err));
    return state;
  }

 private:
  static void* operation(const std::string& type, const std::string& field, const char* what) {
    return dlsym(RTLD_DEFAULT, (type + "_" + field + what).c_str());
  }
  std::string name_;
  FieldGet get_;
  FieldSet set_;
  StateGet state_get_;
};

std::vector<std::string> split_path(std::string_view path) {
  std::vector<std::string> parts(1);
  for (const char c : path) {
    if (c == '/') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  for (const std::string& part : parts) {
    if (!is_xml_name(part)) throw Failure("\"" + std::string(path) + "\" is no path of a field");
  }
  return parts;
}

// The object that holds the path's last field: the payload itself, or one nested in it.
void* holder_of(const std::vector<std::string>& path, const Table& table, kvt_handle* handle, std::uint32_t txn,
                void* payload, std::string& type) {
  void* object = payload;
  type = table.payload;
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    object = Field(type, path[i]).get(handle, txn, object);
    int err = 0;
    // The path has been found in the record's XML, so everything but its end is a struct, which knows its own name.
    const char* name = kvt_get_name(handle, txn, object, &err);
    if (name == nullptr || err != 0) throw Failure(path[i] + " holds no fields");
    type = name;
  }
  return object;
}

// Reads a typed value from text the way the library itself reads one: a payload with that single field, from XML. What
// is no enumerator may be a secret, and no message shows more of it than the library does.
void parse_value(const std::vector<std::string>& path, const SecretText& value, bool enumerated, const Table& table,
                 kvt_handle* handle, std::uint32_t txn, void* payload) {
  if (enumerated && !is_xml_name(value)) throw Failure("\"" + std::string(value) + "\" is no enumerator");
  SecretText xml(std::string("<") + table.payload + ">");
  for (const std::string& part : path) xml.append("<" + part + ">");
  if (enumerated) xml.append("<");
  append_escaped(xml, value);
  if (enumerated) xml.append("/>");
  for (auto part = path.rbegin(); part != path.rend(); ++part) xml.append("</" + *part + ">");
  xml.append(std::string("</") + table.payload + ">");
  const XmlDocument document("value", xml);
  int err = 0;
  char message[512] = "";
  const std::string root = std::string("//") + table.payload;
  table.payload_from_xml(handle, txn, root.c_str(), document.get(), payload, &err, message, sizeof message);
  if (err != 0) throw Failure("that is no value of " + path.back() + xml_fault(message, err).reason);
}

enum class Form { kNone, kValue, kEnumerator, kStruct };

// What the field at `path` is, by how it is written: an enumerated one holds one empty element and nothing else.
Form form_of(const std::string& xml, const std::string& path) {
  pugi::xml_document document;
  document.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8);
  const pugi::xml_node node = document.document_element().first_element_by_path(path.c_str());
  if (!node) return Form::kNone;
  const pugi::xml_node child = node.first_child();
  if (child.type() != pugi::node_element) return Form::kValue;
  return child.next_sibling() || child.first_child() ? Form::kStruct : Form::kEnumerator;
}

bool is_sealed(const std::string& xml, const std::string& path) {
  pugi::xml_document document;
  document.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8);
  const pugi::xml_node node = document.document_element().first_element_by_path(path.c_str());
  return std::string_view(node.attribute("encoding").value()) == "sealed";
}

// Values as they may stand in one line.
std::string shown(const std::string& xml, const std::string& path) {
  constexpr std::size_t kShown = 60;
  if (is_sealed(xml, path)) return "(secret)";
  const std::string text = one_line(xml_value(xml, path.c_str()));
  if (text.empty()) return "(empty)";
  return text.size() <= kShown ? text : "(" + std::to_string(text.size()) + " characters)";
}

// Changes the field in one record and tells how: the field, its value and its state byte, before and after.
std::string change(const Options& options, const SecretText& value, const Store& store, const Table& table,
                   std::uint32_t txn, void* record) {
  const std::vector<std::string> path = split_path(options.path);
  for (const Key& key : table.keys) {
    if (path.size() == 1 && path.front() == key.field) {
      throw Failure(path.front() + " is a key of " + table.name +
                    "; it cannot change while the record is in the table");
    }
  }
  kvt_handle* handle = store.handle();
  void* payload = table.payload_of(handle, txn, record);
  const std::string before = payload_xml(handle, txn, table, payload);
  const Form form = form_of(before, options.path);
  if (form == Form::kNone) throw Failure(std::string(table.payload) + " has no field \"" + options.path + "\"");
  if (form == Form::kStruct) throw Failure(options.path + " is a group of fields; name one of them");

  std::string type;
  void* object = holder_of(path, table, handle, txn, payload, type);
  const Field field(type, path.back());

  // The value comes from an object of the same store: an enumerated field is copied with its header, type link and all.
  const Payload scratch(table, handle, txn);
  parse_value(path, value, form == Form::kEnumerator, table, handle, txn, scratch.get());
  if (form == Form::kEnumerator &&
      xml_value(payload_xml(handle, txn, table, scratch.get()), options.path.c_str()) != std::string_view(value)) {
    throw Failure("\"" + std::string(value) + "\" is no enumerator of " + path.back());
  }
  void* source = field.get(handle, txn, holder_of(path, table, handle, txn, scratch.get(), type));

  const unsigned state_before = field.state(handle, txn, object);
  field.set(handle, txn, object, source);
  const unsigned state_after = field.state(handle, txn, object);
  const std::string after = payload_xml(handle, txn, table, payload);
  return std::string(table.name) + " " + options.path + ": " + shown(before, options.path) + " -> " +
         shown(after, options.path) + ", state " + std::to_string(state_before) + " -> " + std::to_string(state_after) +
         "\n";
}

// The record that the command names, and with a profile its twin among the group's profiles: they are one profile.
struct Target {
  const Table* table;
  void* record;
};
std::vector<Target> targets(const Options& options, const Store& store) {
  const Table& table = options.table.empty() ? profiles() : *table_named(options.table);
  std::vector<Target> found = {{&table, require_record(store, table, options.key)}};
  if (&table == &profiles()) {
    void* payload = table.payload_of(store.handle(), KVT_NO_TXN, found.front().record);
    void* twin = find_same_key(store, group_profiles(), store.handle(), payload);
    if (twin != nullptr) found.push_back({&group_profiles(), twin});
  }
  return found;
}

}  // namespace

void run_set(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  // Before the database is locked: whoever types slowly holds up nobody.
  const SecretText value = options.value ? SecretText(*options.value) : read_value(options.path + ": ");
  Transaction transaction(store);
  std::string text;
  for (const Target& target : targets(options, store)) {
    text += change(options, value, store, *target.table, transaction.txn(), target.record);
    if (is_tie(*target.table, options.path)) tie_records(store, transaction.txn());
  }
  transaction.commit();
  write_output(text);
}

void run_delete(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  Transaction transaction(store);
  std::string text;
  for (const auto& [table, record] : targets(options, store)) {
    kvt_handle* handle = store.handle();
    text += "deleted from " + std::string(table->name) + ": " +
            describe(handle, *table, table->payload_of(handle, KVT_NO_TXN, record)) + "\n";
    int err = 0;
    table->remove(handle, transaction.txn(), store.table(*table), record, &err);
    table->destroy_record(handle, transaction.txn(), record, &err);
    if (err != 0) throw Failure(std::string(table->name) + " does not give the record up" + reason(err));
  }
  transaction.commit();
  write_output(text);
}

}  // namespace wlanctl

// Over the runtime's C calls: sizes found by trying, reasons in words, keys from text.
#include "tools/store.h"

#include <zarn_wlan/zarn_wlan.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "tools/text.h"

namespace wlanctl {
namespace {

constexpr std::uint32_t kOpenCreate = 0;
constexpr std::uint32_t kOpenExisting = 1;
constexpr unsigned kErrorsOnly = 3;
constexpr unsigned kEverything = 8;
constexpr std::size_t kFirstBuffer = 32 * 1024;
constexpr std::size_t kLargestText = 256 * 1024 * 1024;

struct Trace {
  bool to_standard_error = false;
  std::string last_error;
} trace;

void take_trace_line(void* argument, std::uint32_t level, const char* line) {
  auto* into = static_cast<Trace*>(argument);
  if (into->to_standard_error) std::fprintf(stderr, "trace %u: %s\n", level >> 24, one_line(line).c_str());
  if (level == KVT_LEVEL_ERROR) into->last_error = line;
}

// The writers want a buffer and tell with EMSGSIZE that it was too small; how much they need they do not tell.
template <class Writer>
std::string written(const char* what, Writer writer) {
  std::string buffer;
  for (std::size_t size = kFirstBuffer; size <= kLargestText; size *= 2) {
    buffer.resize(size);
    int err = 0;
    const std::uint32_t length = writer(buffer.data(), static_cast<std::int32_t>(size), &err);
    if (err == EMSGSIZE) continue;
    if (err != 0) throw Failure(std::string(what) + " cannot be written out" + reason(err));
    buffer.resize(length);
    return buffer;
  }
  throw Failure(std::string(what) + " is too long to be written out");
}

template <class Number>
bool parse_number(std::string_view text, Number& number) {
  const auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), number);
  return err == std::errc{} && end == text.data() + text.size();
}

// Puts a key that somebody typed into a payload; false when the text cannot be such a key.
bool put_key(kvt_handle* handle, std::uint32_t txn, const Table& table, const Key& key, std::string_view text,
             void* payload) {
  int err = 0;
  void* field = key.field_of(handle, txn, payload, &err);
  if (field == nullptr) return false;
  switch (key.kind) {
    case KeyKind::kByte: {
      std::uint8_t value = 0;
      if (!parse_number(text, value)) return false;
      u_int8_set_value(handle, txn, field, value, &err);
      break;
    }
    case KeyKind::kWord: {
      std::uint32_t value = 0;
      if (!parse_number(text, value)) return false;
      u_int32_set_value(handle, txn, field, value, &err);
      break;
    }
    case KeyKind::kText:
      kvt_vstring_assign(handle, txn, field, text.data(), text.size(), &err);
      break;
    case KeyKind::kEnum: {
      // An enumerator is known by its name in XML only; a wrong one is told by what does not come out again.
      if (!is_xml_name(text)) return false;
      const std::string name(text);
      const std::string xml = std::string("<") + table.payload + "><" + key.field + "><" + name + "/></" + key.field +
                              "></" + table.payload + ">";
      const XmlDocument document("key", xml);
      char message[256] = "";
      const std::string path = std::string("//") + table.payload;
      table.payload_from_xml(handle, txn, path.c_str(), document.get(), payload, &err, message, sizeof message);
      if (err != 0 || key_text(handle, table, key, payload) != name) return false;
      break;
    }
  }
  if (err != 0) throw Failure("the key cannot be prepared" + reason(err));
  return true;
}

}  // namespace

void start_trace(bool to_standard_error, const std::string& file) {
  trace.to_standard_error = to_standard_error;
  fenlog_set_level(to_standard_error || !file.empty() ? kEverything : kErrorsOnly);
  fenlog_set_sink(take_trace_line, &trace);
  if (!file.empty() && fenlog_set_file(file.c_str())) throw Failure("--trace-file: the name is too long");
}

void save_trace(const std::string& file) {
  if (const int error = fenlog_save(file.c_str()))
    throw Failure(file + ": the trace is not saved (" + std::strerror(error) + ")");
}

std::string trace_reason() {
  if (trace.last_error.empty()) return {};
  return " (" + std::exchange(trace.last_error, {}) + ")";
}

std::string reason(int err) {
  const std::string words = trace_reason();
  if (!words.empty()) return words;
  return std::string(" (") + std::strerror(err) + ")";
}

int durability_of(const Options& options) {
  return options.durability == "machine" ? KVT_DURABILITY_MACHINE : KVT_DURABILITY_PROCESS;
}

Store Store::open_database(const Options& options, Open how) {
  // A copy cannot give the database another key.
  if (how == Open::kSnapshot && options.replace_key) open_database(options, Open::kExisting);
  kvt_handle_options opening;
  kvt_handle_options_init(&opening);
  char message[512] = "";
  opening.tracking = KVT_STTR_ON;
  opening.create = how == Open::kCreate ? 1 : 0;
  opening.snapshot = how == Open::kSnapshot ? 1 : 0;
  opening.replace_key = options.replace_key ? 1 : 0;
  opening.domain_name = "wlanctl";
  opening.durability = durability_of(options);
  if (!options.key_file.empty()) opening.key_file = options.key_file.c_str();
  opening.message = message;
  opening.message_size = sizeof message;
  int err = 0;
  kvt_handle* handle = kvt_handle_open_database(options.database.c_str(), &opening, &err);
  if (handle == nullptr) {
    throw Failure(options.database + ": " + (message[0] != '\0' ? message : std::strerror(err)));
  }
  return Store(handle);
}

Store Store::open_private(const std::string& key_file) {
  kvt_handle_options opening;
  kvt_handle_options_init(&opening);
  char message[512] = "";
  if (!key_file.empty()) opening.key_file = key_file.c_str();
  opening.message = message;
  opening.message_size = sizeof message;
  opening.tracking = KVT_STTR_ON;
  opening.domain_name = "wlanctl";
  int err = 0;
  kvt_handle* handle = kvt_handle_open_private(&opening, &err);
  if (handle == nullptr) throw Failure(message[0] != '\0' ? message : "no working memory" + reason(err));
  return Store(handle);
}

void* Store::table(const Table& table) const {
  int err = 0;
  void* found = table.open(handle_, KVT_NO_TXN, table.instance, kOpenExisting, &err);
  if (err != 0) throw Failure(std::string(table.name) + " cannot be opened" + reason(err));
  return found;
}

Transaction::Transaction(const Store& store) : handle_(store.handle()) {
  int err = 0;
  txn_ = kvtdb_txn_begin(handle_, &err);
  if (err != 0) throw Failure("the database cannot be locked for writing" + reason(err));
}

Transaction::~Transaction() {
  int err = 0;
  if (open_) kvtdb_txn_abort(handle_, txn_, &err);
}

void Transaction::commit() {
  int err = 0;
  kvtdb_txn_commit(handle_, txn_, &err);
  if (err != 0) throw Failure("the changes cannot be made to last" + reason(err));
  open_ = false;
}

Record::~Record() {
  int err = 0;
  if (record_ != nullptr) table_->destroy_record(handle_, txn_, record_, &err);
}

int Record::insert_into(void* in) {
  int err = 0;
  table_->insert(handle_, txn_, in, record_, &err);
  if (err == 0) record_ = nullptr;
  return err;
}

Payload::Payload(const Table& table, kvt_handle* handle, std::uint32_t txn)
    : table_(table), handle_(handle), txn_(txn), payload_(table.create_payload(handle, txn)) {
  if (payload_ == nullptr) throw Failure("no memory for " + std::string(table.payload));
}

XmlDocument::XmlDocument(const std::string& origin, std::string_view text) {
  char message[512] = "";
  document_ = kvt_xml_parse(text.data(), text.size(), message, sizeof message);
  if (document_ == nullptr) throw Failure(origin + ": " + message);
}

XmlFault xml_fault(const char* message, int err) {
  // "Failed xpath: PATH", and behind it, after a colon, what is wrong there.
  constexpr std::string_view kPrefix = "Failed xpath: ";
  std::string_view told(message);
  if (told.substr(0, kPrefix.size()) != kPrefix) return {"", reason(err)};
  told.remove_prefix(kPrefix.size());
  const std::string path(told.substr(0, told.find(": ")));
  const std::string words(told.substr(path.size()));
  return {path, words.empty() ? reason(err) : words};
}

void* table_for_writing(const Store& store, const Table& table, std::uint32_t txn) {
  int err = 0;
  void* opened = table.open(store.handle(), txn, table.instance, kOpenCreate, &err);
  if (opened == nullptr) throw Failure(std::string(table.name) + " cannot be made" + reason(err));
  return opened;
}

std::uint32_t count_records(const Store& store, const Table& table) {
  void* in = store.table(table);
  return in == nullptr ? 0 : table.count(store.handle(), KVT_NO_TXN, in);
}

std::vector<std::uint8_t> record_bytes(const Store& store, const Table& table, void* record) {
  std::vector<std::uint8_t> bytes(table.length(store.handle(), KVT_NO_TXN, record));
  int err = 0;
  // The length is a bound; what was written is the form.
  bytes.resize(
      table.marshal(store.handle(), KVT_NO_TXN, bytes.data(), record, static_cast<std::int32_t>(bytes.size()), &err));
  if (err != 0) throw Failure(std::string(table.name) + " cannot be sent" + reason(err));
  return bytes;
}

std::string record_xml(const Store& store, const Table& table, void* record) {
  return written(table.name, [&](char* buffer, std::int32_t room, int* err) {
    return table.to_xml(store.handle(), KVT_NO_TXN, buffer, record, room, err);
  });
}

std::string payload_xml(kvt_handle* handle, std::uint32_t txn, const Table& table, void* payload) {
  return written(table.payload, [&](char* buffer, std::int32_t room, int* err) {
    return table.payload_to_xml(handle, txn, table.payload, buffer, payload, room, 0, err);
  });
}

std::string key_text(kvt_handle* handle, const Table& table, const Key& key, void* payload) {
  int err = 0;
  void* field = key.field_of(handle, KVT_NO_TXN, payload, &err);
  if (field == nullptr) throw Failure(std::string(table.payload) + " holds no " + key.field + reason(err));
  switch (key.kind) {
    case KeyKind::kByte:
      return std::to_string(u_int8_get_value(handle, KVT_NO_TXN, field, &err));
    case KeyKind::kWord:
      return std::to_string(u_int32_get_value(handle, KVT_NO_TXN, field, &err));
    case KeyKind::kText:
      return {kvt_vstring_text(field), kvt_vstring_length(field)};
    case KeyKind::kEnum:
      return xml_value(payload_xml(handle, KVT_NO_TXN, table, payload), key.field);
  }
  return {};
}

std::string describe(kvt_handle* handle, const Table& table, void* payload) {
  std::string text;
  for (const Key& key : table.keys) {
    const std::string value = one_line(key_text(handle, table, key, payload));
    if (!text.empty()) text += ", ";
    text += std::string(key.field) + " " + (key.kind == KeyKind::kText ? "\"" + value + "\"" : value);
  }
  return text;
}

void* find_record(const Store& store, const Table& table, const Key& key, std::string_view text) {
  void* in = store.table(table);
  if (in == nullptr) return nullptr;
  // The key is built beside the database: a reader has no business allocating in it.
  const Store beside = Store::open_private();
  const Payload holder(table, beside.handle(), KVT_NO_TXN);
  if (!put_key(beside.handle(), KVT_NO_TXN, table, key, text, holder.get())) return nullptr;
  int err = 0;
  void* record =
      key.search(store.handle(), KVT_NO_TXN, in, key.argument(beside.handle(), KVT_NO_TXN, holder.get()), &err);
  if (err != 0) throw Failure(std::string(table.name) + " cannot be searched" + reason(err));
  return record;
}

void* require_record(const Store& store, const Table& table, std::string_view text) {
  for (const Key& key : table.keys) {
    if (void* record = find_record(store, table, key, text)) return record;
  }
  throw Failure(std::string(table.name) + " holds no record \"" + std::string(text) + "\"");
}

void* find_same_key(const Store& store, const Table& table, kvt_handle* owner, void* payload) {
  void* in = store.table(table);
  const Key& key = table.keys.front();
  const void* argument = key.argument(owner, KVT_NO_TXN, payload);
  if (in == nullptr || argument == nullptr) return nullptr;
  int err = 0;
  void* record = key.search(store.handle(), KVT_NO_TXN, in, argument, &err);
  if (err != 0) throw Failure(std::string(table.name) + " cannot be searched" + reason(err));
  return record;
}

}  // namespace wlanctl

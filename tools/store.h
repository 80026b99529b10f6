// Owners for what the runtime hands out: handles, transactions, records, documents. They throw Failure with the
// runtime's own reason, and give everything back when a command gives up in the middle.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/failure.h"
#include "tools/options.h"
#include "tools/tables.h"

namespace wlanctl {

/// Directs the library's trace: to standard error with --trace, and always so far that trace_reason() can tell the last
/// error in words. With a file's name everything is kept for it, and a fatal stop leaves it there.
void start_trace(bool to_standard_error, const std::string& file);
/// Leaves the trace in that file.
void save_trace(const std::string& file);
/// The library's last message of level error since the last call, in brackets behind a blank; else empty.
std::string trace_reason();

/// " (reason)" for an error code of the library, after its own words where it left some.
std::string reason(int err);

/// KVT_DURABILITY_* of the word in the command line.
int durability_of(const Options& options);

/// kSnapshot: a copy of the last committed state, taken under the guard of readers, so that no writer is waited for and
/// none changes what is read.
enum class Open { kExisting, kCreate, kSnapshot };

/// A handle over a database, or over a private store. All of them track state, so that `set` can tell a field's state.
class Store {
 public:
  static Store open_database(const Options& options, Open how);
  /// @param key_file the key of its secrets; empty for one of this process
  static Store open_private(const std::string& key_file = {});
  Store(Store&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ~Store() { kvt_handle_close(handle_); }

  kvt_handle* handle() const { return handle_; }
  /// The table as wlanctl keeps it, for reading; null when the database has none.
  void* table(const Table& table) const;

 private:
  explicit Store(kvt_handle* handle) : handle_(handle) {}
  kvt_handle* handle_;
};

/// A write transaction: everything until commit(), or nothing.
class Transaction {
 public:
  explicit Transaction(const Store& store);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  std::uint32_t txn() const { return txn_; }
  void commit();

 private:
  kvt_handle* handle_;
  std::uint32_t txn_;
  bool open_ = true;
};

/// A record that is in no table yet, with its payload.
class Record {
 public:
  Record(const Table& table, kvt_handle* handle, std::uint32_t txn, void* record)
      : table_(&table), handle_(handle), txn_(txn), record_(record) {}
  Record(Record&& other) noexcept
      : table_(other.table_),
        handle_(other.handle_),
        txn_(other.txn_),
        record_(std::exchange(other.record_, nullptr)) {}
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record();

  const Table& table() const { return *table_; }
  void* get() const { return record_; }
  void* payload() const { return table_->payload_of(handle_, txn_, record_); }
  /// Inserts it into the table, which owns it then. @return 0; else the library's error code, and it stays ours
  int insert_into(void* in);

 private:
  const Table* table_;
  kvt_handle* handle_;
  std::uint32_t txn_;
  void* record_;
};

/// A payload object of its own: as a holder of keys, or to read a value into.
class Payload {
 public:
  Payload(const Table& table, kvt_handle* handle, std::uint32_t txn);
  Payload(const Payload&) = delete;
  Payload& operator=(const Payload&) = delete;
  ~Payload() { table_.destroy_payload(handle_, txn_, payload_); }
  void* get() const { return payload_; }

 private:
  const Table& table_;
  kvt_handle* handle_;
  std::uint32_t txn_;
  void* payload_;
};

/// An XML document as the library reads it.
class XmlDocument {
 public:
  /// @param origin the file's name, for messages
  XmlDocument(const std::string& origin, std::string_view text);
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;
  ~XmlDocument() { kvt_xml_free(document_); }
  kvt_xml_document* get() const { return document_; }

 private:
  kvt_xml_document* document_;
};

/// What the library says of a field that it could not read from XML.
struct XmlFault {
  std::string path;    // the field's, empty when it names none
  std::string reason;  // ": words" or " (words)", to stand behind what it is about
};
XmlFault xml_fault(const char* message, int err);

/// The table for writing, made if the store has none.
void* table_for_writing(const Store& store, const Table& table, std::uint32_t txn);

/// Calls function(record) for each record of the table, in the order of its primary key.
template <class Function>
void for_each_record(const Store& store, const Table& table, Function function) {
  void* in = store.table(table);
  if (in == nullptr) return;
  int err = 0;
  for (void* record = table.first(store.handle(), KVT_NO_TXN, in, &err); record != nullptr;
       record = table.next(store.handle(), KVT_NO_TXN, in, record, &err)) {
    function(record);
  }
  if (err != 0) throw Failure(std::string(table.name) + " cannot be read" + reason(err));
}

std::uint32_t count_records(const Store& store, const Table& table);

/// The record in binary form.
std::vector<std::uint8_t> record_bytes(const Store& store, const Table& table, void* record);
/// The record's XML, in one line.
std::string record_xml(const Store& store, const Table& table, void* record);
/// The payload's XML alone, under its struct's name.
std::string payload_xml(kvt_handle* handle, std::uint32_t txn, const Table& table, void* payload);

/// A key's value as text, and all keys of a payload: `wlan_id 3, profile_name "staff"`.
std::string key_text(kvt_handle* handle, const Table& table, const Key& key, void* payload);
std::string describe(kvt_handle* handle, const Table& table, void* payload);

/// The record with that key; null when there is none, also when the text cannot be such a key.
void* find_record(const Store& store, const Table& table, const Key& key, std::string_view text);
/// Looks through the table's keys for `text`, in their order. Throws Failure when no record has it.
void* require_record(const Store& store, const Table& table, std::string_view text);
/// The record whose primary key is the one in `payload`, which may live in another store.
void* find_same_key(const Store& store, const Table& table, kvt_handle* owner, void* payload);

}  // namespace wlanctl

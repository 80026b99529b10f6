// The seven tables as data: what a command needs of the generated functions of a table, so that commands loop over
// tables instead of naming them. tables.cc holds the one list.
#pragma once

#include <kvt/kvt.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace wlanctl {

enum class KeyKind { kByte, kWord, kText, kEnum };

struct Key {
  const char* field;
  KeyKind kind;
  void* (*field_of)(kvt_handle*, std::uint32_t txn, void* payload, int* err);
  void* (*search)(kvt_handle*, std::uint32_t txn, void* table, const void* key, int* err);

  /// What a search by this key wants to be pointed at, in a payload that holds the key.
  const void* argument(kvt_handle* handle, std::uint32_t txn, void* payload) const;
};

/// A field of a payload that refers to a table.
struct Reference {
  const char* field;
  std::string_view target;  // the table's name
  void* (*get)(kvt_handle*, std::uint32_t txn, void* payload, int* err);
  void (*set)(kvt_handle*, std::uint32_t txn, void* payload, void* table, int* err);
};

struct Table {
  const char* name;
  const char* payload;   // name of the payload's struct
  const char* instance;  // name under which wlanctl keeps the table in a database
  const std::uint8_t* luid;
  const kvt_type_record* record_type;
  std::span<const Key> keys;  // the primary key first
  std::span<const Reference> references;
  /// The field that names the profile a record belongs to; null where records have none.
  void* (*parent_name)(kvt_handle*, std::uint32_t txn, void* payload, int* err);

  void* (*open)(kvt_handle*, std::uint32_t txn, const char* name, std::uint32_t open_type, int* err);
  std::uint32_t (*count)(kvt_handle*, std::uint32_t txn, void* table);
  void* (*first)(kvt_handle*, std::uint32_t txn, void* table, int* err);
  void* (*next)(kvt_handle*, std::uint32_t txn, void* table, void* record, int* err);
  void (*destroy_record)(kvt_handle*, std::uint32_t txn, void* record, int* err);
  void (*insert)(kvt_handle*, std::uint32_t txn, void* table, void* record, int* err);
  void (*remove)(kvt_handle*, std::uint32_t txn, void* table, void* record, int* err);
  void* (*payload_of)(kvt_handle*, std::uint32_t txn, void* record);
  std::uint32_t (*length)(kvt_handle*, std::uint32_t txn, void* record);
  std::uint32_t (*marshal)(kvt_handle*, std::uint32_t txn, std::uint8_t* buffer, void* record, std::int32_t length,
                           int* err);
  std::uint32_t (*unmarshal)(kvt_handle*, std::uint32_t txn, void** record, const std::uint8_t* buffer,
                             std::int32_t length, std::uint32_t update, int* err);
  std::uint32_t (*to_xml)(kvt_handle*, std::uint32_t txn, char* buffer, void* record, std::int32_t room, int* err);
  void* (*from_xml)(kvt_handle*, std::uint32_t txn, kvt_xml_document*, int* err, char* message, std::size_t size);
  void* (*create_payload)(kvt_handle*, std::uint32_t txn);
  void (*destroy_payload)(kvt_handle*, std::uint32_t txn, void* payload);
  std::uint32_t (*payload_to_xml)(kvt_handle*, std::uint32_t txn, const char* element, char* buffer, void* payload,
                                  std::int32_t room, std::uint32_t state, int* err);
  void (*payload_from_xml)(kvt_handle*, std::uint32_t txn, const char* path, kvt_xml_document*, void* payload, int* err,
                           char* message, std::size_t size);
  /// Reads a primary key's binary form into a new payload, which holds it.
  std::uint32_t (*read_key)(kvt_handle*, std::uint32_t txn, void** payload, const std::uint8_t* buffer,
                            std::int32_t length, int* err);
  std::int32_t (*compare)(const void* a, const void* b);
};

std::span<const Table> tables();
/// The table of that name, or null.
const Table* table_named(std::string_view name);
/// The table with these 16 bytes of identity, or null.
const Table* table_with_luid(const std::uint8_t* luid);

/// The profiles, and the same profiles once more as the group of access points has them, where they are found by SSID
/// too.
const Table& profiles();
const Table& group_profiles();

}  // namespace wlanctl

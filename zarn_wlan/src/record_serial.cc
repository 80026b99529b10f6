#include "zarn_wlan/src/record_serial.h"

#include <cstring>

#include "platform/wire_inline.h"
#include "zarn_wlan/src/record.h"

namespace kvt {
namespace {

constexpr std::int32_t kHeaderBytes = KVT_MESSAGE_HEADER_BYTES;
constexpr std::int32_t kLuidBytes = 16;

// A record that never reached its caller goes with its payload, and its failure stays the slot's.
void drop_record(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record) {
  const std::int32_t last = h->last_error;
  int own = 0;
  record_destroy(type, h, txn, record, &own);
  h->last_error = last;
}

// The key's field; a record without a payload has none, and the types' operations accept NULL.
const void* primary_key(const TableDesc& type, const void* payload) {
  return payload ? at_offset(payload, type.primary.offset) : nullptr;
}

bool fits(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const void* field, std::int32_t length) {
  return length >= 0 && type.primary.len(h, txn, field) <= static_cast<std::uint32_t>(length);
}

}  // namespace

std::uint32_t record_marshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                             void* record, std::int32_t length, int* err) {
  if (*err) {
    trace(type.trace, kTableMessages, kMsgMarshalError, error_text(*err));
    return 0;
  }
  kvt_clear_last_error(h);
  if (!kvt_domain_lookup_table_ok(h, &h->domain, type.table_record, err)) {
    trace(type.trace, kTableMessages, kMsgMarshalDomain, type.name, type.luid_text,
          static_cast<const char*>(h->domain_name));
    kvt_store_epoch_err(h, kEbade, err);
    return 0;
  }
  std::int32_t cursor = 0;
  bool framed = false;
  if (!*err) {
    if (length < kHeaderBytes) {
      fail(h, kEmsgsize, err);
    } else {
      std::memset(buffer, 0, kHeaderBytes);
      cursor = kHeaderBytes;
      framed = true;
      if (length - cursor < kLuidBytes) {
        fail(h, kEmsgsize, err);
      } else {
        std::memcpy(buffer + cursor, type.luid, kLuidBytes);
        cursor += kLuidBytes;
      }
    }
  }
  const void* payload = payload_of(type, record);
  if (!payload) {
    trace(type.trace, kTableMessages, kMsgMarshalEmpty);
    fail(h, kEnoent, err);
    return static_cast<std::uint32_t>(cursor);
  }
  const std::uint8_t* object_bytes = buffer + cursor;
  cursor += static_cast<std::int32_t>(type.payload.marshal(h, txn, buffer + cursor, payload, length - cursor, err));
  if (framed && !*err) {
    kvt_message_header header;
    header.kind = 0xBC;
    std::memset(header.reserved, 0xFF, sizeof header.reserved);
    header.state_tracking = kvtlib_type_header_get_state_tracking_flag(object_bytes);
    header.word = h->message_word;
    header.length = static_cast<std::uint32_t>(cursor);
    _kvt_message_header_marshal(h, txn, buffer, &header, kHeaderBytes, err);
  }
  return static_cast<std::uint32_t>(cursor);
}

std::int32_t record_marshal_cr(const TableDesc& type, kvt_handle* h, void* record, std::uint8_t* buffer,
                               std::int32_t length) {
  const std::uint32_t written = record_marshal(type, h, h->default_txn, buffer, record, length, &h->last_error);
  return h->last_error ? -1 : static_cast<std::int32_t>(written);
}

std::uint32_t record_unmarshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void** slot,
                               const std::uint8_t* buffer, std::int32_t length, std::uint32_t update, int* err) {
  if (*err) {
    trace(type.trace, kTableMessages, kMsgUnmarshalError, type.name, error_text(*err));
    return 0;
  }
  kvt_clear_last_error(h);
  const int missing = update ? kEnoent : kEnomem;
  void* record = update ? *slot : record_create(type, h, txn, kOrdinarySource, err);
  if (!record) {
    fail(h, missing, err);
    return 0;
  }
  std::int32_t cursor = kLuidBytes;
  if (!*err) {
    kvt_message_header header;
    cursor += static_cast<std::int32_t>(_kvt_message_header_unmarshal(h, txn, buffer, &header, length, err));
    // Told here: an object may end so that nothing else misses its last bytes.
    if (!*err && header.length > static_cast<std::uint32_t>(length)) fail(h, kEmsgsize, err);
  }
  if (!update) {
    const int failed = *err;
    void* payload = type.payload.create_internal(h, txn);
    if (failed) fail(h, failed, err);  // a new object clears the handle's last error, which may be the slot
    store_announced(h, txn, payload_slot(type, record), cage_ref(payload), record);
    report_contained(h, txn, kContainPayload, payload, record);
  }
  void* payload = payload_of(type, record);
  if (!payload) {
    fail(h, missing, err);
    if (!update) drop_record(type, h, txn, record);
    return 0;
  }
  if (!*err) {
    // A payload's jump may lead anywhere.
    cursor = advanced(cursor, type.payload.unmarshal(h, txn, buffer + cursor, payload, length - cursor, update, err));
  }
  *slot = record;
  return static_cast<std::uint32_t>(cursor);
}

std::uint32_t record_len(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record) {
  return type.payload.len(h, txn, payload_of(type, record)) + kRecordFrameBytes;
}

std::uint32_t record_to_xml(const TableDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, void* record,
                            std::int32_t room, int* err) {
  std::uint32_t cursor = start_tag(h, txn, buffer, type.name, room, 0, err);
  auto left = [&] { return room - static_cast<std::int32_t>(cursor); };
  if (!*err) {
    cursor += type.payload.to_xml(h, txn, type.payload.name, buffer + cursor, payload_of(type, record), left(), 0, err);
  }
  cursor += end_tag(h, txn, buffer + cursor, type.name, left(), err);
  return cursor;
}

std::int32_t record_to_xml_cr(const TableDesc& type, kvt_handle* h, void* record, char* buffer, std::int32_t room) {
  if (h->last_error) return -1;
  const std::uint32_t written = record_to_xml(type, h, h->default_txn, buffer, record, room, &h->last_error);
  return h->last_error ? -1 : static_cast<std::int32_t>(written);
}

void* record_from_xml(const TableDesc& type, kvt_handle* h, std::uint32_t txn, kvt_xml_document* document, int* err,
                      char* message, std::size_t size) {
  void* record = record_create(type, h, txn, kOrdinarySource, err);
  if (*err) return nullptr;
  void* payload = record ? type.payload.create_internal(h, txn) : nullptr;
  if (!payload) {
    if (record) drop_record(type, h, txn, record);
    fail(h, kEnomem, err);
    return nullptr;
  }
  store_announced(h, txn, payload_slot(type, record), cage_ref(payload), record);
  type.payload.from_xml(h, txn, type.payload_path, document, payload, err, message, size);
  if (*err == kEnoent) *err = 0;
  if (!*err) return record;
  drop_record(type, h, txn, record);
  return nullptr;
}

std::uint32_t record_print(const TableDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, void* record,
                           std::int32_t room, int* err) {
  std::uint32_t cursor = kvt_print_space(h, txn, buffer, 0, room, err);
  auto left = [&] { return room - static_cast<std::int32_t>(cursor); };
  cursor += kvt_snprintf(h, txn, buffer + cursor, left(), err, "record@%s: {\n", type.name);
  if (!*err) {
    const void* payload = payload_of(type, record);
    if (left() < static_cast<std::int32_t>(type.payload.len(h, txn, payload))) {
      fail(h, kEmsgsize, err);
    } else {
      cursor += type.payload.print(h, txn, buffer + cursor, 2, type.payload.name, payload, left(), err);
    }
  }
  cursor += kvt_print_space(h, txn, buffer + cursor, 0, left(), err);
  cursor += kvt_snprintf(h, txn, buffer + cursor, left(), err, "}\n");
  return cursor;
}

std::int32_t record_print_cr(const TableDesc& type, kvt_handle* h, void* record, char* buffer, std::int32_t room) {
  if (h->last_error) return -1;
  const std::uint32_t written = record_print(type, h, h->default_txn, buffer, record, room, &h->last_error);
  return h->last_error ? -1 : static_cast<std::int32_t>(written);
}

std::uint32_t pkey_len(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, int*) {
  return type.primary.len(h, txn, primary_key(type, payload_of(type, record)));
}

std::uint32_t pkey_marshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, void* record,
                           std::int32_t length, int* err) {
  if (*err) {
    trace(type.trace, kTableMessages, kMsgMarshalError, error_text(*err));
    return 0;
  }
  kvt_clear_last_error(h);
  const void* field = primary_key(type, payload_of(type, record));
  if (!fits(type, h, txn, field, length)) {
    fail(h, kEmsgsize, err);
    return 0;
  }
  return type.primary.marshal(h, txn, buffer, field, length, err);
}

std::uint32_t pkey_unmarshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void** holder,
                             const std::uint8_t* buffer, std::int32_t length, int* err) {
  if (*err) {
    trace(type.trace, kTableMessages, kMsgPkeyUnmarshalError, type.name, error_text(*err));
    return 0;
  }
  kvt_clear_last_error(h);
  if (!holder) {
    fail(h, kEfault, err);
    return 0;
  }
  void* object = type.payload.create(h, txn);
  if (!object) {
    fail(h, kEnomem, err);
    return 0;
  }
  const std::uint32_t read =
      type.primary.unmarshal(h, txn, buffer, at_offset(object, type.primary.offset), length, 0, err);
  *holder = object;
  return read;
}

std::uint32_t pkey_print(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                         char* buffer, std::int32_t length, int* err) {
  if (*err) return 0;
  kvt_clear_last_error(h);
  if (!table || !record) {
    fail(h, kEinval, err);
    return 0;
  }
  const void* field = primary_key(type, payload_of(type, record));
  if (!fits(type, h, txn, field, length)) {
    fail(h, kEmsgsize, err);
    return 0;
  }
  return type.primary.print(h, txn, buffer, 0, type.keys[0].name, field, length, err);
}

}  // namespace kvt

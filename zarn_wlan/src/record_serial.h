// Records as bytes and as XML: the payload object with a small frame around it.
#pragma once

#include "zarn_wlan/src/table_layout.h"

namespace kvt {

constexpr std::uint32_t kRecordFrameBytes = KVT_MESSAGE_HEADER_BYTES + 16;

std::uint32_t record_marshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer,
                             void* record, std::int32_t length, int* err);
std::int32_t record_marshal_cr(const TableDesc& type, kvt_handle* h, void* record, std::uint8_t* buffer,
                               std::int32_t length);
std::uint32_t record_unmarshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void** record,
                               const std::uint8_t* buffer, std::int32_t length, std::uint32_t update, int* err);
std::uint32_t record_len(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record);
std::uint32_t record_to_xml(const TableDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, void* record,
                            std::int32_t room, int* err);
std::int32_t record_to_xml_cr(const TableDesc& type, kvt_handle* h, void* record, char* buffer, std::int32_t room);
void* record_from_xml(const TableDesc& type, kvt_handle* h, std::uint32_t txn, kvt_xml_document* document, int* err,
                      char* message, std::size_t size);
std::uint32_t record_print(const TableDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, void* record,
                           std::int32_t room, int* err);
std::int32_t record_print_cr(const TableDesc& type, kvt_handle* h, void* record, char* buffer, std::int32_t room);

// The primary key on its own, in the forms of its field's type.
std::uint32_t pkey_len(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* record, int* err);
std::uint32_t pkey_marshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, std::uint8_t* buffer, void* record,
                           std::int32_t length, int* err);
std::uint32_t pkey_unmarshal(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void** holder,
                             const std::uint8_t* buffer, std::int32_t length, int* err);
std::uint32_t pkey_print(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, void* record,
                         char* buffer, std::int32_t length, int* err);

}  // namespace kvt

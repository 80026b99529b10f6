// Objects as XML elements, both ways: docs/formats/xml.md.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

std::uint32_t struct_to_xml(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                            const void* object, std::int32_t room, std::uint32_t state, int* err);
// The form without write context: characters, or -1 when the handle's last error is set afterwards.
std::int32_t struct_to_xml_cr(const StructDesc& type, kvt_handle* h, const void* object, char* buffer,
                              std::int32_t room);
void struct_from_xml(const StructDesc& type, kvt_handle* h, std::uint32_t txn, const char* path,
                     kvt_xml_document* document, void* object, int* err, char* message, std::size_t size);

std::uint32_t enum_to_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                          const void* object, std::int32_t room, int* err);
std::int32_t enum_to_xml_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room);
void enum_from_xml(const EnumDesc& type, kvt_handle* h, const char* path, kvt_xml_document* document, void* object,
                   int* err);

std::uint32_t flag_to_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* name, char* buffer,
                          const void* object, std::int32_t room, int* err);
std::int32_t flag_to_xml_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room);
void flag_from_xml(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, const char* path, kvt_xml_document* document,
                   void* object, int* err);

}  // namespace kvt

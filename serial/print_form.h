// Objects as indented text for logs and dumps: docs/formats/print.md.
#pragma once

#include "frame/call_frame.h"

namespace kvt {

std::uint32_t struct_print(const StructDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, std::uint32_t indent,
                           const char* label, const void* object, std::int32_t room, int* err);
// The forms without write context: characters, or -1 when the handle's last error is set afterwards.
std::int32_t struct_print_cr(const StructDesc& type, kvt_handle* h, const void* object, char* buffer,
                             std::int32_t room);

std::uint32_t enum_print(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, std::uint32_t indent,
                         const char* label, const void* object, std::int32_t room, int* err);
std::int32_t enum_print_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room);

std::uint32_t flag_print(const EnumDesc& type, kvt_handle* h, std::uint32_t txn, char* buffer, std::uint32_t indent,
                         const char* label, const void* object, std::int32_t room, int* err);
std::int32_t flag_print_cr(const EnumDesc& type, kvt_handle* h, const void* object, char* buffer, std::int32_t room);

}  // namespace kvt

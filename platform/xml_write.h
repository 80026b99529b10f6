// One element of XML: opening, content, closing, as one write that fits or leaves the buffer alone.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvt/xml.h"

namespace kvt {

enum class XmlForm {
  kText,    // as text where XML can carry all of it, else as kHex
  kHex,     // hexadecimal digits, marked encoding="hex"
  kSealed,  // hexadecimal digits of a sealed secret, marked encoding="sealed"
};

// An element without content carries no mark, whatever its form. Gives the characters written.
std::uint32_t xml_write_element(kvt_handle* handle, char* buffer, const char* name, XmlForm form, const void* bytes,
                                std::size_t length, std::int32_t room, std::uint32_t state, int* err);
std::uint32_t xml_write_number(kvt_handle* handle, char* buffer, const char* name, std::uint64_t value,
                               std::int32_t room, std::uint32_t state, int* err);

}  // namespace kvt

// Text as XML has it: which characters it may hold, how others are written, and hexadecimal digits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvt {

// Length of the UTF-8 character at `at` if XML allows it, else 0. `end` is above `at`.
std::size_t xml_character(const char* at, const char* end);
// Whether the code point may stand in XML.
bool xml_code_point_ok(std::uint32_t code_point);
// Whether all of the text can be written as XML text.
bool xml_text_ok(const char* text, std::size_t length);

inline bool xml_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// What stands for `c` in element text; NULL when it stands for itself. Line ends and tabs are among them, since an
// editor or a formatter may touch them otherwise.
const char* xml_escape(char c);

// Value of a hexadecimal digit, or -1.
inline int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace kvt

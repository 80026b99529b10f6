// Characters of XML text.
#include "platform/xml_text.h"

namespace kvt {

bool xml_code_point_ok(std::uint32_t c) {
  if (c < 0x20) return c == '\t' || c == '\n' || c == '\r';
  return c < 0xD800 || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

std::size_t xml_character(const char* at, const char* end) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(at);
  if (bytes[0] < 0x80) return xml_code_point_ok(bytes[0]) ? 1 : 0;
  constexpr std::uint32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};  // by length: a longer form than needed is no UTF-8
  const std::size_t length = bytes[0] >> 5 == 6 ? 2 : bytes[0] >> 4 == 14 ? 3 : bytes[0] >> 3 == 30 ? 4 : 0;
  if (!length || length > static_cast<std::size_t>(end - at)) return 0;
  std::uint32_t code_point = bytes[0] & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (bytes[i] >> 6 != 2) return 0;
    code_point = code_point << 6 | (bytes[i] & 0x3F);
  }
  return code_point >= kLowest[length] && xml_code_point_ok(code_point) ? length : 0;
}

bool xml_text_ok(const char* text, std::size_t length) {
  for (const char *at = text, *end = text + length; at < end;) {
    const std::size_t used = xml_character(at, end);
    if (!used) return false;
    at += used;
  }
  return true;
}

const char* xml_escape(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\t':
      return "&#9;";
    case '\n':
      return "&#10;";
    case '\r':
      return "&#13;";
    default:
      return nullptr;
  }
}

}  // namespace kvt

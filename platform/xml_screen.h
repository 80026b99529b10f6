// What is refused before the parser sees a document: a document type, unknown entities, characters that XML does not
// allow, and sizes that would make the parser's tree large out of proportion.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvt {

constexpr std::size_t kXmlMaxElements = 8u << 20;
constexpr std::size_t kXmlMaxLines = 16u << 20;
constexpr std::size_t kXmlScreenPadding = 64;

struct XmlFault {
  std::size_t offset;
  const char* reason;
};

// False with the first fault. Nesting and names are left to the parser. kXmlScreenPadding NULs stand behind the text.
// `lines` gets the offsets at which lines begin behind the first, at least up to the fault.
bool xml_screen(const char* text, std::size_t length, std::vector<std::uint32_t>* lines, XmlFault* fault);

}  // namespace kvt

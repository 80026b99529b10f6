// Element content: gathering it, decoding it, and saying what is wrong with it.
#include "platform/xml_values.h"

#include <openssl/crypto.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/report_error.h"
#include "platform/xml_document.h"
#include "platform/xml_text.h"

namespace kvt {
namespace {

enum class Encoding { kText, kHex, kSealed };

// What all readers are handed, and how they end.
struct Reader {
  kvt_handle* handle;
  const char* path;
  const kvt_xml_document* document;
  int* err;
  char* message;
  std::size_t size;

  bool fail(const char* reason) const { return xml_fail(handle, path, document, reason, err, message, size); }

  // Quotes the text, cut to a line's length and with nothing in it that a terminal would obey.
  bool fail_quoting(std::string_view text, const char* reason) const {
    constexpr std::size_t kShown = 40;
    char shown[kShown + 4], line[kShown + 80];
    std::size_t used = 0;
    for (const char c : text.substr(0, kShown)) shown[used++] = c < ' ' || c > '~' ? '?' : c;
    shown[used] = 0;
    std::snprintf(line, sizeof line, "\"%s%s\" %s", shown, text.size() > kShown ? "..." : "", reason);
    return fail(line);
  }

  bool no_memory() const {
    report_error(handle, ENOMEM, err);
    return false;
  }
};

// The text of an element that holds more than one piece, or no value at all.
[[gnu::noinline]] bool gather_pieces(const Reader& reader, const XmlPlace& place, std::string_view own,
                                     XmlBytes* bytes) {
  std::size_t length = own.size();
  for (XmlNode part = place.children; part; part = xml_next_sibling(part)) {
    if (!xml_is_text(part)) return reader.fail("it holds elements, not a value");
    length += std::strlen(xml_value(part));
  }
  char* to = bytes->own(length);
  if (!to) return reader.no_memory();
  to = static_cast<char*>(mempcpy(to, own.data(), own.size()));
  for (XmlNode part = place.children; part; part = xml_next_sibling(part)) {
    const char* text = xml_value(part);
    to = static_cast<char*>(mempcpy(to, text, std::strlen(text)));
  }
  return true;
}

// All text of the element. Most often it is one piece, which is used in place.
bool gather(const Reader& reader, const XmlPlace& place, XmlBytes* bytes) {
  const std::string_view own = xml_value(place.element);
  bytes->view(own.data(), own.size());
  return !place.children || gather_pieces(reader, place, own, bytes);
}

inline std::string_view trim(std::string_view text) {
  while (!text.empty() && xml_blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && xml_blank(text.back())) text.remove_suffix(1);
  return text;
}

bool read_encoding(const Reader& reader, XmlNode element, bool secret, Encoding* encoding) {
  const pugi::xml_attribute attribute = xml_node_at(element).attribute("encoding");
  const std::string_view name = attribute.value();
  if (!attribute) {
    *encoding = Encoding::kText;
  } else if (name == "hex") {
    *encoding = Encoding::kHex;
  } else if (name == "sealed" && secret) {
    *encoding = Encoding::kSealed;
  } else {
    return reader.fail_quoting(name, "is no encoding of this field");
  }
  return true;
}

bool decode_hex(const Reader& reader, std::string_view text, XmlBytes* bytes) {
  if (text.size() % 2) return reader.fail("an odd number of hexadecimal digits");
  char* to = bytes->own(text.size() / 2);
  if (!to) return reader.no_memory();
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = hex_value(text[i]), low = hex_value(text[i + 1]);
    if (high < 0 || low < 0) return reader.fail("not all of it is hexadecimal digits");
    to[i / 2] = static_cast<char>(high << 4 | low);
  }
  return true;
}

// Where the element is; NULL with the error reported. `place` has room for it.
const XmlPlace* find(const Reader& reader, XmlPlace* place) {
  if (*reader.err) return nullptr;
  const XmlPlace* found = reader.document->find(reader.path, place);
  if (!found) report_error(reader.handle, ENOENT, reader.err);
  return found;
}

bool read_encoded(const Reader& reader, bool secret, XmlBytes* bytes, Encoding* encoding) {
  XmlPlace room;
  const XmlPlace* place = find(reader, &room);
  if (!place || !read_encoding(reader, place->element, secret, encoding)) return false;
  if (*encoding == Encoding::kText) return gather(reader, *place, bytes);
  XmlBytes text;
  return gather(reader, *place, &text) && decode_hex(reader, trim({text.data(), text.size()}), bytes);
}

bool parse_number(std::string_view text, std::uint64_t highest, std::uint64_t* value) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  const unsigned base = hex ? 16 : 10;
  *value = 0;
  for (const char c : text) {
    const int digit = hex_value(c);
    if (digit < 0 || digit >= static_cast<int>(base)) return false;
    if (__builtin_mul_overflow(*value, base, value) ||
        __builtin_add_overflow(*value, static_cast<unsigned>(digit), value) || *value > highest)
      return false;
  }
  return !text.empty();
}

}  // namespace

void XmlBytes::wipe() {
  OPENSSL_cleanse(block_, block_size_);
  std::free(block_);
}

char* XmlBytes::own(std::size_t size) {
  block_size_ = size ? size : 1;
  block_ = static_cast<char*>(std::malloc(block_size_));
  if (block_) view(block_, size);
  return block_;
}

bool xml_fail(kvt_handle* handle, const char* path, const kvt_xml_document* document, const char* reason, int* err,
              char* message, std::size_t size) {
  char standing[KVT_XML_PATH_SIZE];
  if (!path) document->spell(standing);
  if (message && size) std::snprintf(message, size, "Failed xpath: %s: %s", path ? path : standing, reason);
  report_error(handle, EINVAL, err);
  return false;
}

bool xml_read_number(kvt_handle* handle, const char* path, kvt_xml_document* document, std::uint64_t highest,
                     std::uint64_t* value, int* err, char* message, std::size_t size) {
  const Reader reader{handle, path, document, err, message, size};
  XmlPlace room;
  XmlBytes bytes;
  const XmlPlace* place = find(reader, &room);
  if (!place || !gather(reader, *place, &bytes)) return false;
  const std::string_view text = trim({bytes.data(), bytes.size()});
  if (parse_number(text, highest, value)) return true;
  char reason[64];
  std::snprintf(reason, sizeof reason, "is no number from 0 to %llu", static_cast<unsigned long long>(highest));
  return reader.fail_quoting(text, reason);
}

bool xml_read_boolean(kvt_handle* handle, const char* path, kvt_xml_document* document, bool* value, int* err,
                      char* message, std::size_t size) {
  const Reader reader{handle, path, document, err, message, size};
  XmlPlace room;
  XmlBytes bytes;
  const XmlPlace* place = find(reader, &room);
  if (!place || !gather(reader, *place, &bytes)) return false;
  const std::string_view text = trim({bytes.data(), bytes.size()});
  *value = text == "true" || text == "1";
  return *value || text == "false" || text == "0" || reader.fail_quoting(text, "is neither true nor false");
}

bool xml_read_bytes(kvt_handle* handle, const char* path, kvt_xml_document* document, XmlBytes* bytes, int* err,
                    char* message, std::size_t size) {
  Encoding encoding;
  return read_encoded({handle, path, document, err, message, size}, false, bytes, &encoding);
}

bool xml_read_secret(kvt_handle* handle, const char* path, kvt_xml_document* document, XmlBytes* bytes, bool* sealed,
                     int* err, char* message, std::size_t size) {
  Encoding encoding;
  if (!read_encoded({handle, path, document, err, message, size}, true, bytes, &encoding)) return false;
  *sealed = encoding == Encoding::kSealed;
  return true;
}

}  // namespace kvt

// Writing elements.
#include "platform/xml_write.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

#include "platform/text_sink.h"
#include "platform/xml_text.h"

namespace kvt {
namespace {

// Printable and standing for themselves: what most text is made of.
constexpr auto kPlain = [] {
  std::array<bool, 256> plain{};
  for (unsigned c = ' '; c <= '~'; ++c) plain[c] = c != '&' && c != '<' && c != '>' && c != '"';
  return plain;
}();
std::size_t plain_length(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && kPlain[static_cast<unsigned char>(text[length])]) ++length;
  return length;
}

class Sink : public TextSink {
 public:
  using TextSink::TextSink;
  void put_escaped(std::string_view text) {
    while (!text.empty()) {
      const std::size_t plain = plain_length(text);
      if (plain) put(text.substr(0, plain));
      if (plain == text.size()) break;
      const char* escape = xml_escape(text[plain]);
      put(escape ? std::string_view(escape) : text.substr(plain, 1));
      text.remove_prefix(plain + 1);
    }
  }
  void put_opening(std::string_view name, std::uint32_t state, std::string_view encoding) {
    put('<');
    put(name);
    if (state) {
      put(" state=\"");
      put_number(state);
      put('"');
    }
    if (!encoding.empty()) {
      put(" encoding=\"");
      put(encoding);
      put('"');
    }
    put('>');
  }
  void put_closing(std::string_view name) {
    put("</");
    put(name);
    put('>');
  }
};

template <class Write>
std::uint32_t write_xml(kvt_handle* handle, char* buffer, std::int32_t room, int* err, Write write) {
  return write_fitting<Sink>(handle, buffer, room, err, write);
}

}  // namespace

std::uint32_t xml_write_element(kvt_handle* handle, char* buffer, const char* name, XmlForm form, const void* bytes,
                                std::size_t length, std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  const std::string_view content(length ? static_cast<const char*>(bytes) : "", length), label = name;
  const bool plain = form == XmlForm::kText && plain_length(content) == length;
  if (form == XmlForm::kText && !plain && !xml_text_ok(content.data(), content.size())) form = XmlForm::kHex;
  const char* encoding = form == XmlForm::kText || content.empty() ? "" : form == XmlForm::kHex ? "hex" : "sealed";
  return write_xml(handle, buffer, room, err, [&](Sink& sink) {
    sink.put_opening(label, state, encoding);
    if (plain) {
      sink.put(content);
    } else if (form == XmlForm::kText) {
      sink.put_escaped(content);
    } else {
      sink.put_hex(content);
    }
    sink.put_closing(label);
  });
}

std::uint32_t xml_write_number(kvt_handle* handle, char* buffer, const char* name, std::uint64_t value,
                               std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  const std::string_view label = name;
  char digits[20];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  const std::string_view number(digits, static_cast<std::size_t>(end - digits));
  return write_xml(handle, buffer, room, err, [&](Sink& sink) {
    sink.put_opening(label, state, "");
    sink.put(number);
    sink.put_closing(label);
  });
}

}  // namespace kvt

extern "C" {

std::uint32_t start_tag(kvt_handle* handle, std::uint32_t, char* buffer, const char* name, std::int32_t room,
                        std::uint32_t state, int* err) {
  if (*err) return 0;
  const std::string_view label = name;
  return kvt::write_xml(handle, buffer, room, err, [&](kvt::Sink& sink) { sink.put_opening(label, state, ""); });
}

std::uint32_t end_tag(kvt_handle* handle, std::uint32_t, char* buffer, const char* name, std::int32_t room, int* err) {
  if (*err) return 0;
  const std::string_view label = name;
  return kvt::write_xml(handle, buffer, room, err, [&](kvt::Sink& sink) { sink.put_closing(label); });
}

std::uint32_t xml_enum_print(kvt_handle* handle, std::uint32_t, char* buffer, const char* text, std::int32_t room,
                             std::uint32_t length, int* err) {
  if (!kvt::wire_room(handle, length, room, err)) return 0;
  std::memcpy(buffer, text, length);
  return length;
}

}  // extern "C"

// Writing elements.
#include "platform/xml_write.h"

#include <string_view>

#include "platform/text_sink.h"
#include "platform/xml_text.h"

namespace kvt {
namespace {

class Sink : public TextSink {
 public:
  using TextSink::TextSink;
  void put_escaped(std::string_view text) {
    for (const char c : text)
      if (const char* escape = xml_escape(c)) {
        put(std::string_view(escape));
      } else {
        put(c);
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
  const std::string_view content(length ? static_cast<const char*>(bytes) : "", length);
  if (form == XmlForm::kText && !xml_text_ok(content.data(), content.size())) form = XmlForm::kHex;
  const char* encoding = form == XmlForm::kText || content.empty() ? "" : form == XmlForm::kHex ? "hex" : "sealed";
  return write_xml(handle, buffer, room, err, [&](Sink& sink) {
    sink.put_opening(name, state, encoding);
    if (form == XmlForm::kText) {
      sink.put_escaped(content);
    } else {
      sink.put_hex(content);
    }
    sink.put_closing(name);
  });
}

std::uint32_t xml_write_number(kvt_handle* handle, char* buffer, const char* name, std::uint64_t value,
                               std::int32_t room, std::uint32_t state, int* err) {
  if (*err) return 0;
  return write_xml(handle, buffer, room, err, [&](Sink& sink) {
    sink.put_opening(name, state, "");
    sink.put_number(value);
    sink.put_closing(name);
  });
}

}  // namespace kvt

extern "C" {

std::uint32_t start_tag(kvt_handle* handle, std::uint32_t, char* buffer, const char* name, std::int32_t room,
                        std::uint32_t state, int* err) {
  if (*err) return 0;
  return kvt::write_xml(handle, buffer, room, err, [&](kvt::Sink& sink) { sink.put_opening(name, state, ""); });
}

std::uint32_t end_tag(kvt_handle* handle, std::uint32_t, char* buffer, const char* name, std::int32_t room, int* err) {
  if (*err) return 0;
  return kvt::write_xml(handle, buffer, room, err, [&](kvt::Sink& sink) { sink.put_closing(name); });
}

std::uint32_t xml_enum_print(kvt_handle* handle, std::uint32_t, char* buffer, const char* text, std::int32_t room,
                             std::uint32_t length, int* err) {
  if (!kvt::wire_room(handle, length, room, err)) return 0;
  std::memcpy(buffer, text, length);
  return length;
}

}  // extern "C"

// The pieces of which printed text is made.
#include "platform/print_line.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "kvt/print.h"
#include "platform/xml_text.h"

namespace kvt {
namespace {

// Control characters that are two bytes in UTF-8.
bool is_wide_control(const char* at) { return at[0] == '\xC2' && static_cast<unsigned char>(at[1]) < 0xA0; }

void put_escaped(TextSink& sink, char c) {
  switch (c) {
    case '"':
    case '\\':
      sink.put('\\');
      return sink.put(c);
    case '\n':
      return sink.put(std::string_view("\\n"));
    case '\r':
      return sink.put(std::string_view("\\r"));
    case '\t':
      return sink.put(std::string_view("\\t"));
    default:
      if (c >= ' ' && c <= '~') return sink.put(c);
      sink.put(std::string_view("\\x"));
      sink.put_hex_byte(static_cast<unsigned char>(c));
  }
}

}  // namespace

void put_quoted(TextSink& sink, std::string_view text) {
  sink.put('"');
  for (const char *at = text.data(), *end = at + text.size(); at != end;) {
    const std::size_t length = xml_character(at, end);
    if (length > 1 && !is_wide_control(at)) {
      sink.put(std::string_view(at, length));
      at += length;
    } else {
      put_escaped(sink, *at++);
    }
  }
  sink.put('"');
}

}  // namespace kvt

std::uint32_t kvt_print_space(kvt_handle* handle, std::uint32_t, char* buffer, std::uint32_t indent, std::int32_t room,
                              int* err) {
  if (*err) return 0;
  const std::uint32_t used = kvt::write_fitting<kvt::TextSink>(handle, buffer, room, err, [&](kvt::TextSink& sink) {
    sink.put_blanks(indent);
    sink.put('\0');
  });
  if (!used && room > 0) *buffer = '\0';
  return used ? used - 1 : 0;
}

std::uint32_t kvt_snprintf(kvt_handle* handle, std::uint32_t, char* buffer, std::int32_t room, int* err,
                           const char* format, ...) {
  if (*err) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(buffer, room > 0 ? static_cast<std::size_t>(room) : 0, format, arguments);
  va_end(arguments);
  if (length >= 0 && length < room) return static_cast<std::uint32_t>(length);
  if (room > 0) *buffer = '\0';
  kvt::report_error(handle, length < 0 ? EINVAL : EMSGSIZE, err);
  return 0;
}

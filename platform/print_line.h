// The line of a primitive value in print: indentation, "label@type:", the value, newline. Like all pieces of the print
// form it is followed by a NUL that the next piece overwrites: docs/formats/print.md.
#pragma once

#include "platform/text_sink.h"

namespace kvt {

template <class Write>
std::uint32_t print_line(kvt_handle* handle, char* buffer, std::uint32_t indent, const char* label, const char* type,
                         std::int32_t room, int* err, Write write_value) {
  if (*err) return 0;
  const std::uint32_t used = write_fitting<TextSink>(handle, buffer, room, err, [&](TextSink& sink) {
    sink.put_blanks(indent);
    sink.put(std::string_view(label));
    sink.put('@');
    sink.put(std::string_view(type));
    sink.put(':');
    write_value(sink);
    sink.put('\n');
    sink.put('\0');
  });
  return used ? used - 1 : 0;
}

// Text in quotes. What could break a line or steer a terminal is escaped.
void put_quoted(TextSink& sink, std::string_view text);

}  // namespace kvt

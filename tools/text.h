// Text in and out: files, streams, what may go to a terminal, JSON, and the few looks into XML that commands take.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/secret_text.h"

namespace wlanctl {

/// Reads a whole file, which may hold secrets. Throws Failure with the file's name when it cannot be read or is larger
/// than `limit`.
SecretText read_file(const std::string& path, std::size_t limit);
/// Replaces the file as a whole: a reader sees the old text or the new one. Only its owner may read it.
void write_file(const std::string& path, std::string_view text);
/// Writes to standard output. Throws OutputClosed when its reader is gone.
void write_output(std::string_view text);

/// The text with control characters and bytes that are no UTF-8 replaced by '?', fit for a terminal. Line ends stay.
std::string printable(std::string_view text);
/// The same with line ends replaced too, for messages and cells.
std::string one_line(std::string_view text);
/// The text as a JSON string, quotes included.
std::string json_string(std::string_view text);
/// Rows as lines with aligned columns, the first row being the heading.
std::string table_lines(const std::vector<std::vector<std::string>>& rows);

/// Reads a value from standard input, all of it but for the line end behind it; at a terminal one line, asked for with
/// `prompt` on standard error and not shown.
SecretText read_value(const std::string& prompt);

bool is_xml_name(std::string_view text);
void append_escaped(SecretText& xml, std::string_view text);
/// A record's XML with an element a line, `indent` steps in.
std::string laid_out(const std::string& xml, unsigned indent);
/// What stands at `path` ("a/b") below the root of a record's or payload's XML: the text, or the name of an enumerator.
std::string xml_value(const std::string& xml, const char* path);

}  // namespace wlanctl

// Plain system calls for files, and what makes bytes of unknown origin fit to be shown.
#include "tools/text.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <pugixml.hpp>

#include "tools/failure.h"

namespace wlanctl {
namespace {

class File {
 public:
  explicit File(int descriptor) : descriptor_(descriptor) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

// Bytes of the UTF-8 character at the beginning of `text`; 0 when there is none. Overlong forms and surrogates are
// none.
std::size_t utf8_length(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const std::uint8_t second = byte(1);
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
  return length;
}

// Columns that a text takes: its characters. Wide characters are rare in profile names and only shift their own line.
std::size_t columns(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<std::uint8_t>(c) & 0xC0) != 0x80; }));
}

int write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

// Blanks that are a field's whole text must survive, and so must its line ends: only the layout between elements is
// ours.
constexpr unsigned kKeepText = pugi::parse_escapes | pugi::parse_ws_pcdata_single | pugi::parse_cdata;

constexpr std::size_t kLargestValue = 1024 * 1024;

// A terminal that shows nothing of what is typed, if standard input is one. The signals that end a program only break
// the reading off, so that the terminal gets its echo back.
class Silence {
 public:
  explicit Silence(const std::string& prompt) : on_(isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &before_) == 0) {
    if (!on_) return;
    struct sigaction broken {};
    broken.sa_handler = [](int) {};
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &broken, &old_[i]);
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    write_all(STDERR_FILENO, prompt);
  }
  ~Silence() {
    if (!on_) return;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    for (std::size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &old_[i], nullptr);
    write_all(STDERR_FILENO, "\n");
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  bool on() const { return on_; }

 private:
  static constexpr std::array<int, 4> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  termios before_{};
  std::array<struct sigaction, kSignals.size()> old_{};
  bool on_;  // behind what it is found out with
};

[[noreturn]] void fail(const std::string& path, int err) { throw Failure(path + ": " + std::strerror(err)); }

}  // namespace

SecretText read_file(const std::string& path, std::size_t limit) {
  const File file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) fail(path, errno);
  SecretText text;
  WipedBuffer<64 * 1024> part;
  for (;;) {
    const ssize_t got = read(file.get(), part.bytes, sizeof part.bytes);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(path, errno);
    if (got == 0) return text;
    text.append({part.bytes, static_cast<std::size_t>(got)});
    if (text.size() > limit) throw Failure(path + ": larger than " + std::to_string(limit >> 20) + " MiB");
  }
}

SecretText read_value(const std::string& prompt) {
  const Silence silence(prompt);
  SecretText text;
  WipedBuffer<4096> part;
  for (;;) {
    const ssize_t got = read(STDIN_FILENO, part.bytes, sizeof part.bytes);
    if (got < 0 && errno == EINTR && !silence.on()) continue;
    if (got < 0) fail("standard input", errno);
    text.append({part.bytes, static_cast<std::size_t>(got)});
    const std::string_view read_so_far = text;
    const bool line_end = !read_so_far.empty() && read_so_far.back() == '\n';
    if (text.size() > kLargestValue) throw Failure("standard input: too long for a value");
    if (got > 0 && !(silence.on() && line_end)) continue;
    if (line_end) text.remove_last();
    return text;
  }
}

void write_file(const std::string& path, std::string_view text) {
  const std::string beside = path + ".new";
  const File file(open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (file.get() < 0) fail(beside, errno);
  int err = write_all(file.get(), text);
  if (err == 0 && fsync(file.get()) != 0) err = errno;
  if (err == 0 && std::rename(beside.c_str(), path.c_str()) != 0) err = errno;
  if (err != 0) {
    unlink(beside.c_str());
    fail(path, err);
  }
}

void write_output(std::string_view text) {
  const int err = write_all(STDOUT_FILENO, text);
  if (err == EPIPE) throw OutputClosed();
  if (err != 0) fail("standard output", err);
}

std::string printable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const auto first = static_cast<std::uint8_t>(text.front());
    // U+0080 to U+009F are control characters too.
    const bool control = (first < 0x20 && first != '\n') || first == 0x7F ||
                         (length == 2 && first == 0xC2 && static_cast<std::uint8_t>(text[1]) < 0xA0);
    if (length == 0 || control) {
      out += '?';
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return out;
}

std::string one_line(std::string_view text) {
  std::string out = printable(text);
  std::replace(out.begin(), out.end(), '\n', '?');
  return out;
}

std::string json_string(std::string_view text) {
  std::string out = "\"";
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const auto first = static_cast<std::uint8_t>(text.front());
    if (length == 0) {
      out += "\\ufffd";
    } else if (first == '"' || first == '\\') {
      out += '\\';
      out += static_cast<char>(first);
    } else if (first < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", first);
      out += escape;
    } else {
      out += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return out + "\"";
}

std::string table_lines(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    if (widths.size() < row.size()) widths.resize(row.size());
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns(row[i]));
  }
  std::string out;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) line += row[i] + std::string(widths[i] - columns(row[i]) + 2, ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
  }
  return out;
}

bool is_xml_name(std::string_view text) {
  const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; };
  if (text.empty() || !letter(text.front())) return false;
  return std::all_of(text.begin(), text.end(), [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
}

void append_escaped(SecretText& xml, std::string_view text) {
  for (const char& c : text) {
    switch (c) {
      case '&':
        xml.append("&amp;");
        break;
      case '<':
        xml.append("&lt;");
        break;
      case '>':
        xml.append("&gt;");
        break;
      case '\r':
        xml.append("&#13;");
        break;  // a bare one would be read back as a line end
      default:
        xml.append({&c, 1});
    }
  }
}

std::string laid_out(const std::string& xml, unsigned indent) {
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size(), kKeepText, pugi::encoding_utf8)) return xml + "\n";
  StringWriter writer;
  document.document_element().print(writer, "  ", pugi::format_indent, pugi::encoding_utf8, indent);
  return std::move(writer.text);
}

std::string xml_value(const std::string& xml, const char* path) {
  pugi::xml_document document;
  document.load_buffer(xml.data(), xml.size(), kKeepText, pugi::encoding_utf8);
  const pugi::xml_node node = document.document_element().first_element_by_path(path);
  for (const pugi::xml_node child : node.children()) {
    if (child.type() == pugi::node_element) return child.name();
  }
  return node.text().get();
}

}  // namespace wlanctl

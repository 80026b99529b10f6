#include "platform/built_file.h"

#include <bzlib.h>
#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <tuple>

namespace kvt {
namespace {

constexpr std::string_view kTablePrefix = ".fenlog.";
constexpr std::string_view kTextsName = ".fenlog_texts";
constexpr std::string_view kRecordsName = ".ostrel";
constexpr std::size_t kMessageSize = 6, kRecordHeadSize = 8, kRecordAlignment = 4;

struct Section {
  std::string name;
  bool loaded;
  std::string bytes;
};

template <class T>
T number_at(std::string_view bytes, std::size_t at) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i)
    value = static_cast<T>(value | T{static_cast<unsigned char>(bytes[at + i])} << 8 * i);
  return value;
}

class File {
 public:
  explicit File(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat about;
    if (fd_ < 0 || fstat(fd_, &about)) {
      why_ = std::strerror(errno);
    } else if (S_ISDIR(about.st_mode)) {
      why_ = std::strerror(EISDIR);
    } else if (!S_ISREG(about.st_mode)) {
      why_ = "is no regular file";
    } else {
      elf_version(EV_CURRENT);
      elf_ = elf_begin(fd_, ELF_C_READ, nullptr);
      if (!elf_ || elf_kind(elf_) != ELF_K_ELF) why_ = "is no ELF file";
    }
  }
  ~File() {
    if (elf_) elf_end(elf_);
    if (fd_ >= 0) close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // The sections whose names `wanted` takes. @return false with the reason
  template <class Wanted>
  bool read(Wanted wanted, std::vector<Section>* sections, std::string* why) {
    *why = why_;
    if (!why->empty()) return false;
    std::size_t names = 0;
    if (elf_getshdrstrndx(elf_, &names)) return damaged(why);
    for (Elf_Scn* scn = nullptr; (scn = elf_nextscn(elf_, scn));) {
      GElf_Shdr head;
      const char* name = gelf_getshdr(scn, &head) ? elf_strptr(elf_, names, head.sh_name) : nullptr;
      if (!name) return damaged(why);
      if (!wanted(std::string_view(name))) continue;
      const Elf_Data* data = head.sh_type == SHT_NOBITS ? nullptr : elf_rawdata(scn, nullptr);
      if (!data || (data->d_size && !data->d_buf)) return damaged(why);
      sections->push_back({name, (head.sh_flags & SHF_ALLOC) != 0,
                           std::string(static_cast<const char*>(data->d_size ? data->d_buf : ""), data->d_size)});
    }
    return true;
  }

 private:
  static bool damaged(std::string* why) {
    *why = "its section table is damaged";
    return false;
  }
  int fd_;
  Elf* elf_ = nullptr;
  std::string why_;
};

bool fault(std::string* why, const std::string& text) {
  *why = text;
  return false;
}

// One table from its section, with empty texts, and their lengths behind those of earlier tables.
bool read_table(const Section& section, BuiltTable* table, std::vector<std::uint16_t>* lengths) {
  const std::string_view name = std::string_view(section.name).substr(kTablePrefix.size());
  const std::size_t dot = name.rfind('.');
  const std::string& bytes = section.bytes;
  if (dot == name.npos || bytes.size() < kTableHeadSize || (bytes.size() - kTableHeadSize) % kMessageSize) return false;
  std::uint16_t number = 0;
  const char* const end = name.data() + name.size();
  const auto [stop, wrong] = std::from_chars(name.data() + dot + 1, end, number);
  if (wrong != std::errc() || stop != end) return false;
  if (number_at<std::uint16_t>(bytes, 0) != kTableVersion) return false;
  if (number_at<std::uint16_t>(bytes, kTableNumberAt) != number) return false;
  table->module = name.substr(0, dot);
  table->number = number;
  std::memcpy(table->id.data(), bytes.data() + kTableIdAt, table->id.size());
  for (std::size_t at = kTableHeadSize; at < bytes.size(); at += kMessageSize) {
    table->messages.push_back({number_at<std::uint32_t>(bytes, at), {}});
    lengths->push_back(number_at<std::uint16_t>(bytes, at + 4));
  }
  return true;
}

// The lengths say how much there must be: neither more nor less comes out.
bool decompress(const std::string& packed, std::size_t size, std::string* text) {
  text->assign(size + 1, '\0');
  unsigned got = static_cast<unsigned>(text->size());
  std::string in = packed;
  const int result = BZ2_bzBuffToBuffDecompress(text->data(), &got, in.data(), static_cast<unsigned>(in.size()), 0, 0);
  if (result != BZ_OK || got != size) return false;
  text->resize(size);
  return true;
}

}  // namespace

bool read_message_tables(const std::string& path, std::vector<BuiltTable>* tables, std::string* why) {
  std::vector<Section> sections;
  if (!File(path).read([](std::string_view name) { return name.starts_with(kTablePrefix) || name == kTextsName; },
                       &sections, why)) {
    return false;
  }
  struct Read {
    BuiltTable table;
    std::vector<std::uint16_t> lengths;
  };
  std::vector<Read> read;
  const Section* packed = nullptr;
  std::size_t size = 0;
  for (const Section& section : sections) {
    if (section.name == kTextsName) {
      packed = &section;
      continue;
    }
    Read& one = read.emplace_back();
    if (!read_table(section, &one.table, &one.lengths)) return fault(why, "section " + section.name + " is damaged");
    for (const std::uint16_t length : one.lengths) size += length;
  }
  if (read.empty()) return fault(why, "holds no message tables");
  if (!packed) return fault(why, "holds no message texts: they have been stripped");
  std::string text;
  if (size > UINT32_MAX - 1 || packed->bytes.size() > UINT32_MAX || !decompress(packed->bytes, size, &text)) {
    return fault(why, "section " + packed->name + " is damaged");
  }
  // The order of the texts; that of the sections is the linker's.
  std::sort(read.begin(), read.end(), [](const Read& a, const Read& b) {
    return std::tie(a.table.module, a.table.number) < std::tie(b.table.module, b.table.number);
  });
  std::size_t at = 0;
  for (Read& one : read) {
    for (std::size_t i = 0; i < one.lengths.size(); at += one.lengths[i++]) {
      one.table.messages[i].text = text.substr(at, one.lengths[i]);
    }
    tables->push_back(std::move(one.table));
  }
  return true;
}

bool read_build_records(const std::string& path, std::vector<BuiltRecord>* records, std::string* why) {
  std::vector<Section> sections;
  if (!File(path).read([](std::string_view name) { return name == kRecordsName; }, &sections, why)) return false;
  std::vector<BuiltRecord> found;
  for (const Section& section : sections) {
    const std::string& bytes = section.bytes;
    for (std::size_t at = 0; at < bytes.size();) {
      if (bytes.size() - at < kRecordHeadSize) return fault(why, "section " + section.name + " is damaged");
      const std::uint32_t length = number_at<std::uint32_t>(bytes, at);
      const std::uint32_t kind = number_at<std::uint32_t>(bytes, at + 4);
      at += kRecordHeadSize;
      if (!length || length > bytes.size() - at || bytes[at + length - 1]) {
        return fault(why, "section " + section.name + " is damaged");
      }
      found.push_back({kind, bytes.substr(at, length - 1)});
      at += (length + kRecordAlignment - 1) / kRecordAlignment * kRecordAlignment;
    }
  }
  if (found.empty()) return fault(why, "holds no manifest");
  *records = std::move(found);
  return true;
}

}  // namespace kvt

// Tests of what the two built libraries tell of themselves in sections, read here without the project's own reader:
// that texts and manifests are there and not loaded, and that they say what the published tables say.
#include <bzlib.h>
#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <cstring>
#include <regex>
#include <set>
#include <tuple>

#include "catalogue.h"

namespace module_test {
namespace {

const char* const kLibraries[] = {ZARN_BINARY_DIR "/libzarn_wlan.so", ZARN_BINARY_DIR "/platform/libkvt.so"};

struct Section {
  std::string name, bytes;
  bool loaded;
  std::uint64_t offset;
};

struct Image {
  std::vector<Section> sections;
  std::vector<std::pair<std::uint64_t, std::string>> segments;  // that are loaded, by their place in the file

  explicit Image(const char* path) {
    const int fd = open(path, O_RDONLY);
    elf_version(EV_CURRENT);
    Elf* elf = elf_begin(fd, ELF_C_READ, nullptr);
    std::size_t names = 0, count = 0;
    EXPECT_EQ(elf_getshdrstrndx(elf, &names), 0) << path;
    for (Elf_Scn* scn = nullptr; (scn = elf_nextscn(elf, scn));) {
      GElf_Shdr head;
      gelf_getshdr(scn, &head);
      if (head.sh_type != SHT_PROGBITS) continue;
      sections.push_back({elf_strptr(elf, names, head.sh_name), std::string(head.sh_size, '\0'),
                          (head.sh_flags & SHF_ALLOC) != 0, head.sh_offset});
      EXPECT_EQ(pread(fd, sections.back().bytes.data(), head.sh_size, static_cast<off_t>(head.sh_offset)),
                static_cast<ssize_t>(head.sh_size));
    }
    elf_getphdrnum(elf, &count);
    for (std::size_t i = 0; i < count; ++i) {
      GElf_Phdr head;
      gelf_getphdr(elf, static_cast<int>(i), &head);
      if (head.p_type != PT_LOAD) continue;
      segments.emplace_back(head.p_offset, std::string(head.p_filesz, '\0'));
      EXPECT_EQ(pread(fd, segments.back().second.data(), head.p_filesz, static_cast<off_t>(head.p_offset)),
                static_cast<ssize_t>(head.p_filesz));
    }
    elf_end(elf);
    close(fd);
  }
  const Section& section(const std::string& name) const {
    for (const Section& one : sections) {
      if (one.name == name) return one;
    }
    ADD_FAILURE() << "no section " << name;
    static const Section kNone{};
    return kNone;
  }
  bool holds(const std::string& bytes) const {
    return std::any_of(segments.begin(), segments.end(),
                       [&](const auto& one) { return one.second.find(bytes) != std::string::npos; });
  }
};

template <class T>
T word(const std::string& bytes, std::size_t at) {
  T value = 0;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

struct Table {
  std::string module;
  int number;
  std::string id;
  std::vector<std::pair<std::uint32_t, std::string>> messages;  // code and text
};

std::vector<Table> tables_of(const Image& image) {
  std::vector<Table> tables;
  std::vector<std::pair<Table*, std::uint16_t>> lengths;
  for (const Section& section : image.sections) {
    std::smatch parts;
    if (!std::regex_match(section.name, parts, std::regex(R"(\.fenlog\.(\w+)\.(\d+))"))) continue;
    EXPECT_TRUE(section.loaded) << section.name;
    EXPECT_EQ(word<std::uint16_t>(section.bytes, 0), 1);
    EXPECT_EQ(word<std::uint16_t>(section.bytes, 2), std::stoi(parts[2]));
    EXPECT_EQ((section.bytes.size() - 20) % 6, 0u);
    tables.push_back({parts[1], std::stoi(parts[2]), section.bytes, {}});
  }
  std::sort(tables.begin(), tables.end(),
            [](const Table& a, const Table& b) { return std::tie(a.module, a.number) < std::tie(b.module, b.number); });
  const Section& packed = image.section(".fenlog_texts");
  EXPECT_FALSE(packed.loaded);
  std::string text(1 << 22, '\0'), in = packed.bytes;
  unsigned size = static_cast<unsigned>(text.size()), at = 0;
  EXPECT_EQ(BZ2_bzBuffToBuffDecompress(text.data(), &size, in.data(), static_cast<unsigned>(in.size()), 0, 0), BZ_OK);
  for (Table& table : tables) {
    for (std::size_t i = 20; i < table.id.size(); i += 6) {
      const std::uint16_t length = word<std::uint16_t>(table.id, i + 4);
      table.messages.emplace_back(word<std::uint32_t>(table.id, i), text.substr(at, length));
      at += length;
    }
    table.id = table.id.substr(4, 16);
  }
  EXPECT_EQ(at, size) << "the lengths account for all of the text";
  return tables;
}

TEST(MessageSections, TheModuleHasItsThreeTables) {
  const std::vector<Table> tables = tables_of(Image(kLibraries[0]));
  ASSERT_EQ(tables.size(), 3u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(tables[i].number, i);
  EXPECT_EQ(tables[0].messages.size(), 7u);
  EXPECT_EQ(tables[0].messages[3].second, "wlan re-inserting the timer which had interval");
  EXPECT_EQ(tables[1].messages[0].second,
            "Opening table tbl_wlan_profile_assoicated_tag in create mode while not holding a write lock");
  EXPECT_EQ(tables[2].messages[4].second, "error in st_local_eap_auth create: %s");
  EXPECT_EQ(tables[2].messages.back().second, "type variant cached info is NULL during usage dump");
}

// A code is a level and a kind of message: one for all types, and another one for each kind.
TEST(MessageSections, CodesTellLevelAndKind) {
  const struct {
    std::string family;
    std::uint32_t level;
    std::string text;
  } defined[] = {
#define KVT_MESSAGE(family, name, level, text) {#family, level, text},
#include "frame/messages.def"
#undef KVT_MESSAGE
  };
  std::set<std::pair<std::string, std::string>> kinds;
  for (const auto& one : defined) kinds.emplace(one.family, one.text);
  std::set<std::uint32_t> codes, creations;
  std::map<std::string, std::set<std::uint32_t>> by_text;
  for (const Table& table : tables_of(Image(kLibraries[0]))) {
    for (const auto& [code, text] : table.messages) {
      codes.insert(code);
      by_text[text].insert(code);
      if (std::regex_match(text, std::regex("error in (st|wpa)_\\w+ create: %s"))) creations.insert(code);
    }
  }
  EXPECT_EQ(codes.size(), kinds.size());
  EXPECT_EQ(creations.size(), 1u);
  for (const auto& one : defined) {
    if (one.text.find("$(") != std::string::npos) continue;
    for (const std::uint32_t code : by_text.at(one.text)) EXPECT_EQ(code >> 24, one.level) << one.text;
  }
}

TEST(MessageSections, TablesAreKnownByTheirIds) {
  std::set<std::string> ids;
  std::size_t tables = 0;
  for (const char* library : kLibraries) {
    for (const Table& table : tables_of(Image(library))) ids.insert(table.id), ++tables;
  }
  EXPECT_EQ(ids.size(), tables);
}

TEST(MessageSections, NoTextIsInTheLoadedImage) {
  for (const char* library : kLibraries) {
    SCOPED_TRACE(library);
    const Image image(library);
    EXPECT_TRUE(image.holds(image.section(".rodata").bytes.substr(0, 64))) << "the search finds what is loaded";
    std::map<std::uint32_t, std::string> one_a_kind;
    for (const Table& table : tables_of(image)) {
      for (const auto& [code, text] : table.messages) one_a_kind[code] = text;
    }
    ASSERT_GT(one_a_kind.size(), 10u);
    for (const auto& [code, text] : one_a_kind) EXPECT_FALSE(image.holds(text)) << text;
  }
}

TEST(BuiltSections, ThoseForToolsAreInNoLoadedSegment) {
  for (const char* library : kLibraries) {
    const Image image(library);
    for (const char* name : {".fenlog_texts", ".ostrel"}) {
      const Section& section = image.section(name);
      EXPECT_FALSE(section.loaded) << library << " " << name;
      EXPECT_FALSE(section.bytes.empty());
      for (const auto& [offset, bytes] : image.segments) {
        EXPECT_TRUE(section.offset >= offset + bytes.size() || section.offset + section.bytes.size() <= offset)
            << library << " " << name;
      }
    }
  }
}

std::vector<std::pair<std::uint32_t, std::string>> records_of(const Image& image) {
  const std::string bytes = image.section(".ostrel").bytes;
  std::vector<std::pair<std::uint32_t, std::string>> records;
  for (std::size_t at = 0; at < bytes.size();) {
    const auto length = word<std::uint32_t>(bytes, at);
    records.emplace_back(word<std::uint32_t>(bytes, at + 4), bytes.substr(at + 8, length - 1));
    EXPECT_EQ(bytes.at(at + 8 + length - 1), '\0');
    at = (at + 8 + length + 3) / 4 * 4;
  }
  return records;
}

std::string digits(int value, int width) {
  const std::string text = std::to_string(value);
  return std::string(static_cast<std::size_t>(width) - text.size(), '0') + text;
}

TEST(Manifest, SaysWhatThePublishedTablesSay) {
  const auto records = records_of(Image(kLibraries[0]));
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].first, 2u);
  EXPECT_EQ(records[1].first, 1u);
  std::map<std::string, std::string> types;  // by name: luid, and what stands behind the second digest
  for (const auto& [name, type] : Catalogue::get().by_name) {
    if (find_symbol("_" + name + "_type_info_internal") && record_of(name)->module == std::string("zarn_wlan"))
      types[name] = "type" + digits(type.top(), 3) + ":" + digits(static_cast<int>(type.used.back() + 3) / 4 * 4, 5);
  }
  for (const auto& [name, enumerators] : Catalogue::get().enums) {
    const auto* record = static_cast<const kvt_type_record*>(find_symbol("_" + name + "_type_info_internal"));
    if (!record || record->module != std::string("zarn_wlan")) continue;
    int top = 0;
    for (const Enumerator& one : enumerators) top = std::max(top, one.since);
    types[name] = "enum" + digits(top, 3) + ":00012";
  }
  for (const char* name :
       {"flg_mpsk_key_info_notify", "flg_internal_wlan_radio_policy_notify", "flg_wireless_aaa_policy_notify"})
    types[name] = "flag000:00008";
  ASSERT_EQ(types.size(), 65u);
  EXPECT_EQ(types["st_802_11ax"], "type002:00048");
  std::vector<std::pair<std::string, std::string>> expected;
  for (const auto& [name, tail] : types) expected.emplace_back(record_of(name)->luid_text, tail);
  for (const auto& row : read_table("tables.tsv")) {
    for (const std::string kind : {"tabl", "trec"}) {
      const std::string symbol = "_" + row[0] + (kind == "tabl" ? "_table" : "_table_record") + "_type_info_internal";
      expected.emplace_back(fn<const kvt_type_record>(symbol)->luid_text, kind + "000:00000");
    }
  }
  std::istringstream lines(records[0].second);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "# zarn_wlan.minime");
  std::set<std::string> digests;
  for (const auto& [luid, tail] : expected) {
    ASSERT_TRUE(std::getline(lines, line)) << luid;
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, std::regex("([0-9a-f]{32}):([0-9a-f]{32})(.*)N"))) << line;
    EXPECT_EQ(parts[1], luid);
    EXPECT_EQ(parts[3], tail) << luid;
    digests.insert(parts[2]);
  }
  EXPECT_FALSE(std::getline(lines, line)) << line;
  EXPECT_EQ(digests.size(), expected.size()) << "no two types have one definition";
}

TEST(BuildStamp, HasItsLabelsInEachModule) {
  for (const char* library : kLibraries) {
    int stamps = 0;
    for (const auto& [kind, text] : records_of(Image(library))) {
      if (kind != 1) continue;
      ++stamps;
      EXPECT_TRUE(std::regex_match(text, std::regex("\\w+\npkg_uid: [0-9a-f]{32}\nbuilt by: .*\non host: .*\npid: .*\n"
                                                    "at: .*\ncomment: .*\n")))
          << text;
    }
    EXPECT_EQ(stamps, library == kLibraries[0] ? 1 : 6) << library;
  }
}

}  // namespace
}  // namespace module_test

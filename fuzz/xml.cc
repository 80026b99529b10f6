// Documents: parsed, read into every type that they speak of, written, and read again. Input: the options, then the
// document.
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>

#include "fuzz/rig.h"
#include "tests/tables/rig.h"

namespace fuzz {
namespace {

constexpr std::size_t kHead = 1;

class Document {
 public:
  Document(const char* text, std::size_t length) {
    const Exact copy(text, length);
    document_ = kvt_xml_parse(copy.text(), copy.size(), message_, sizeof message_);
    FUZZ_CHECK((document_ == nullptr) == (message_[0] != 0), "a refused document and its message");
  }
  ~Document() { kvt_xml_free(document_); }
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  operator kvt_xml_document*() const { return document_; }
  const char* message() const { return message_; }

 private:
  kvt_xml_document* document_;
  char message_[200];
};

// `lines` is how many the document has.
void check_position(std::uint32_t line, std::uint32_t column, std::uint32_t lines, std::size_t size) {
  FUZZ_CHECK(line >= 1 && line <= lines && column >= 1 && column <= size, "a place outside the document");
}

void check_object(Rig& rig, const Options& options, const Subject& subject, kvt_xml_document* document,
                  std::size_t size) {
  char message[300] = "";
  const std::string path = "//" + subject.name;
  void* object = make_object(rig, subject, options);
  const Spending spending;
  int err = 0;
  subject.from_xml(rig.h, rig.txn, path.c_str(), document, object, &err, message, sizeof message);
  FUZZ_CHECK(err == 0 || err == EINVAL || (!subject.type && err == ENOENT), path + ": error " + std::to_string(err));
  FUZZ_CHECK((err == EINVAL) == (message[0] != 0), path + ": an error and its message: " + message);
  // Each string is an element of the document, and a secret is sealed.
  FUZZ_CHECK(spending.bytes() <= 20 * size, path + ": " + std::to_string(spending.bytes()) + " bytes asked for");
  check_whole(rig, subject, object);
  check_round_trip(rig, subject, object);

  const std::string xml = xml_of(rig, subject, object);
  const Document second(xml.data(), xml.size());
  FUZZ_CHECK(second || has_nameless_value(subject, object), path + ": its XML is refused: " + second.message());
  if (second) {
    void* other = subject.create(rig.h, rig.txn);
    err = 0;
    subject.from_xml(rig.h, rig.txn, path.c_str(), second, other, &err, message, sizeof message);
    FUZZ_CHECK(err == 0 || (!subject.type && err == ENOENT), path + ": its XML is not read: " + message);
    // State bytes are written and not read.
    FUZZ_CHECK(rig.tracked() || xml_of(rig, subject, other) == xml, path + ": read and written again it differs");
    const bool all_written = options.limit == kNoLimit && !options.filled;  // but for references, which XML has not
    FUZZ_CHECK(!all_written || subject.compare(object, other) == 0, path + ": read again it differs");
    drop_object(rig, subject, other);
  }
  drop_object(rig, subject, object);
}

void check_records(Rig& rig, kvt_xml_document* document, std::uint32_t lines, std::size_t size) {
  const std::size_t count = kvt_xml_record_count(document);
  FUZZ_CHECK(!kvt_xml_record_select(document, count), "one record too many");
  for (std::size_t i = 0; i < count && i < 4; ++i) {
    const std::string name = kvt_xml_record_select(document, i);
    std::uint32_t line = 0, column = 0;
    kvt_xml_record_position(document, &line, &column);
    check_position(line, column, lines, size);
    for (const table_test::TableOps& table : table_test::kTables) {
      if (name != table.name && name != table.payload) continue;
      char message[300] = "";
      int err = 0;
      void* record = table.from_xml(rig.h, rig.txn, document, &err, message, sizeof message);
      FUZZ_CHECK((record == nullptr) == (err != 0), name + ": a record and its error");
      if (!record) continue;
      if (void* payload = table_test::record_payload(table, record)) {
        const Subject& subject = subject_named(table.payload);
        check_whole(rig, subject, payload);
        release_above_variant(rig, *subject.shape, payload);
      }
      table.destroy(rig.h, rig.txn, record, &err);
    }
  }
  kvt_xml_record_select(document, KVT_XML_ALL);
}

void run(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return;
  const Options options(data[0]);
  Rig& rig = rig_for(options);
  const Balance balance(rig);
  const char* text = reinterpret_cast<const char*>(data + kHead);
  size -= kHead;
  const Document document(text, size);
  if (!document) return;
  const auto lines = static_cast<std::uint32_t>(std::count(text, text + size, '\n') + 1);
  for (const Subject& subject : subjects()) {
    const std::string path = "//" + subject.name;
    std::uint32_t count = 0, line = 0, column = 0;
    FUZZ_CHECK(xml_get_element_nodecount(document, path.c_str(), &count) == 0, path + ": not counted");
    FUZZ_CHECK((kvt_xml_position(document, path.c_str(), &line, &column) == 0) == (count > 0), path + ": no place");
    if (!count) continue;
    check_position(line, column, lines, size);
    char value[16];
    xml_get_element_value(document, path.c_str(), value, sizeof value, 0);
    check_object(rig, options, subject, document, size);
  }
  check_records(rig, document, lines, size);
}

void seeds(const Sow& sow) {
  for (const Subject& subject : subjects()) {
    for (Tracking tracking : {Tracking::kOff, Tracking::kOn}) {
      const Options options(Options::byte(tracking, kNoLimit, true, false, false));
      Rig& rig = rig_for(options);
      void* object = make_object(rig, subject, options);
      const std::string xml = xml_of(rig, subject, object);
      drop_object(rig, subject, object);
      const char head = static_cast<char>(Options::byte(tracking, kNoLimit, tracking == Tracking::kOn, false, false));
      const std::string base = subject.name + "_" + module_test::name_of(tracking);
      sow(base, head + xml);
      for (const table_test::TableOps& table : table_test::kTables) {
        if (subject.name != table.payload) continue;
        const std::string name = table.name;
        sow(base + "_" + name, head + ("<records><" + name + ">" + xml + "</" + name + "></records>"));
      }
    }
  }
  const char* const kDocuments[] = {
      "<?xml version=\"1.0\"?>\n<!-- two --><st_dtim><dot11a_dtim>0x1F</dot11a_dtim><dot11b_dtim> 2 "
      "</dot11b_dtim></st_dtim>",
      "\xEF\xBB\xBF<st_wlan><ssid><![CDATA[<a>&]]>b</ssid><profile_name "
      "encoding=\"hex\">00ff7f</profile_name></st_wlan>",
      "<st_wlan><wlan_id state='3'>4294967295</wlan_id><ssid>&#x41;&#66;&lt;&amp;\xC3\xA9</ssid></st_wlan>",
      "<r><st_wlan><ssid>1</ssid></st_wlan><st_wlan><ssid>2</ssid></st_wlan><tbl_wlan><st_wlan/></tbl_wlan></r>",
      "<!DOCTYPE a [<!ENTITY b \"c\">]><a>&b;</a>",
  };
  int number = 0;
  for (const char* document : kDocuments) sow("document_" + std::to_string(number++), std::string(1, '\0') + document);
}

std::vector<std::string> dictionary() {
  std::set<std::string> words = {"<![CDATA[",
                                 "]]>",
                                 "<!--",
                                 "-->",
                                 "<?",
                                 "?>",
                                 "<!DOCTYPE",
                                 "&amp;",
                                 "&#x",
                                 "&#10;",
                                 "true",
                                 "false",
                                 " encoding=\"hex\"",
                                 " encoding=\"sealed\"",
                                 " state=\"1\"",
                                 "\xEF\xBB\xBF"};
  for (const Subject& subject : subjects()) {
    words.insert("<" + subject.name + ">");
    words.insert("</" + subject.name + ">");
    if (!subject.type) continue;
    for (const module_test::Field& field : subject.type->fields) words.insert("<" + field.name + ">");
  }
  for (const auto& [name, values] : module_test::Catalogue::get().enums) {
    for (const auto& value : values) words.insert("<" + value.name + "/>");
  }
  return {words.begin(), words.end()};
}

}  // namespace

const Target kXml{"xml", run, seeds, dictionary};

}  // namespace fuzz

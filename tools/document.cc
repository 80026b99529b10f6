// The file is parsed twice: by the library, which reads the records, and here, for what it does not tell.
#include "tools/document.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>
#include <set>
#include <vector>

#include "tools/text.h"

namespace wlanctl {
namespace {

constexpr std::size_t kLargestFile = 64 * 1024 * 1024;
constexpr const char* kRoot = "zarn_wlan";

bool is_element(const pugi::xml_node& node) { return node.type() == pugi::node_element; }

bool is_text(const pugi::xml_node& node) { return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata; }

bool is_blank(const char* text) { return text[std::strspn(text, " \t\r\n")] == '\0'; }

bool has_elements(const pugi::xml_node& node) {
  return std::any_of(node.begin(), node.end(), [](const pugi::xml_node& child) { return is_element(child); });
}

std::string tag(const pugi::xml_node& node) { return "<" + std::string(node.name()) + ">"; }

}  // namespace

struct ImportFile::Tree {
  SecretText text;  // the parser works in it
  pugi::xml_document document;
  std::vector<pugi::xml_node> records;
};

ImportFile::ImportFile(const std::string& path)
    : path_(path),
      text_(read_file(path, kLargestFile)),
      document_(std::make_unique<XmlDocument>(path, text_)),
      tree_(std::make_unique<Tree>()) {
  // The library's own document gives no way to list what it holds, so the text is read a second time for the checks.
  tree_->text = text_;
  const pugi::xml_parse_result parsed = tree_->document.load_buffer_inplace(
      tree_->text.data(), tree_->text.size(), pugi::parse_default | pugi::parse_ws_pcdata_single, pugi::encoding_utf8);
  if (!parsed) throw Failure(where(static_cast<std::size_t>(parsed.offset)) + ": " + parsed.description());
  const pugi::xml_node root = tree_->document.document_element();
  if (std::strcmp(root.name(), kRoot) != 0) {
    throw Failure(where(root.offset_debug()) + ": the root element is " + tag(root) + ", not <" + kRoot + ">");
  }
  for (const pugi::xml_node record : root.children()) {
    if (!is_element(record)) throw Failure(path_ + ": text between the records");
    const Table* table = table_named(record.name());
    if (table == nullptr) throw Failure(where(record.offset_debug()) + ": there is no table " + tag(record));
    std::size_t payloads = 0;
    for (const pugi::xml_node child : record.children()) {
      if (!is_element(child)) throw Failure(where(record.offset_debug()) + ": text in " + tag(record));
      if (std::strcmp(child.name(), table->payload) != 0) {
        throw Failure(where(child.offset_debug()) + ": unknown element " + tag(child) + " in " + tag(record));
      }
      ++payloads;
    }
    if (payloads != 1) {
      throw Failure(where(record.offset_debug()) + ": " + tag(record) + " must hold one <" + table->payload + ">");
    }
    tree_->records.push_back(record);
  }
  size_ = tree_->records.size();
  if (size_ == 0) throw Failure(path_ + ": holds no records");
  if (kvt_xml_record_count(document_->get()) != size_) throw Failure(path_ + ": its records cannot be told apart");
}

ImportFile::~ImportFile() = default;

const Table& ImportFile::table(std::size_t index) const { return *table_named(tree_->records[index].name()); }

Record ImportFile::read(std::size_t index, const Table& into, const Store& store, std::uint32_t txn) const {
  kvt_xml_document* document = document_->get();
  kvt_xml_record_select(document, index);
  int err = 0;
  char message[512] = "";
  void* record = into.from_xml(store.handle(), txn, document, &err, message, sizeof message);
  if (record != nullptr) return Record(into, store.handle(), txn, record);

  const XmlFault fault = xml_fault(message, err);
  std::uint32_t line = 0;
  std::uint32_t column = 0;
  if (!fault.path.empty() && kvt_xml_position(document, fault.path.c_str(), &line, &column) == 0) {
    throw Failure(path_ + ": line " + std::to_string(line) + ", column " + std::to_string(column) + ": <" +
                  fault.path.substr(fault.path.rfind('/') + 1) + ">" + fault.reason);
  }
  throw Failure(position(index) + ": " + into.name + " cannot be read" + fault.reason);
}

void ImportFile::check_elements(std::size_t index, const std::string& xml) const {
  pugi::xml_document read_back;
  if (!read_back.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8)) {
    throw Failure(position(index) + ": the record cannot be written back");
  }
  struct Pair {
    pugi::xml_node given, taken;
  };
  // The library has bounded the depth of the document already; the stack only spares the recursion.
  std::vector<Pair> open = {{tree_->records[index], read_back.document_element()}};
  while (!open.empty()) {
    const auto [given, taken] = open.back();
    open.pop_back();
    std::set<std::string> seen;
    for (const pugi::xml_node child : given.children()) {
      if (is_text(child) && has_elements(taken) && !is_blank(child.value())) {
        throw Failure(where(child.offset_debug()) + ": text has no place in " + tag(given));
      }
      if (!is_element(child)) continue;
      if (!seen.insert(child.name()).second) {
        throw Failure(where(child.offset_debug()) + ": " + tag(child) + " stands twice in " + tag(given));
      }
      const pugi::xml_node counterpart = taken.child(child.name());
      if (!counterpart) {
        throw Failure(where(child.offset_debug()) + ": unknown element " + tag(child) + " in " + tag(given));
      }
      open.push_back({child, counterpart});
    }
  }
}

std::string ImportFile::position(std::size_t index) const { return where(tree_->records[index].offset_debug()); }

bool ImportFile::has(const Table& table) const {
  return std::any_of(tree_->records.begin(), tree_->records.end(),
                     [&](const pugi::xml_node& record) { return std::strcmp(record.name(), table.name) == 0; });
}

std::string ImportFile::where(std::size_t offset) const {
  const std::string_view text = text_;
  const auto begin = text.begin();
  const auto at = begin + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
  const auto line_begin = std::find(std::make_reverse_iterator(at), text.rend(), '\n').base();
  // An element's offset is that of its name; people look for the bracket before it.
  const auto bracket = at != line_begin && at[-1] == '<' ? at - 1 : at;
  return path_ + ": line " + std::to_string(1 + std::count(begin, at, '\n')) + ", column " +
         std::to_string(1 + (bracket - line_begin));
}

}  // namespace wlanctl

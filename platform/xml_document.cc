// Parsing, selection of records, resolution of paths and positions.
#include "platform/xml_document.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/xml_screen.h"

namespace {

using kvt::XmlNode;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kPathHead = "//";
// Text of blanks alone is kept where it is all that an element holds: it may be somebody's string. An element's text is
// kept in its own node, which spares most elements a second one.
constexpr unsigned kParseFlags = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                                 pugi::parse_wconv_attribute | pugi::parse_ws_pcdata_single | pugi::parse_embed_pcdata;

// Of all that the parser keeps only elements have a name.
XmlNode next_element(XmlNode node) {
  while (node && !*kvt::xml_name(node)) node = kvt::xml_next_sibling(node);
  return node;
}

// The element behind `node` in document order, inside `scope`.
XmlNode following(XmlNode node, XmlNode scope) {
  if (XmlNode child = next_element(kvt::xml_first_child(node))) return child;
  for (; node != scope; node = kvt::xml_pointer(kvt::xml_node_at(node).parent()))
    if (XmlNode sibling = next_element(kvt::xml_next_sibling(node))) return sibling;
  return nullptr;
}

XmlNode find_child(XmlNode parent, std::string_view name, std::uint32_t* count) {
  XmlNode found = nullptr;
  for (XmlNode node = kvt::xml_first_child(parent); node; node = kvt::xml_next_sibling(node)) {
    if (kvt::xml_name(node) != name || name.empty()) continue;
    if (!found) found = node;
    if (!count) break;
    ++*count;
  }
  return found;
}

// Where a name that begins at `at` ends.
std::size_t name_end(std::string_view path, std::size_t at) { return std::min(path.find('/', at), path.size()); }

// What calls below this one have left on the stack. The parser's library may have its calls resolved on their way, and
// then the vector registers lie there, with pieces of the text in them.
[[gnu::noinline]] void wipe_stack() {
  char room[16 * 1024];
  explicit_bzero(room, sizeof room);
}

}  // namespace

kvt_xml_document::~kvt_xml_document() {
  // An import file holds secrets as they were typed.
  if (text_) explicit_bzero(text_, text_size_);
  std::free(text_);
  wipe_stack();
}

void kvt_xml_document::place(std::size_t offset, std::uint32_t* line, std::uint32_t* column) const {
  const auto next = std::upper_bound(lines_.begin(), lines_.end(), offset);
  *line = static_cast<std::uint32_t>(next - lines_.begin());
  *column = static_cast<std::uint32_t>(offset - *(next - 1) + 1);
}

void kvt_xml_document::position(XmlNode element, std::uint32_t* line, std::uint32_t* column) const {
  place(static_cast<std::size_t>(kvt::xml_node_at(element).offset_debug()) - 1, line,
        column);  // the name's place; the tag begins before it
}

bool kvt_xml_document::parse(const char* text, std::size_t length, char* message, std::size_t size) {
  if (message && size) *message = 0;
  const auto fail = [&](std::size_t offset, const char* reason) {
    std::uint32_t line, column;
    place(offset, &line, &column);
    if (message && size) std::snprintf(message, size, "line %u, column %u: %s", line, column, reason);
    return false;
  };
  lines_.assign(1, 0);
  if (length > KVT_XML_MAX_BYTES) return fail(0, "the document is too large");
  if (std::string_view(text, length).substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text += kByteOrderMark.size();
    length -= kByteOrderMark.size();
  }
  text_ = static_cast<char*>(std::malloc(length + kvt::kXmlScreenPadding));
  if (!text_) return fail(0, "out of memory");
  text_size_ = length;
  if (length) std::memcpy(text_, text, length);
  std::memset(text_ + length, 0, kvt::kXmlScreenPadding);
  kvt::XmlFault fault;
  if (!kvt::xml_screen(text_, length, &lines_, &fault)) return fail(fault.offset, fault.reason);
  const pugi::xml_parse_result result = tree_.load_buffer_inplace(text_, length, kParseFlags, pugi::encoding_utf8);
  wipe_stack();
  if (!result) {
    const auto offset = static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0));
    return fail(std::min(offset, length), result.description());
  }
  root_ = kvt::xml_pointer(tree_.document_element());
  scope_ = root_;
  return true;
}

const std::vector<XmlNode>& kvt_xml_document::records() const {
  if (records_.empty()) {
    XmlNode child = next_element(kvt::xml_first_child(root_));
    for (; child; child = next_element(kvt::xml_next_sibling(child))) records_.push_back(child);
  }
  return records_;
}

const char* kvt_xml_document::select(std::size_t index) {
  if (index != KVT_XML_ALL && index >= records().size()) return nullptr;
  scope_ = index == KVT_XML_ALL ? root_ : records_[index];
  depth_ = 0;
  return kvt::xml_name(scope_);
}

XmlNode kvt_xml_document::find_first(std::string_view name, std::uint32_t* count) const {
  XmlNode found = nullptr;
  for (XmlNode node = scope_; node; node = following(node, scope_)) {
    if (kvt::xml_name(node) != name) continue;
    if (!found) found = node;
    if (!count) break;
    ++*count;
  }
  return found;
}

XmlNode kvt_xml_document::resolve(const char* text, std::uint32_t* count) const {
  const std::string_view path = text;
  if (count) *count = 0;
  if (!path.starts_with(kPathHead)) return nullptr;
  XmlNode found = nullptr;
  for (std::size_t end = kPathHead.size() - 1; end < path.size();) {
    const std::size_t begin = end + 1;
    end = name_end(path, begin);
    const std::string_view name = path.substr(begin, end - begin);
    std::uint32_t* counted = end == path.size() ? count : nullptr;
    found = found ? find_child(found, name, counted) : find_first(name, counted);
    if (!found) break;
  }
  return found;
}

std::uint32_t kvt_xml_document::enter(const char* path) {
  if (!path) return depth_;
  if (depth_ == std::size(places_) || !look_up(path, &places_[depth_])) return 0;
  return ++depth_;
}

bool kvt_xml_document::enter_child(std::uint32_t level, const char* name) {
  if (!level) return false;
  depth_ = level;
  if (level == std::size(places_)) return false;
  kvt::XmlPlace* parent = &places_[level - 1];
  for (XmlNode node = parent->children; node; node = kvt::xml_next_sibling(node)) {
    const char* own_name = kvt::xml_name(node);
    const bool found = !std::strcmp(own_name, name);
    if (!found && *own_name) continue;
    // Nobody asks for text, nor twice for one name.
    if (node == parent->children) parent->children = kvt::xml_next_sibling(node);
    if (!found) continue;
    const std::size_t path_length = parent->path_length + 1 + std::strlen(name);
    // A longer path would be cut, and a cut name may be that of another child.
    if (path_length >= KVT_XML_PATH_SIZE) return false;
    places_[depth_++] = {node, kvt::xml_first_child(node), name, path_length};
    return true;
  }
  return false;
}

const kvt::XmlPlace* kvt_xml_document::look_up(const char* path, kvt::XmlPlace* place) const {
  XmlNode element = resolve(path, nullptr);
  if (!element) return nullptr;
  *place = {element, kvt::xml_first_child(element), path, std::strlen(path)};
  return place;
}

void kvt_xml_document::spell(char (&path)[KVT_XML_PATH_SIZE]) const {
  std::uint32_t level = depth_;
  while (level && *places_[level - 1].name != '/') --level;
  std::size_t used = 0;
  for (level -= level != 0; level < depth_ && used < sizeof path; ++level) {
    const char* name = places_[level].name;
    used += static_cast<std::size_t>(std::snprintf(path + used, sizeof path - used, *name == '/' ? "%s" : "/%s", name));
  }
}

extern "C" {

kvt_xml_document* kvt_xml_parse(const char* text, std::size_t length, char* message, std::size_t size) {
  auto* document = new (std::nothrow) kvt_xml_document;
  if (!document) {
    if (message && size) std::snprintf(message, size, "line 1, column 1: out of memory");
    return nullptr;
  }
  if (document->parse(text, length, message, size)) return document;
  delete document;
  return nullptr;
}

void kvt_xml_free(kvt_xml_document* document) { delete document; }

std::size_t kvt_xml_record_count(const kvt_xml_document* document) { return document->record_count(); }

const char* kvt_xml_record_select(kvt_xml_document* document, std::size_t index) { return document->select(index); }

void kvt_xml_record_position(const kvt_xml_document* document, std::uint32_t* line, std::uint32_t* column) {
  document->position(document->scope(), line, column);
}

int kvt_xml_position(kvt_xml_document* document, const char* path, std::uint32_t* line, std::uint32_t* column) {
  XmlNode element = document->resolve(path, nullptr);
  if (!element) return ENOENT;
  document->position(element, line, column);
  return 0;
}

int kvt_xml_exists(kvt_xml_document* document, const char* path) { return document->resolve(path, nullptr) != nullptr; }

std::uint32_t kvt_xml_enter(kvt_xml_document* document, const char* path) { return document->enter(path); }

int kvt_xml_child(kvt_xml_document* document, std::uint32_t level, const char* name) {
  return document->enter_child(level, name);
}

void kvt_xml_leave(kvt_xml_document* document, std::uint32_t level) { document->leave(level); }

int xml_get_element_nodecount(kvt_xml_document* document, const char* path, std::uint32_t* count) {
  document->resolve(path, count);
  return 0;
}

int xml_get_element_value(kvt_xml_document* document, const char* path, char* value, std::size_t size, int) {
  XmlNode element = document->resolve(path, nullptr);
  if (!element) return ENOENT;
  std::size_t used = 0;
  std::string_view text = kvt::xml_value(element);
  for (XmlNode part = kvt::xml_first_child(element);; part = kvt::xml_next_sibling(part)) {
    if (text.size() >= size - used) return EMSGSIZE;
    std::memcpy(value + used, text.data(), text.size());
    used += text.size();
    if (!part) break;
    text = kvt::xml_is_text(part) ? kvt::xml_value(part) : "";
  }
  value[used] = 0;
  return 0;
}

}  // extern "C"

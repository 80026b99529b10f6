// Parsing, selection of records, resolution of paths and positions.
#include "platform/xml_document.h"

#include <openssl/crypto.h>

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
// Text of blanks alone is kept where it is all that an element holds: it may be somebody's string.
constexpr unsigned kParseFlags = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                                 pugi::parse_wconv_attribute | pugi::parse_ws_pcdata_single;

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

// Tells most names apart without looking at them.
std::uint32_t mark_of(std::string_view name) {
  constexpr std::size_t kWord = sizeof(std::uint32_t);
  std::uint32_t head = 0, tail = 0;
  if (name.size() >= kWord) {
    std::memcpy(&head, name.data(), kWord);
    std::memcpy(&tail, name.data() + name.size() - kWord, kWord);
  } else {
    std::memcpy(&head, name.data(), name.size());
  }
  return (head * 31 + tail) * 31 + static_cast<std::uint32_t>(name.size());
}

// Where a name that begins at `at` ends.
std::size_t name_end(std::string_view path, std::size_t at) { return std::min(path.find('/', at), path.size()); }

// What calls below this one have left on the stack. The parser's library may have its calls resolved on their way, and
// then the vector registers lie there, with pieces of the text in them.
[[gnu::noinline]] void wipe_stack() {
  char room[16 * 1024];
  OPENSSL_cleanse(room, sizeof room);
}

}  // namespace

kvt_xml_document::~kvt_xml_document() {
  // An import file holds secrets as they were typed.
  if (text_) OPENSSL_cleanse(text_, text_size_);
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
  text_ = static_cast<char*>(std::malloc(length + 1));
  if (!text_) return fail(0, "out of memory");
  text_size_ = length;
  if (length) std::memcpy(text_, text, length);
  text_[length] = 0;
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
  XmlNode child = next_element(kvt::xml_first_child(root_));
  for (; child; child = next_element(kvt::xml_next_sibling(child))) records_.push_back(child);
  return true;
}

const char* kvt_xml_document::select(std::size_t index) {
  if (index != KVT_XML_ALL && index >= records_.size()) return nullptr;
  scope_ = index == KVT_XML_ALL ? root_ : records_[index];
  forget_path();
  return kvt::xml_name(scope_);
}

void kvt_xml_document::push(std::size_t path_end, XmlNode node) {
  if (levels_.size() == depth_) levels_.emplace_back();
  Level* level = &levels_[depth_++];
  level->path_end = path_end;
  level->node = node;
  level->next = nullptr;
  level->begun = false;
  level->marks.clear();
  level->children.clear();
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

// Takes the next child element among those met; false: there is none.
bool kvt_xml_document::meet_child(Level* level) {
  XmlNode child = next_element(level->begun ? level->next : kvt::xml_first_child(level->node));
  level->begun = true;
  level->next = nullptr;
  if (!child) return false;
  const std::string_view name = kvt::xml_name(child);
  level->marks.push_back(mark_of(name));
  level->children.push_back({name, child});
  level->next = kvt::xml_next_sibling(child);
  return true;
}

XmlNode kvt_xml_document::find_child(Level* level, std::string_view name, std::uint32_t* count) {
  const std::uint32_t mark = mark_of(name);
  XmlNode found = nullptr;
  for (std::size_t i = 0; i < level->marks.size() || meet_child(level); ++i) {
    if (level->marks[i] != mark || level->children[i].name != name) continue;
    if (!found) found = level->children[i].node;
    if (!count) break;
    ++*count;
  }
  return found;
}

// Whether the element of a level, one of the path resolved last, is on the way of another path too.
bool kvt_xml_document::keeps(const Level& level, std::string_view path) const {
  return level.path_end <= path.size() && (level.path_end == path.size() || path[level.path_end] == '/') &&
         !std::memcmp(path.data(), path_.data(), level.path_end);
}

XmlNode kvt_xml_document::resolve(const char* text, std::uint32_t* count) {
  const std::string_view path = text;
  if (count) *count = 0;
  if (!path.starts_with(kPathHead)) return nullptr;
  while (depth_ && !keeps(levels_[depth_ - 1], path)) --depth_;
  // The count of an element is that of its parent's children; so it is asked for where the element is found.
  if (count && depth_ && levels_[depth_ - 1].path_end == path.size()) --depth_;

  std::size_t end = depth_ ? levels_[depth_ - 1].path_end : kPathHead.size() - 1;
  path_.resize(std::min(path_.size(), end));
  while (end < path.size()) {
    const std::size_t begin = end + 1;
    end = name_end(path, begin);
    const std::string_view name = path.substr(begin, end - begin);
    std::uint32_t* counted = end == path.size() ? count : nullptr;
    XmlNode node = depth_ ? find_child(&levels_[depth_ - 1], name, counted) : find_first(name, counted);
    if (!node) {
      path_.append(path.substr(path_.size(), begin - 1 - path_.size()));
      return nullptr;
    }
    push(end, node);
  }
  path_.append(path.substr(path_.size()));
  return levels_[depth_ - 1].node;
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

int xml_get_element_nodecount(kvt_xml_document* document, const char* path, std::uint32_t* count) {
  document->resolve(path, count);
  return 0;
}

int xml_get_element_value(kvt_xml_document* document, const char* path, char* value, std::size_t size, int) {
  XmlNode element = document->resolve(path, nullptr);
  if (!element) return ENOENT;
  std::size_t used = 0;
  for (XmlNode part = kvt::xml_first_child(element); part; part = kvt::xml_next_sibling(part)) {
    if (!kvt::xml_is_text(part)) continue;
    const std::string_view text = kvt::xml_node_at(part).value();
    const std::size_t length = text.size();
    if (length >= size - used) return EMSGSIZE;
    std::memcpy(value + used, text.data(), length);
    used += length;
  }
  if (used >= size) return EMSGSIZE;
  value[used] = 0;
  return 0;
}

}  // extern "C"

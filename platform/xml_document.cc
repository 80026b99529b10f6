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

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kPathHead = "//";
// Text of blanks alone is kept where it is all that an element holds: it may be somebody's string.
constexpr unsigned kParseFlags = pugi::parse_cdata | pugi::parse_escapes | pugi::parse_eol |
                                 pugi::parse_wconv_attribute | pugi::parse_ws_pcdata_single;

bool is_element(pugi::xml_node node) { return node.type() == pugi::node_element; }

pugi::xml_node next_element(pugi::xml_node node) {
  while (node && !is_element(node)) node = node.next_sibling();
  return node;
}

// The element behind `node` in document order, inside `scope`.
pugi::xml_node following(pugi::xml_node node, pugi::xml_node scope) {
  if (const pugi::xml_node child = next_element(node.first_child())) return child;
  for (; node != scope; node = node.parent())
    if (const pugi::xml_node sibling = next_element(node.next_sibling())) return sibling;
  return {};
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

void kvt_xml_document::position(pugi::xml_node element, std::uint32_t* line, std::uint32_t* column) const {
  place(static_cast<std::size_t>(element.offset_debug()) - 1, line,
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
  kvt::XmlFault fault;
  const bool good = kvt::xml_screen(text, length, &fault);
  // The parser turns line ends around, so the lines are counted before; up to the fault at most, where the limits held.
  for (std::size_t i = 0, end = good ? length : fault.offset; i < end; ++i)
    if (text[i] == '\n') lines_.push_back(static_cast<std::uint32_t>(i + 1));
  if (!good) return fail(fault.offset, fault.reason);

  text_ = static_cast<char*>(std::malloc(length));
  if (!text_) return fail(0, "out of memory");
  text_size_ = length;
  std::memcpy(text_, text, length);
  const pugi::xml_parse_result result = tree_.load_buffer_inplace(text_, length, kParseFlags, pugi::encoding_utf8);
  wipe_stack();
  if (!result) {
    const auto offset = static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0));
    return fail(std::min(offset, length), result.description());
  }
  for (pugi::xml_node child = next_element(tree_.document_element().first_child()); child;
       child = next_element(child.next_sibling()))
    records_.push_back(child);
  scope_ = tree_.document_element();
  return true;
}

const char* kvt_xml_document::select(std::size_t index) {
  if (index != KVT_XML_ALL && index >= records_.size()) return nullptr;
  scope_ = index == KVT_XML_ALL ? tree_.document_element() : records_[index];
  forget_path();
  return scope_.name();
}

kvt_xml_document::Level* kvt_xml_document::push(std::size_t path_end, pugi::xml_node node, std::uint32_t count) {
  if (levels_.size() == depth_) levels_.emplace_back();
  Level* level = &levels_[depth_++];
  level->path_end = path_end;
  level->node = node;
  level->count = count;
  level->indexed = false;
  return level;
}

kvt_xml_document::Level kvt_xml_document::find_first(std::string_view name) const {
  Level found{};
  for (pugi::xml_node node = scope_; node; node = following(node, scope_))
    if (node.name() == name && !found.count++) found.node = node;
  return found;
}

const kvt_xml_document::Child* kvt_xml_document::find_child(Level* level, std::string_view name) {
  std::vector<Child>& children = level->children;
  if (!level->indexed) {
    children.clear();
    std::uint32_t order = 0;
    for (pugi::xml_node child = next_element(level->node.first_child()); child;
         child = next_element(child.next_sibling()))
      children.push_back({child.name(), order++, 1, child});
    std::sort(children.begin(), children.end(), [](const Child& a, const Child& b) {
      const int by_name = std::strcmp(a.name, b.name);
      return by_name ? by_name < 0 : a.order < b.order;
    });
    std::size_t kept = 0;
    for (const Child& child : children)
      if (kept && !std::strcmp(children[kept - 1].name, child.name)) {
        ++children[kept - 1].count;
      } else {
        children[kept++] = child;
      }
    children.resize(kept);
    level->indexed = true;
  }
  const auto at = std::lower_bound(children.begin(), children.end(), name,
                                   [](const Child& child, std::string_view wanted) { return child.name < wanted; });
  return at != children.end() && at->name == name ? &*at : nullptr;
}

pugi::xml_node kvt_xml_document::resolve(const char* text, std::uint32_t* count) {
  const std::string_view path = text;
  if (count) *count = 0;
  if (!path.starts_with(kPathHead)) return {};
  const auto differ = std::mismatch(path.begin(), path.end(), path_.begin(), path_.end()).first;
  const auto common = static_cast<std::size_t>(differ - path.begin());
  const auto holds = [&](const Level& level) {
    return level.path_end <= common && (level.path_end == path.size() || path[level.path_end] == '/');
  };
  while (depth_ && !holds(levels_[depth_ - 1])) --depth_;

  if (!depth_) {
    path_.clear();
    const std::size_t end = name_end(path, kPathHead.size());
    const Level first = find_first(path.substr(kPathHead.size(), end - kPathHead.size()));
    if (!first.count) return {};
    push(end, first.node, first.count);
  }
  bool found = true;
  while (levels_[depth_ - 1].path_end < path.size()) {
    Level* level = &levels_[depth_ - 1];
    const std::size_t begin = level->path_end + 1, end = name_end(path, begin);
    const Child* child = find_child(level, path.substr(begin, end - begin));
    if (!child) {
      found = false;
      break;
    }
    push(end, child->node, child->count);
  }
  path_.assign(path.substr(0, levels_[depth_ - 1].path_end));
  if (!found) return {};
  if (count) *count = levels_[depth_ - 1].count;
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
  const pugi::xml_node element = document->resolve(path, nullptr);
  if (!element) return ENOENT;
  document->position(element, line, column);
  return 0;
}

int xml_get_element_nodecount(kvt_xml_document* document, const char* path, std::uint32_t* count) {
  document->resolve(path, count);
  return 0;
}

int xml_get_element_value(kvt_xml_document* document, const char* path, char* value, std::size_t size, int) {
  const pugi::xml_node element = document->resolve(path, nullptr);
  if (!element) return ENOENT;
  std::size_t used = 0;
  for (pugi::xml_node part = element.first_child(); part; part = part.next_sibling()) {
    if (part.type() != pugi::node_pcdata && part.type() != pugi::node_cdata) continue;
    const std::size_t length = std::strlen(part.value());
    if (length >= size - used) return EMSGSIZE;
    std::memcpy(value + used, part.value(), length);
    used += length;
  }
  if (used >= size) return EMSGSIZE;
  value[used] = 0;
  return 0;
}

}  // extern "C"

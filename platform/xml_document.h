// An XML document and the way from a path to its element. A path is "//a/b/c": the first element `a` in the selected
// scope, its first child `b`, that one's first child `c`. So all fields that are read below one path come from one
// element.
//
// Reading an object visits children in the order in which they most often stand. So no paths are made for it: the
// document stands at an element, knows which of its children have not been visited, and looks at the first of them.
#pragma once

#include <bit>
#include <cstdint>
#include <pugixml.hpp>
#include <string_view>
#include <vector>

#include "kvt/xml.h"

namespace kvt {
// A node of the parser's tree as the pointer that it is. The parser's own tests and constructors of nodes are calls
// into its library, and a walk makes thousands.
using XmlNode = void*;
inline pugi::xml_node xml_node_at(XmlNode node) { return std::bit_cast<pugi::xml_node>(node); }
inline XmlNode xml_pointer(pugi::xml_node node) { return std::bit_cast<XmlNode>(node); }
inline XmlNode xml_first_child(XmlNode node) { return xml_pointer(xml_node_at(node).first_child()); }
inline XmlNode xml_next_sibling(XmlNode node) { return xml_pointer(xml_node_at(node).next_sibling()); }
inline const char* xml_name(XmlNode node) { return xml_node_at(node).name(); }
// An element's first piece of text, unless it stands behind a child; other pieces are children.
inline const char* xml_value(XmlNode node) { return xml_node_at(node).value(); }
inline bool xml_is_text(XmlNode node) {
  const pugi::xml_node_type type = xml_node_at(node).type();
  return type == pugi::node_pcdata || type == pugi::node_cdata;
}

// An element at which a document stands.
struct XmlPlace {
  XmlNode element;
  XmlNode children;  // the first child, or the first that has not been visited while the order was kept
  const char* name;  // or a whole path, which begins with a slash
  std::size_t path_length;
};
}  // namespace kvt

struct kvt_xml_document {
 public:
  kvt_xml_document() = default;
  ~kvt_xml_document();
  kvt_xml_document(const kvt_xml_document&) = delete;
  kvt_xml_document& operator=(const kvt_xml_document&) = delete;

  bool parse(const char* text, std::size_t length, char* message, std::size_t size);
  std::size_t record_count() const { return records().size(); }
  const char* select(std::size_t index);
  kvt::XmlNode scope() const { return scope_; }
  // The first element at the path; NULL when there is none. `count`, if not null, gets the number of elements there.
  kvt::XmlNode resolve(const char* path, std::uint32_t* count) const;
  std::uint32_t enter(const char* path);
  bool enter_child(std::uint32_t level, const char* name);
  void leave(std::uint32_t level) { depth_ = level - 1; }
  // Where a reader that was given this path, or NULL, looks; NULL: there is no such element. `room` may be used for it.
  const kvt::XmlPlace* find(const char* path, kvt::XmlPlace* room) const {
    return path ? look_up(path, room) : depth_ ? &places_[depth_ - 1] : nullptr;
  }
  // The path of the element at which the document stands.
  void spell(char (&path)[KVT_XML_PATH_SIZE]) const;
  void position(kvt::XmlNode element, std::uint32_t* line, std::uint32_t* column) const;

 private:
  const kvt::XmlPlace* look_up(const char* path, kvt::XmlPlace* place) const;
  kvt::XmlNode find_first(std::string_view name, std::uint32_t* count) const;
  const std::vector<kvt::XmlNode>& records() const;
  void place(std::size_t offset, std::uint32_t* line, std::uint32_t* column) const;

  pugi::xml_document tree_;
  char* text_ = nullptr;  // the parser works in it
  std::size_t text_size_ = 0;
  // Offset of each line's begin.
  std::vector<std::uint32_t> lines_;
  // Filled when somebody asks for them.
  mutable std::vector<kvt::XmlNode> records_;
  kvt::XmlNode root_ = nullptr;
  kvt::XmlNode scope_ = nullptr;
  std::uint32_t depth_ = 0;  // 0: the document stands nowhere
  kvt::XmlPlace places_[KVT_XML_MAX_DEPTH + 1];
};

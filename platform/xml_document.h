// An XML document and the way from a path to its element. A path is "//a/b/c": the first element `a` in the selected
// scope, its first child `b`, that one's first child `c`. So all fields that are read below one path come from one
// element.
//
// Reading an object asks for one path after the other that differ in their last names only. The chain of elements of
// the last path is kept, and of each the children that have been met so far, so that a field costs one search among the
// marks of its siblings; the parser's tree is walked once.
#pragma once

#include <bit>
#include <cstdint>
#include <pugixml.hpp>
#include <string>
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
inline bool xml_is_text(XmlNode node) {
  const pugi::xml_node_type type = xml_node_at(node).type();
  return type == pugi::node_pcdata || type == pugi::node_cdata;
}
}  // namespace kvt

struct kvt_xml_document {
 public:
  kvt_xml_document() = default;
  ~kvt_xml_document();
  kvt_xml_document(const kvt_xml_document&) = delete;
  kvt_xml_document& operator=(const kvt_xml_document&) = delete;

  bool parse(const char* text, std::size_t length, char* message, std::size_t size);
  std::size_t record_count() const { return records_.size(); }
  const char* select(std::size_t index);
  kvt::XmlNode scope() const { return scope_; }
  // The first element at the path; NULL when there is none. `count`, if not null, gets the number of elements there.
  kvt::XmlNode resolve(const char* path, std::uint32_t* count);
  void position(kvt::XmlNode element, std::uint32_t* line, std::uint32_t* column) const;

 private:
  struct Child {
    std::string_view name;
    kvt::XmlNode node;
  };
  struct Level {
    std::size_t path_end;  // where this element's name ends in the path
    kvt::XmlNode node;
    kvt::XmlNode next;  // the child behind those that have been met
    bool begun;         // any child has been asked for
    std::vector<std::uint32_t> marks;
    std::vector<Child> children;
  };

  kvt::XmlNode find_first(std::string_view name, std::uint32_t* count) const;
  static bool meet_child(Level* level);
  static kvt::XmlNode find_child(Level* level, std::string_view name, std::uint32_t* count);
  void push(std::size_t path_end, kvt::XmlNode node);
  bool keeps(const Level& level, std::string_view path) const;
  void forget_path() { depth_ = 0; }
  void place(std::size_t offset, std::uint32_t* line, std::uint32_t* column) const;

  pugi::xml_document tree_;
  char* text_ = nullptr;  // the parser works in it
  std::size_t text_size_ = 0;
  std::vector<std::uint32_t> lines_;  // offset of each line's begin
  std::vector<kvt::XmlNode> records_;
  kvt::XmlNode root_ = nullptr;
  kvt::XmlNode scope_ = nullptr;
  std::string path_;           // the part of the last path that was found
  std::vector<Level> levels_;  // its elements; `depth_` of them count, the others keep their memory
  std::size_t depth_ = 0;
};

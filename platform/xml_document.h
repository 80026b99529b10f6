// An XML document and the way from a path to its element. A path is "//a/b/c": the first element `a` in the selected
// scope, its first child `b`, that one's first child `c`. So all fields that are read below one path come from one
// element.
//
// Reading an object asks for one path after the other that differ in their last names only. The chain of elements of
// the last path is kept, with an index of the children of each, so that a field costs one search among its siblings.
#pragma once

#include <cstdint>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "kvt/xml.h"

struct kvt_xml_document {
 public:
  kvt_xml_document() = default;
  ~kvt_xml_document();
  kvt_xml_document(const kvt_xml_document&) = delete;
  kvt_xml_document& operator=(const kvt_xml_document&) = delete;

  bool parse(const char* text, std::size_t length, char* message, std::size_t size);
  std::size_t record_count() const { return records_.size(); }
  const char* select(std::size_t index);
  pugi::xml_node scope() const { return scope_; }
  // The first element at the path; empty when there is none. `count`, if not null, gets the number of elements there.
  pugi::xml_node resolve(const char* path, std::uint32_t* count);
  void position(pugi::xml_node element, std::uint32_t* line, std::uint32_t* column) const;

 private:
  struct Child {
    const char* name;
    std::uint32_t order;
    std::uint32_t count;  // of elements of that name, this one is the first
    pugi::xml_node node;
  };
  struct Level {
    std::size_t path_end;  // where this element's name ends in the path
    pugi::xml_node node;
    std::uint32_t count;
    bool indexed;
    std::vector<Child> children;
  };

  Level find_first(std::string_view name) const;
  const Child* find_child(Level* level, std::string_view name);
  Level* push(std::size_t path_end, pugi::xml_node node, std::uint32_t count);
  void forget_path() { depth_ = 0; }
  void place(std::size_t offset, std::uint32_t* line, std::uint32_t* column) const;

  pugi::xml_document tree_;
  char* text_ = nullptr;  // the parser works in it
  std::size_t text_size_ = 0;
  std::vector<std::uint32_t> lines_;  // offset of each line's begin
  std::vector<pugi::xml_node> records_;
  pugi::xml_node scope_;
  std::string path_;           // the part of the last path that was found
  std::vector<Level> levels_;  // its elements; `depth_` of them count, the others keep their memory
  std::size_t depth_ = 0;
};

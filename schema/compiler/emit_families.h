// Families of exported functions as data: name, result, arguments, documentation, body.
#pragma once

#include "schema/compiler/emit.h"

namespace zarnc {

struct Operation {
  const char* name;
  const char* result;
  const char* arguments;
  const char* doc;
  const char* body;
};

struct Family {
  const Operation* first;
  const Operation* last;
  const Operation* begin() const { return first; }
  const Operation* end() const { return last; }
};

extern const Family kStructLifecycleFamily, kStructSerialFamily, kScalarFamily, kEnumFamily, kFlagFamily;
extern const Family kTableFamily, kKeyFamily, kPrimaryKeyFamily, kEventFamily;

// The declarations, documented, and the definitions of a family's members for one type.
std::string declare(const Family& family, const std::string& prefix, const Holes& holes);
std::string define(const Family& family, const std::string& prefix, const Holes& holes);
std::string declare_table(const Module& module, const Table& table);
// The application's handler of one of a table's events.
std::string event_handler_symbol(const Module& module, const Table& table, const Operation& event);
Holes type_holes(const std::string& name, int top);

}  // namespace zarnc

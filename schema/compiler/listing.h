// A layout as text, for people and for golden tests.
#pragma once

#include <ostream>

#include "schema/compiler/model.h"

namespace zarnc {

// Writes the types of a module in the order of its type table.
void list_module(const Module& module, std::ostream& out);

}  // namespace zarnc

// Field accessors of a type.
#pragma once

#include "schema/compiler/emit.h"

namespace zarnc {

std::string declare_accessors(const Struct& type);
std::string define_accessors(const Struct& type);

}  // namespace zarnc

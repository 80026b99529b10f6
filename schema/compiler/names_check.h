// Names and identities of a schema: each a legal C identifier, each used once.
#pragma once

#include <vector>

#include "schema/compiler/model.h"

namespace zarnc {

// Refuses names that cannot stand in C and C++, names and identities that stand twice, and malformed identities. Needs
// nothing resolved.
void check_names(const Schema& schema, std::vector<Diagnostic>& errors);

}  // namespace zarnc

// Holds a computed layout against published tables.
#pragma once

#include <string>
#include <vector>

#include "schema/compiler/model.h"

namespace zarnc {

// Reads order.tsv, structs.tsv, fields.tsv, enums.tsv, tables.tsv and keys.tsv in `directory`; each row that the schema
// does not give is an error at that row. What the schema has beyond the tables is none: it may grow ahead of them.
void check_published(const Schema& schema, const std::string& directory, std::vector<Diagnostic>& errors);

}  // namespace zarnc

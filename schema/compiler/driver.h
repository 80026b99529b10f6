// The schema compiler as one call: what main does with its arguments.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace zarnc {

// @param arguments without the program's name
// @param out       what --list prints
// @param messages  one line for each error
// @return exit status: 0 done, 1 the schema or a file is at fault, 2 the arguments are
int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& messages);

}  // namespace zarnc

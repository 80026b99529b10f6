// Key files for the targets that need one.
#pragma once

#include <string>

namespace fuzz {

// Writes a file of mode 0600, over what was there.
void write_private_file(const std::string& path, const std::string& bytes);
// A key that is the same in every process: seeds that are sealed with it can be opened tomorrow.
const std::string& fixed_key_file();

}  // namespace fuzz

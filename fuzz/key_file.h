// Key files for the targets that need one.
#pragma once

#include <string>

#include "kvt/handle.h"

namespace fuzz {

// Writes a file of mode 0600, over what was there.
void write_private_file(const std::string& path, const std::string& bytes);
// A private store whose secrets are sealed under the key of that file.
kvt_handle* handle_with_key(const std::string& path, char* message, std::size_t size, int* err);
// A key that is the same in every process: seeds that are sealed with it can be opened tomorrow.
const std::string& fixed_key_file();

}  // namespace fuzz

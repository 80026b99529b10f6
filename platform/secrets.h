// Secrets: sealed text in string fields, and the key file that opens it.
#pragma once

#include <cstddef>

#include "kvt/primitives.h"

extern "C" {

/// Reads the key file, or makes one with a random key if there is none and `create` is not 0, and seals with that key
/// from now on. The file holds 64 hexadecimal digits and a line end.
/// @param message may be NULL; receives one line when the result is not 0
/// @return 0; ENOENT no file; EACCES not a regular file of the effective user with mode 0600, or a link; EINVAL other
///   content; and what open(2) and write(2) give
KVT_EXPORT int kvt_keyring_open(const char* key_file, int create, char* message, std::size_t size);
}

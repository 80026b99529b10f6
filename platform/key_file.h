// Key files: where the key of a database, or of a private store that shall have one, lies between processes.
#pragma once

#include <cstddef>

#include "platform/keyring.h"

namespace kvt {

struct KeyFileRequest {
  const char* path;
  bool create;  // make it with a random key if it is not there
  char* message;
  std::size_t message_size;
};

// Reads the file: 64 hexadecimal digits and a line end.
// @param err out: 0; ENOENT no file; EACCES not a regular file of the user's with mode 0600, or a link; EINVAL other
//   content; ENOMEM; and what the system gives. The request's message, which may be NULL, gets the reason in words
// @return NULL on error
KeyHold key_file_open(const KeyFileRequest& request, int* err);
// Says in the request's message what is wrong with the file. @return `code`
int key_file_fail(const KeyFileRequest& request, int code, const char* reason);

}  // namespace kvt

// The calls of the runtime that tables make, heard by a test, and one of them made to fail. The program's own
// definitions (in handle_test.cc) come before the library's, and pass everything else on.
#pragma once

#include <string>
#include <vector>

namespace table_test {

struct Fault {
  const char* call = nullptr;
  int error = 0;  // stored by the call, which then gives 0; 0: it gives 0 and stores nothing
};
inline Fault fault;

struct Heard {
  std::string what;
  const void* at = nullptr;
  const void* other = nullptr;
  std::uint32_t txn = 0;
};
inline std::vector<Heard>* hearing = nullptr;

// One failing call, for a scope.
class FaultHere {
 public:
  FaultHere(const char* call, int error) { fault = {call, error}; }
  ~FaultHere() { fault = {}; }
};

}  // namespace table_test

// The chain of bundle handlers: a module keeps the handler that it is given and hands it on to the modules that it
// stands on. Nothing here calls a handler; what it is, is the caller's business.
#pragma once

#include <utility>

namespace kvt {

// A module further down; the list of them ends with nulls.
struct BundleSibling {
  void* (*register_handler)(void* handler);
  void* (*unregister_handler)();
};

// `kept` is the module's exported word. Both return what stood there.
inline void* register_bundle_handler(void*& kept, const BundleSibling* needs, void* handler) {
  void* const before = std::exchange(kept, handler);
  for (; needs->register_handler; ++needs) needs->register_handler(handler);
  return before;
}

inline void* unregister_bundle_handler(void*& kept, const BundleSibling* needs) {
  void* const before = std::exchange(kept, nullptr);
  for (; needs->unregister_handler; ++needs) needs->unregister_handler();
  return before;
}

}  // namespace kvt

// Handlers that an application may define under names that the schema gives. A module refers to them weakly, and they
// are looked for when they are called: one may come with a library that is loaded later.
#pragma once

namespace kvt {

// What the process has under that name by now; null for nothing.
void* late_handler(const char* name);

// `linked` is the address of the weak reference: null where nothing had the name when the module was loaded.
template <class Handler>
Handler* application_handler(Handler* linked, const char* name) {
  return linked ? linked : reinterpret_cast<Handler*>(late_handler(name));
}

}  // namespace kvt

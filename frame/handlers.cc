#include "frame/handlers.h"

#include <dlfcn.h>

namespace kvt {

void* late_handler(const char* name) { return dlsym(RTLD_DEFAULT, name); }

}  // namespace kvt

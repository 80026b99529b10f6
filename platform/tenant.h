// The tenant of the calling thread, as code asks for it that has no time for a call: see mt_get_tenant_id.
#pragma once

#include <cstdint>

#include "kvt/handle.h"

namespace kvt {

// Its place in the thread is known when the library is loaded.
KVT_EXPORT extern constinit thread_local std::uint16_t thread_tenant [[gnu::tls_model("initial-exec")]];

}  // namespace kvt

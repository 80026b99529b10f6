// From a type record to what the process knows of the type.
#pragma once

#include "kvt/type_record.h"

namespace kvt {

// The static type that a record belongs to, be it the static record or a database's copy; null when no module that is
// loaded has it.
const kvt_static_type* static_type_of(const kvt_type_record* record);

}  // namespace kvt

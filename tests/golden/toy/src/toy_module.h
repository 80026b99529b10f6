// The module's own records. Made by zarnc from the schema of toy; not to be edited.
#pragma once

#include "frame/descriptor.h"

namespace kvt {
namespace schema_toy {
extern const ModuleDesc k_module;
extern const fenlog_table k_table_messages, k_type_messages;
}  // namespace schema_toy
}  // namespace kvt

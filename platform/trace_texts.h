// From a message table of this process to the texts of its messages. They lie in the built file that the table was
// loaded from, are read when the first line of the file is made, and stay until the process ends.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kvt/trace.h"
#include "platform/built_file.h"

namespace kvt {

// The text of a message; empty when it cannot be had: the file is gone, is another one by now, or has been stripped of
// its texts. May read a file and take memory; any thread may call it.
std::string_view message_text(const fenlog_table& table, std::uint32_t index);

// The file that a table was loaded from and the table's id. False for a table whose library has been unloaded.
bool table_home(const fenlog_table* table, std::string* path, TableId* id);

}  // namespace kvt

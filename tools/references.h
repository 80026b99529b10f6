// How the records of a database refer to each other. In a file a key or a radio policy names its profile; in a database
// that record refers to the profiles, and the profile to its keys or policies.
#pragma once

#include <cstdint>
#include <string>

#include "tools/store.h"

namespace wlanctl {

/// Ties every record that names its profile to the profiles, and the profiles of that name to the record's table. What
/// is tied already, or names no profile, stays as it is.
void tie_records(const Store& store, std::uint32_t txn);
/// Takes away what the payload refers to: an identity means something in its own database only.
void untie(const Table& table, kvt_handle* handle, std::uint32_t txn, void* payload);
/// Whether the field is the name by which records are tied.
bool is_tie(const Table& table, std::string_view path);
/// Where the payload's references lead, one XML comment a line; empty when it has none.
std::string reference_lines(const Store& store, const Table& table, void* payload);

}  // namespace wlanctl

// How a caller gets hold of a table, how a new one is entered in the database's contents, and how one goes.
#pragma once

#include "zarn_wlan/src/table_layout.h"

namespace kvt {

enum IdMode : std::uint32_t { kByName = 0, kById = 1, kByAutomaticId = 2 };

struct TableRequest {
  const char* name = nullptr;
  std::uint32_t open_type = 0;  // 0: make the table if it isn't there
  std::uint64_t id = 0;
  std::uint32_t ior = 0;
  std::uint32_t dynamic = 0;
  std::uint32_t id_mode = kByName;
};

void* table_open(const TableDesc& type, kvt_handle* h, std::uint32_t txn, const TableRequest& request, int* err);
void* table_open_cr(const TableDesc& type, kvt_handle* h, std::uint32_t open_type, std::uint32_t id_mode,
                    const char* name, std::uint64_t id);
void table_close(kvt_handle* h, int* err);
void table_close_cr(const TableDesc& type, kvt_handle* h, void* table, std::uint32_t mode);
void table_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, int* err);
// Frees a table that is out of the contents already, for the runtime; it stays where it cannot be freed yet.
void table_collect(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table);
void table_request_free(const TableDesc& type, kvt_handle* h, std::uint32_t txn, void* table, int* err);
std::uint32_t table_count(kvt_handle* h, std::uint32_t txn, void* table);
std::uint32_t table_count_by_source(kvt_handle* h, std::uint32_t txn, void* table, std::uint32_t source);

}  // namespace kvt

// The trace ring as a file: what a process leaves behind for a decoder; docs/formats/trace.md.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/built_file.h"
#include "platform/trace.h"

namespace kvt {

struct RingTable {
  TableId id;
  std::uint16_t number;
  std::string path;  // of the built file that has the texts
};

struct RingCall {
  std::uint64_t ticket;  // counts the calls of the process, from 0
  std::uint16_t table;   // index in RingFile::tables
  TraceEntry entry;      // without its table
};

struct RingFile {
  std::vector<RingTable> tables;
  std::vector<std::string> modules;  // module ids count from 1
  std::uint64_t made = 0;            // calls that the process made altogether
  std::vector<RingCall> calls;       // the last of them
};

// The number of a table whose library had been unloaded; its id is all zero.
constexpr std::uint16_t kNoTable = 0xFFFF;

// @return false with the reason, in words that follow the file's name and a colon
KVT_EXPORT bool read_ring(const std::string& path, RingFile* ring, std::string* why);

}  // namespace kvt

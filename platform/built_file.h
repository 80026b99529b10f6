// What a built file tells of itself in sections: message tables with their texts, manifests and build stamps. The forms
// are told in docs/formats/trace.md and manifest.md. Reads files that may be damaged, and takes no word of theirs on
// trust.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "kvt/handle.h"

namespace kvt {

using TableId = std::array<std::uint8_t, 16>;

struct BuiltMessage {
  std::uint32_t code;
  std::string text;
};

struct BuiltTable {
  std::string module;
  std::uint16_t number;
  TableId id;
  std::vector<BuiltMessage> messages;
};

constexpr std::uint32_t kBuildStampKind = 1, kManifestKind = 2;
struct BuiltRecord {
  std::uint32_t kind;
  std::string text;
};

// Both give everything or nothing. @return false with the reason, in words that follow the file's name and a colon
KVT_EXPORT bool read_message_tables(const std::string& path, std::vector<BuiltTable>* tables, std::string* why);
KVT_EXPORT bool read_build_records(const std::string& path, std::vector<BuiltRecord>* records, std::string* why);

// The head of a loaded table section.
constexpr std::uint16_t kTableVersion = 1;
constexpr std::size_t kTableNumberAt = 2, kTableIdAt = 4, kTableHeadSize = 20;

}  // namespace kvt

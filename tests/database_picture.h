// What is in a database file, for tests of what a transaction has left of it.
#pragma once

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/database.h"

// All bytes of the file but the undo log, permanent memory, the ring of changes, the number of the last transaction and
// the size, which only grows; a stretch of undo log counts as free.
inline std::string database_picture(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  auto* header = reinterpret_cast<kvt::DatabaseHeader*>(bytes.data());
  const auto clear = [&](std::size_t from, std::size_t to) { std::memset(bytes.data() + from, 0, to - from); };
  for (std::size_t i = 1; i * kvt::kSegmentSize < bytes.size(); ++i) {
    const kvt::Segment kind = header->kinds[i];
    if (kind != kvt::Segment::kLog && kind != kvt::Segment::kPermanent) continue;
    clear(i * kvt::kSegmentSize, (i + 1) * kvt::kSegmentSize);
    if (kind == kvt::Segment::kLog) header->kinds[i] = kvt::Segment::kFree;
  }
  clear(kvt::kRingAt, kvt::kCardsAt);
  clear(kvt::kLogAt, kvt::kSegmentSize);
  clear(offsetof(kvt::DatabaseHeader, segments), offsetof(kvt::DatabaseHeader, key_id));
  return bytes.substr(0, bytes.find_last_not_of('\0') + 1);
}

// The first place where two pictures differ; empty if there is none.
inline std::string picture_difference(const std::string& a, const std::string& b) {
  if (a == b) return "";
  std::size_t i = 0;
  while (i < a.size() && i < b.size() && a[i] == b[i]) ++i;
  return "differs from byte " + std::to_string(i) + " on, sizes " + std::to_string(a.size()) + " and " +
         std::to_string(b.size());
}

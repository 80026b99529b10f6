// An import file: which records it holds, where they stand, and whether every element in it means something.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "tools/secret_text.h"
#include "tools/store.h"

namespace wlanctl {

class ImportFile {
 public:
  /// Reads and parses the file. Throws Failure with file, line, column and reason.
  explicit ImportFile(const std::string& path);
  ~ImportFile();
  ImportFile(const ImportFile&) = delete;
  ImportFile& operator=(const ImportFile&) = delete;

  std::size_t size() const { return size_; }
  /// The table that record `index` belongs to.
  const Table& table(std::size_t index) const;
  /// Makes record `index` in the store, in no table yet.
  /// @param into its own table, or another one with the same payload
  Record read(std::size_t index, const Table& into, const Store& store, std::uint32_t txn) const;
  /// Checks that every element of record `index` came out again in `xml`, the record as it was read: what is missing is
  /// unknown to the schema, or stands in the wrong place.
  void check_elements(std::size_t index, const std::string& xml) const;
  /// "campus.xml: line 12, column 3"
  std::string position(std::size_t index) const;
  bool has(const Table& table) const;

 private:
  struct Tree;
  std::string where(std::size_t offset) const;

  std::string path_;
  SecretText text_;  // as it stands in the file: secrets in plain text
  std::unique_ptr<XmlDocument> document_;
  std::unique_ptr<Tree> tree_;
  std::size_t size_ = 0;
};

}  // namespace wlanctl

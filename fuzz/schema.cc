// Schema sources: parsed, checked and, when nothing is wrong with them, laid out and listed. Input: the source.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fuzz/target.h"
#include "schema/compiler/listing.h"
#include "schema/compiler/model.h"

namespace fuzz {
namespace {

void check_errors(const std::vector<zarnc::Diagnostic>& errors, const std::string& text) {
  std::vector<int> widths = {0};  // of the lines, by number
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) widths.push_back(static_cast<int>(line.size()));
  std::size_t told = 0;
  for (const zarnc::Diagnostic& error : errors) {
    const int line = error.at.line, column = error.at.column;
    FUZZ_CHECK(line >= 1 && line < static_cast<int>(widths.size()), "an error on line " + std::to_string(line));
    FUZZ_CHECK(column >= 1 && column <= widths[static_cast<std::size_t>(line)] + 1,
               "an error in column " + std::to_string(column));
    FUZZ_CHECK(!error.text.empty(), "an error without a word");
    told += error.text.size();
  }
  FUZZ_CHECK(told <= 4096 + 300 * text.size(), std::to_string(told) + " characters of complaint");
}

void check_layout(const zarnc::Schema& schema) {
  for (const auto& type : schema.structs) {
    FUZZ_CHECK(!type->plain.empty() && type->top + 1 == static_cast<int>(type->plain.size()),
               type->name + ": no sizes");
    std::uint32_t end = 7, states = 0;
    for (const zarnc::Field& field : type->fields) {
      FUZZ_CHECK(field.offset >= end && field.width > 0, type->name + "." + field.name + ": overlaps the one before");
      FUZZ_CHECK(field.state >= states, type->name + "." + field.name + ": another field's state byte");
      end = field.offset + field.width;
      states = field.state + 1;
      FUZZ_CHECK(end <= type->plain[static_cast<std::size_t>(field.variant)],
                 type->name + "." + field.name + ": outside");
    }
    FUZZ_CHECK(states <= type->block.back(), type->name + ": more state bytes than its block has");
  }
}

void run(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  zarnc::Schema schema;
  std::vector<zarnc::Diagnostic> errors;
  zarnc::parse("input.zs", text, schema, errors);
  check_errors(errors, text);
  if (!errors.empty()) return;
  zarnc::check(schema, errors);
  check_errors(errors, text);
  if (!errors.empty()) return;
  zarnc::layout(schema, errors);
  check_errors(errors, text);
  if (!errors.empty()) return;
  check_layout(schema);
  std::ostringstream list;
  for (const auto& module : schema.modules) zarnc::list_module(*module, list);
}

void seeds(const Sow& sow) {
  const std::filesystem::path root = ZARN_SOURCE_DIR;
  for (const std::filesystem::path& directory : {root / "schema", root / "tests/schema/cases"}) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      if (entry.path().extension() != ".zs") continue;
      std::ifstream in(entry.path(), std::ios::binary);
      sow(entry.path().stem(), std::string(std::istreambuf_iterator<char>(in), {}));
    }
  }
}

std::vector<std::string> dictionary() {
  std::vector<std::string> words = {"module ",
                                    "struct ",
                                    "enum ",
                                    "flag ",
                                    "table ",
                                    "expect ",
                                    "variant ",
                                    "unit ",
                                    "bookkeeping ",
                                    "-> table ",
                                    "-> struct ",
                                    "since ",
                                    "luid ",
                                    "record ",
                                    "key ",
                                    "size ",
                                    "block ",
                                    "used ",
                                    "bound ",
                                    "count ",
                                    "slot ",
                                    "kvt_oid ",
                                    "kvt_boolean ",
                                    "kvt_vstring ",
                                    "kvt_aes_vstring ",
                                    "qep_bytestr ",
                                    "u_int8 ",
                                    "u_int64 ",
                                    "timer ",
                                    "\n  ",
                                    "00000000000000000000000000000007 "};
  return words;
}

}  // namespace

const Target kSchema{"schema", run, seeds, dictionary};

}  // namespace fuzz

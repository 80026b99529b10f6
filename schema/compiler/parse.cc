// Reads schema files. A line that starts in column 1 opens a block, indented lines belong to the block above. What the
// lines mean together is for check; here only their form is judged, one complaint a line.
#include <charconv>
#include <string_view>

#include "schema/compiler/model.h"

namespace zarnc {

namespace {

struct Token {
  enum Form { kWord, kText } form = kWord;
  std::string text;
  int column = 0;
};

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// One line as tokens that are taken from left to right. After a first error nothing more is reported.
class Line {
 public:
  Line(const std::string& file, int number, const std::string& text, std::vector<Diagnostic>& errors)
      : file_(file), number_(number), errors_(errors) {
    split(text);
  }

  bool indented() const { return !tokens_.empty() && tokens_[0].column > 1; }
  bool empty() const { return tokens_.empty(); }
  bool failed() const { return failed_; }
  bool at_end() const { return next_ == tokens_.size(); }
  bool at_text() const { return !at_end() && tokens_[next_].form == Token::kText; }
  bool at_word(const char* word) const {
    return !at_end() && tokens_[next_].form == Token::kWord && tokens_[next_].text == word;
  }
  Position here() const { return {file_, number_, at_end() ? end_column_ : tokens_[next_].column}; }

  // "" after an error.
  std::string word(const char* what, Position* at = nullptr) {
    if (at) *at = here();
    if (at_end() || at_text()) {
      error(std::string("expected ") + what);
      return "";
    }
    return tokens_[next_++].text;
  }

  bool take(const char* word) {
    if (!at_word(word)) return false;
    ++next_;
    return true;
  }

  std::uint32_t number(const char* what, Position* at = nullptr) {
    const Position start = here();
    if (at) *at = start;
    const std::string digits = word(what);
    if (failed_) return 0;
    std::uint32_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, fault] = std::from_chars(digits.data(), end, value);
    if (fault != std::errc() || stop != end) error(start, std::string("expected ") + what + ", not '" + digits + "'");
    return value;
  }

  // What a thing means always ends its line.
  std::string meaning() {
    if (!at_text()) {
      error("expected the meaning, a text in quotes");
      return "";
    }
    std::string text = tokens_[next_++].text;
    finish();
    return text;
  }

  void finish() {
    if (!at_end()) error("unexpected '" + tokens_[next_].text + "'");
  }

  void error(const std::string& text) { error(here(), text); }
  void error(const Position& at, const std::string& text) {
    if (!failed_) errors_.push_back({at, text});
    failed_ = true;
    next_ = tokens_.size();
  }

 private:
  void split(const std::string& text) {
    std::size_t i = 0;
    while (true) {
      while (i < text.size() && is_blank(text[i])) ++i;
      end_column_ = static_cast<int>(i) + 1;
      if (i == text.size() || text[i] == '#') return;
      const std::size_t start = i;
      const int column = static_cast<int>(i) + 1;
      if (text[i] == '"') {
        const std::size_t close = text.find('"', i + 1);
        if (close == text.npos) {
          error({file_, number_, column}, "text is not closed");
          return;
        }
        // Meanings become comments of generated sources, where a backslash at the end of a line would swallow the next.
        const std::size_t backslash = std::string_view(text).substr(0, close).find('\\', i);
        if (backslash != text.npos)
          error({file_, number_, static_cast<int>(backslash) + 1}, "a text holds no backslash");
        tokens_.push_back({Token::kText, text.substr(start + 1, close - start - 1), column});
        i = close + 1;
      } else {
        while (i < text.size() && !is_blank(text[i]) && text[i] != '"' && text[i] != '#') ++i;
        tokens_.push_back({Token::kWord, text.substr(start, i - start), column});
      }
      end_column_ = static_cast<int>(i) + 1;
    }
  }

  const std::string& file_;
  int number_;
  std::vector<Diagnostic>& errors_;
  std::vector<Token> tokens_;
  std::size_t next_ = 0;
  int end_column_ = 1;
  bool failed_ = false;
};

class Parser {
 public:
  Parser(Schema& schema) : schema_(schema) {}

  void line(Line& line) {
    if (line.failed()) {
      if (!line.indented()) block_ = Block::kUnknown;
      return;
    }
    if (line.indented()) {
      entry(line);
    } else {
      open(line);
    }
  }

 private:
  enum class Block { kNone, kUnknown, kModule, kStruct, kEnum, kFlag, kTable };

  template <class Type>
  static Type& add(std::vector<std::unique_ptr<Type>>& all) {
    return *all.emplace_back(std::make_unique<Type>());
  }

  template <class Type>
  static void read_head(Line& line, Type& type) {
    type.name = line.word("a name", &type.at);
    type.luid = line.word("a luid", &type.luid_at);
    type.meaning = line.meaning();
  }

  void open(Line& line) {
    const Position at = line.here();
    const std::string word = line.word("module, struct, enum, flag, table or expect");
    block_ = Block::kUnknown;
    if (line.failed()) return;
    if (word == "module") {
      block_ = Block::kModule;
      Module& module = add(schema_.modules);
      module.name = line.word("a name", &module.at);
      module.number = line.number("a module number", &module.number_at);
      line.finish();
    } else if (word == "struct") {
      block_ = Block::kStruct;
      read_head(line, add(schema_.structs));
    } else if (word == "enum") {
      block_ = Block::kEnum;
      read_head(line, add(schema_.enums));
    } else if (word == "flag") {
      block_ = Block::kFlag;
      read_head(line, add(schema_.flags));
    } else if (word == "table") {
      block_ = Block::kTable;
      Table& table = add(schema_.tables);
      table.name = line.word("a name", &table.at);
      table.payload_name = line.word("the name of a struct", &table.payload_at);
      table.luid_at = table.record_luid_at = table.at;
      table.meaning = line.meaning();
    } else if (word == "expect") {
      block_ = Block::kNone;
      expectation(line);
    } else {
      line.error(at, "unknown word '" + word + "': expected module, struct, enum, flag, table or expect");
    }
  }

  void expectation(Line& line) {
    Expectation expectation;
    expectation.type = line.word("the name of a type", &expectation.at);
    if (line.take("variant")) expectation.variant = line.number("a variant", &expectation.variant_at);
    do {
      expectation.what = line.word("what is expected", &expectation.what_at);
      expectation.value = line.number("a number");
      if (!line.failed()) schema_.expectations.push_back(expectation);
    } while (!line.at_end());
  }

  void entry(Line& line) {
    switch (block_) {
      case Block::kNone:
        line.error("an indented line without a block above it");
        break;
      case Block::kUnknown:
        break;
      case Block::kModule:
        module_entry(line, *schema_.modules.back());
        break;
      case Block::kStruct:
        field(line, schema_.structs.back()->fields.emplace_back());
        break;
      case Block::kEnum:
        enumerator(line, schema_.enums.back()->enumerators.emplace_back());
        break;
      case Block::kFlag:
        bit(line, schema_.flags.back()->bits.emplace_back());
        break;
      case Block::kTable:
        table_entry(line, *schema_.tables.back());
        break;
    }
  }

  static void module_entry(Line& line, Module& module) {
    Listed listed;
    const Position at = line.here();
    listed.kind = line.word("struct, enum, flag, table or needs");
    if (listed.kind == "needs") {
      Need need;
      need.name = line.word("the name of a module", &need.at);
      line.finish();
      module.needs.push_back(need);
      return;
    }
    if (listed.kind != "struct" && listed.kind != "enum" && listed.kind != "flag" && listed.kind != "table") {
      line.error(at, "expected struct, enum, flag, table or needs, not '" + listed.kind + "'");
    }
    listed.name = line.word("the name of a type", &listed.at);
    line.finish();
    module.listed.push_back(listed);
  }

  static void field(Line& line, Field& field) {
    field.name = line.word("a field's name", &field.at);
    field.type = line.word("a field's type", &field.type_at);
    field.variant_at = field.unit_at = field.target_at = field.type_at;
    while (!line.failed() && !line.at_text()) attribute(line, field);
    field.meaning = line.meaning();
  }

  static void attribute(Line& line, Field& field) {
    const Position at = line.here();
    const auto once = [&](bool first, const char* what) {
      if (!first) line.error(at, std::string(what) + " stands twice");
    };
    if (line.take("variant")) {
      once(field.variant == 0, "variant");
      field.variant = static_cast<int>(line.number("a variant", &field.variant_at));
    } else if (line.take("unit")) {
      once(field.unit.empty(), "unit");
      field.unit = line.word("a unit", &field.unit_at);
    } else if (line.take("bookkeeping")) {
      once(!field.bookkeeping, "bookkeeping");
      field.bookkeeping = true;
    } else if (line.take("->")) {
      once(field.target.empty(), "the target");
      const Position kind_at = line.here();
      const std::string kind = line.word("table or struct");
      if (kind != "table" && kind != "struct") line.error(kind_at, "expected table or struct, not '" + kind + "'");
      field.target_is_table = kind == "table";
      field.target = line.word("the target's name", &field.target_at);
    } else if (line.at_end()) {
      line.error("expected the meaning, a text in quotes");
    } else {
      const std::string word = line.word("");
      line.error(at, "unknown word '" + word + "': expected variant, unit, bookkeeping, -> or the meaning");
    }
  }

  static void enumerator(Line& line, Enumerator& enumerator) {
    enumerator.name = line.word("an enumerator's name", &enumerator.at);
    enumerator.since_at = enumerator.at;
    if (line.take("since")) enumerator.since = static_cast<int>(line.number("a variant", &enumerator.since_at));
    enumerator.meaning = line.meaning();
  }

  static void bit(Line& line, Bit& bit) {
    bit.name = line.word("a bit's name", &bit.at);
    bit.meaning = line.meaning();
  }

  static void table_entry(Line& line, Table& table) {
    const Position at = line.here();
    const auto identity = [&](std::string& luid, Position& luid_at, const char* what) {
      if (!luid.empty()) line.error(at, std::string(what) + " stands twice");
      luid = line.word("a luid", &luid_at);
    };
    if (line.take("luid")) {
      identity(table.luid, table.luid_at, "luid");
    } else if (line.take("record")) {
      identity(table.record_luid, table.record_luid_at, "record");
    } else if (line.take("key")) {
      table.key_names.push_back(line.word("a field's name", &table.key_at.emplace_back()));
    } else {
      const std::string word = line.word("luid, record or key");
      line.error(at, "unknown word '" + word + "': expected luid, record or key");
    }
    line.finish();
  }

  Schema& schema_;
  Block block_ = Block::kNone;
};

}  // namespace

void parse(const std::string& path, const std::string& text, Schema& schema, std::vector<Diagnostic>& errors) {
  Parser parser(schema);
  int number = 0;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t end = text.find('\n', start);
    if (end == text.npos) end = text.size();
    const std::string content = text.substr(start, end - start);
    Line line(path, ++number, content, errors);
    if (!line.empty() || line.failed()) parser.line(line);
    start = end + 1;
  }
}

}  // namespace zarnc

// Holds a computed layout against published tables: tab-separated files with a heading line, one row for each fact
// group.
#include "schema/compiler/published.h"

#include <algorithm>
#include <fstream>
#include <map>

namespace zarnc {

namespace {

using Facts = std::map<std::string, std::string>;  // column to value, as text

struct Row {
  Facts facts;
  std::map<std::string, Position> at;
};

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> cells;
  std::size_t start = 0;
  for (std::size_t tab; (tab = line.find('\t', start)) != line.npos; start = tab + 1) {
    cells.push_back(line.substr(start, tab - start));
  }
  cells.push_back(line.substr(start));
  return cells;
}

class Comparison {
 public:
  Comparison(const Schema& schema, const std::string& directory, std::vector<Diagnostic>& errors)
      : directory_(directory), errors_(errors) {
    for (const auto& type : schema.structs) collect(*type);
    for (const auto& type : schema.enums) collect(*type);
    for (const auto& table : schema.tables) collect(*table);
    for (const auto& module : schema.modules) collect(*module);
  }

  void run() {
    compare("structs.tsv", structs_, {"type", "variant"});
    compare("fields.tsv", fields_, {"type", "field"});
    compare("enums.tsv", enums_, {"enum", "enumerator"});
    compare("tables.tsv", tables_, {"table"});
    compare("keys.tsv", keys_, {"table", "key"});
    compare_order();
  }

 private:
  using Computed = std::map<std::vector<std::string>, Facts>;

  void collect(const Struct& type) {
    for (int variant = 0; variant <= type.top; ++variant) {
      const auto at = static_cast<std::size_t>(variant);
      structs_[{type.name, std::to_string(variant)}] = {{"used", std::to_string(type.used[at])},
                                                        {"size", std::to_string(type.plain[at])},
                                                        {"block", std::to_string(type.block[at])},
                                                        {"bound", std::to_string(type.bounds[at])}};
    }
    for (std::size_t place = 0; place < type.fields.size(); ++place) {
      const Field& field = type.fields[place];
      fields_[{type.name, field.name}] = {{"place", std::to_string(place)},
                                          {"kind", field.type},
                                          {"offset", std::to_string(field.offset)},
                                          {"width", std::to_string(field.width)},
                                          {"variant", std::to_string(field.variant)},
                                          {"state", std::to_string(field.state)},
                                          {"target", field.target.empty() ? "-" : field.target}};
    }
    luids_[type.name] = type.luid;
  }

  void collect(const Enum& type) {
    for (const Enumerator& enumerator : type.enumerators) {
      enums_[{type.name, enumerator.name}] = {{"value", std::to_string(enumerator.value)},
                                              {"since", std::to_string(enumerator.since)}};
    }
  }

  void collect(const Table& table) {
    tables_[{table.name}] = {{"payload", table.payload_name},
                             {"size", std::to_string(table.object_size)},
                             {"slot", std::to_string(table.payload_slot)},
                             {"record", std::to_string(table.record_size)},
                             {"record_luid", table.record_luid}};
    for (std::size_t i = 0; i < table.keys.size(); ++i) {
      keys_[{table.name, std::to_string(i)}] = {{"field", table.keys[i]->name},
                                                {"kind", table.keys[i]->type},
                                                {"offset", std::to_string(table.keys[i]->offset)}};
    }
    luids_[table.name] = table.luid;
  }

  void collect(const Module& module) {
    auto& order = orders_[module.name];
    for (const Struct* type : module.structs) order.push_back(type->name);
    for (const Enum* type : module.enums) order.push_back(type->name);
    for (const Flag* type : module.flags) order.push_back(type->name);
    for (const Table* table : module.tables) order.push_back(table->name);
  }

  std::vector<Row> read(const std::string& name) {
    const std::string path = directory_ + "/" + name;
    std::ifstream in(path);
    if (!in) {
      errors_.push_back({{path, 1, 1}, "cannot be read"});
      return {};
    }
    std::vector<Row> rows;
    std::vector<std::string> heading;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
      ++number;
      const std::vector<std::string> cells = split(line);
      if (heading.empty()) {
        heading = cells;
      } else if (cells.size() != heading.size()) {
        errors_.push_back({{path, number, 1}, "expected " + std::to_string(heading.size()) + " columns"});
      } else {
        Row& row = rows.emplace_back();
        int column = 1;
        for (std::size_t i = 0; i < cells.size(); ++i) {
          row.facts[heading[i]] = cells[i];
          row.at[heading[i]] = {path, number, column};
          column += static_cast<int>(cells[i].size()) + 1;
        }
      }
    }
    if (rows.empty()) errors_.push_back({{path, 1, 1}, "holds no rows"});
    return rows;
  }

  // @param key the columns that say which thing the row is about; all others are facts of it
  void compare(const std::string& name, const Computed& computed, const std::vector<std::string>& key) {
    for (Row& row : read(name)) {
      std::vector<std::string> which;
      std::string about;
      for (const std::string& column : key) {
        which.push_back(row.facts[column]);
        about += about.empty() ? which.back() : " " + column + " " + which.back();
      }
      const auto found = computed.find(which);
      if (found == computed.end()) {
        errors_.push_back({row.at[key[0]], about + ": the schema has none"});
        continue;
      }
      for (const auto& [column, expected] : row.facts) {
        if (std::count(key.begin(), key.end(), column)) continue;
        compare_fact(found->second, about, column, expected, row.at[column]);
      }
    }
  }

  void compare_fact(const Facts& computed, const std::string& about, const std::string& column,
                    const std::string& expected, const Position& at) {
    const auto fact = computed.find(column);
    if (fact == computed.end()) {
      errors_.push_back({at, "unknown column '" + column + "'"});
    } else if (fact->second != expected) {
      errors_.push_back({at, about + ": " + column + " expected " + expected + ", computed " + fact->second});
    }
  }

  // Types that the schema has beyond the published ones may stand between them.
  void compare_order() {
    std::map<std::string, std::size_t> reached;
    for (Row& row : read("order.tsv")) {
      const std::string& type = row.facts["type"];
      const std::vector<std::string>& order = orders_[row.facts["module"]];
      const auto place = std::find(order.begin(), order.end(), type);
      const std::size_t index = static_cast<std::size_t>(place - order.begin());
      std::size_t& next = reached[row.facts["module"]];
      if (place == order.end()) {
        errors_.push_back({row.at["type"], type + ": module " + row.facts["module"] + " has none"});
      } else if (index < next) {
        errors_.push_back({row.at["type"], type + ": expected behind " + order[next - 1] + ", computed before it"});
      } else {
        next = index + 1;
      }
      // Enumerated and flag types have no published identity.
      if (row.facts["luid"] != "-" && row.facts["luid"] != luids_[type]) {
        errors_.push_back(
            {row.at["luid"], type + ": luid expected " + row.facts["luid"] + ", computed " + luids_[type]});
      }
    }
  }

  const std::string& directory_;
  std::vector<Diagnostic>& errors_;
  Computed structs_, fields_, enums_, tables_, keys_;
  std::map<std::string, std::vector<std::string>> orders_;
  std::map<std::string, std::string> luids_;
};

}  // namespace

void check_published(const Schema& schema, const std::string& directory, std::vector<Diagnostic>& errors) {
  Comparison(schema, directory, errors).run();
}

}  // namespace zarnc

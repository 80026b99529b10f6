// The published tables of types and fields as tests see them, and the module's exports found by name. What is true of
// every type is so tested on every type, and on places and sizes that the library was not asked for.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "zarn_wlan/zarn_wlan.h"

namespace module_test {

struct Field {
  std::string name, kind;
  std::uint32_t place, offset, width;
  int variant;
  std::uint32_t state;
  std::string target = "-";  // of a reference
};

struct Type {
  std::string name;
  std::vector<Field> fields;
  std::vector<std::uint32_t> used, size, block, bound;  // by variant
  int top() const { return static_cast<int>(size.size()) - 1; }
};

struct Enumerator {
  std::string name;
  std::uint32_t value;
  int since;
};

inline std::vector<std::vector<std::string>> read_table(const char* name) {
  std::ifstream file(std::string(ZARN_SOURCE_DIR "/schema/published/") + name);
  std::vector<std::vector<std::string>> rows;
  std::string line, cell;
  std::getline(file, line);  // column names
  while (std::getline(file, line)) {
    std::istringstream cells(line);
    for (rows.emplace_back(); std::getline(cells, cell, '\t');) rows.back().push_back(cell);
  }
  return rows;
}

struct Catalogue {
  std::vector<Type> types;  // the module's structs
  std::map<std::string, Type> by_name;
  std::map<std::string, std::vector<Enumerator>> enums;

  static const Catalogue& get() {
    static const Catalogue catalogue;
    return catalogue;
  }

 private:
  Catalogue() {
    auto number = [](const std::string& text) { return static_cast<std::uint32_t>(std::stoul(text)); };
    for (const auto& row : read_table("structs.tsv")) {
      if (types.empty() || types.back().name != row[0]) types.push_back({row[0], {}, {}, {}, {}, {}});
      Type& type = types.back();
      type.used.push_back(number(row[2]));
      type.size.push_back(number(row[3]));
      type.block.push_back(number(row[4]));
      type.bound.push_back(number(row[5]));
    }
    for (Type& type : types) by_name[type.name] = type;
    for (const auto& row : read_table("fields.tsv")) {
      by_name[row[0]].fields.push_back({row[1], row[3], number(row[2]), number(row[4]), number(row[5]),
                                        static_cast<int>(number(row[6])), number(row[7]), row[8]});
    }
    for (Type& type : types) type = by_name[type.name];
    // The one struct of another module that stands in an object of this one; its own module publishes no table.
    by_name["st_apf_vap_802_11bg"] = {
        "st_apf_vap_802_11bg", {{"vap_radio_policy", "enm_radio_policy", 0, 8, 12, 0, 0}}, {20}, {24}, {1}, {1}};
    for (const auto& row : read_table("enums.tsv")) {
      enums[row[0]].push_back({row[1], number(row[2]), static_cast<int>(number(row[3]))});
    }
  }
};

inline const Type& type_of(const std::string& name) { return Catalogue::get().by_name.at(name); }
inline const std::vector<Type>& all_types() { return Catalogue::get().types; }

// What a field's kind means for the operations that it has.
enum class Kind { kInteger, kBoolean, kEnum, kString, kFlag, kStruct, kReference, kTimer };
inline Kind kind_of(const Field& field) {
  const std::string& kind = field.kind;
  if (kind == "timer") return Kind::kTimer;
  if (kind == "kvt_oid") return Kind::kReference;
  if (kind == "kvt_boolean") return Kind::kBoolean;
  if (kind.starts_with("u_int")) return Kind::kInteger;
  if (kind.starts_with("flg_")) return Kind::kFlag;
  if (kind == "kvt_vstring" || kind == "kvt_aes_vstring" || kind == "qep_bytestr") return Kind::kString;
  return Catalogue::get().by_name.count(kind) ? Kind::kStruct : Kind::kEnum;
}
inline bool has_value(const Field& field) { return kind_of(field) <= Kind::kEnum; }
inline bool has_set(const Field& field) { return kind_of(field) <= Kind::kStruct; }
// Value fields are set and read in the width of their kind; all values of tests travel as 64 bits.
inline std::uint32_t value_width(const Field& field) {
  return kind_of(field) == Kind::kInteger ? field.width : sizeof(std::uint32_t);
}
inline std::uint32_t value_offset(const Field& field) { return field.offset + (kind_of(field) == Kind::kEnum ? 8 : 0); }

inline void* find_symbol(const std::string& name) {
  static std::unordered_map<std::string, void*> found;  // the loader takes longer, and is asked for the same again
  auto [entry, is_new] = found.try_emplace(name);
  if (is_new) entry->second = dlsym(RTLD_DEFAULT, name.c_str());
  return entry->second;
}

// The export of that name. A test that needs one that isn't there cannot go on.
template <class F>
F* fn(const std::string& name) {
  void* symbol = find_symbol(name);
  if (!symbol) {
    std::cerr << "not exported: " << name << std::endl;
    std::abort();
  }
  return reinterpret_cast<F*>(symbol);
}
inline const kvt_type_record* record_of(const std::string& type) {
  return fn<const kvt_type_record>("_" + type + "_type_info_internal");
}

// Signatures of the families; T is a type's name, f a field's.
using H = kvt_handle*;
using Txn = std::uint32_t;
using Create = void*(H, Txn);
using Destroy = void(H, Txn, void*);
using Sizeof = std::uint32_t(H);
using SizeofInternal = std::uint32_t(H, const void*, int, int);
using Initialize = void(H, Txn, void*, const kvt_type_record*, int, int, int, void*, int*);
using Get = void*(H, Txn, void*, int*);
using Set = void(H, Txn, void*, const void*, int*);
using StateGet = std::uint8_t(H, Txn, void*, int*);
using StateSet = void(H, Txn, void*, std::uint32_t, int*);
using StateAll = void(H, Txn, void*, std::uint32_t);
using OffsetUpdate = void(H, Txn, void*, void*);
using OffsetRemove = void(H, Txn, void*, int*);
using PostCopyout = void*(H, Txn, void*, const void*, int*);
using GetLuid = const std::uint8_t*(H, Txn, const void*, int*);
using IsValid = std::uint32_t(H, const void*, std::uint32_t, std::uint32_t);
using Marshal = std::uint32_t(H, Txn, std::uint8_t*, const void*, std::int32_t, int*);
using Unmarshal = std::uint32_t(H, Txn, const std::uint8_t*, void*, std::int32_t, std::uint32_t, int*);
using Len = std::uint32_t(H, Txn, const void*);
using Compare = std::int32_t(const void*, const void*);
using Hash = std::uint32_t(const void*, std::uint32_t);
using Print = std::uint32_t(H, Txn, char*, std::uint32_t, const char*, const void*, std::int32_t, int*);
using PrintCr = std::int32_t(H, const void*, char*, std::int32_t);
using Clone = void(H, Txn, const void*, void**, std::uint8_t*, std::int32_t, int*);
using CloneCr = void*(H, const void*);
using ToXml = std::uint32_t(H, Txn, const char*, char*, const void*, std::int32_t, std::uint32_t, int*);
using ToXmlCr = std::int32_t(H, const void*, char*, std::int32_t);
using FromXml = void(H, Txn, const char*, kvt_xml_document*, void*, int*, char*, std::size_t);
template <class V>
using GetValue = V(H, Txn, void*, int*);
template <class V>
using SetValue = void(H, Txn, void*, V, int*);

// Calls `use` with a value of the type that the field's value operations are declared with.
template <class Use>
auto with_value_type(const Field& field, Use use) {
  switch (value_width(field)) {
    case 1:
      return use(std::uint8_t{});
    case 2:
      return use(std::uint16_t{});
    case 4:
      return use(std::uint32_t{});
    default:
      return use(std::uint64_t{});
  }
}

inline std::uint64_t call_get_value(const Type& type, const Field& f, H h, Txn txn, void* object, int* err) {
  return with_value_type(f, [&](auto v) -> std::uint64_t {
    return fn<GetValue<decltype(v)>>(type.name + "_" + f.name + "_get_value")(h, txn, object, err);
  });
}
inline void call_set_value(const Type& type, const Field& f, H h, Txn txn, void* object, std::uint64_t value,
                           int* err) {
  with_value_type(f, [&](auto v) {
    using V = decltype(v);
    fn<SetValue<V>>(type.name + "_" + f.name + "_set_value")(h, txn, object, static_cast<V>(value), err);
  });
}

}  // namespace module_test

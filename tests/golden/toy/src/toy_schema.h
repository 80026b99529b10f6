// The types as constants. Made by zarnc from the schema of toy; not to be edited.
#pragma once

#include "toy/toy.h"
#include "objects/field_types.h"
#include "objects/primitive_field_types.h"

namespace kvt {

namespace schema_toy {

struct enm_shade {
  static const EnumDesc kDesc;
};
extern const FieldType k_enm_shade_field;
struct flg_marks {
  static const EnumDesc kDesc;
};
extern const FieldType k_flg_marks_field;
struct st_leaf;
extern const FieldType k_st_leaf_field;
struct st_tree;
extern const FieldType k_st_tree_field;

struct st_leaf {
  static const StructDesc kDesc;
  static constexpr int kTop = 0;
  struct shade {
    using Owner = st_leaf;
    using Type = Enumerated<schema_toy::enm_shade>;
    static constexpr std::uint32_t kOffset = 8, kState = 0;
    static constexpr int kVariant = 0;
  };
  struct width {
    using Owner = st_leaf;
    using Type = U16;
    static constexpr std::uint32_t kOffset = 20, kState = 1;
    static constexpr int kVariant = 0;
  };
  using Fields = FieldList<shade, width>;
};

struct st_tree {
  static const StructDesc kDesc;
  static constexpr int kTop = 1;
  struct id {
    using Owner = st_tree;
    using Type = U32;
    static constexpr std::uint32_t kOffset = 8, kState = 0;
    static constexpr int kVariant = 0;
  };
  struct name {
    using Owner = st_tree;
    using Type = Vstring;
    static constexpr std::uint32_t kOffset = 12, kState = 1;
    static constexpr int kVariant = 0;
  };
  struct leaf {
    using Owner = st_tree;
    using Type = Nested<schema_toy::st_leaf>;
    static constexpr std::uint32_t kOffset = 20, kState = 2;
    static constexpr int kVariant = 0;
  };
  struct secret {
    using Owner = st_tree;
    using Type = AesVstring;
    static constexpr std::uint32_t kOffset = 48, kState = 5;
    static constexpr int kVariant = 0;
  };
  struct marks {
    using Owner = st_tree;
    using Type = FlagSet<schema_toy::flg_marks>;
    static constexpr std::uint32_t kOffset = 60, kState = 6;
    static constexpr int kVariant = 0;
  };
  struct alive {
    using Owner = st_tree;
    using Type = Boolean;
    static constexpr std::uint32_t kOffset = 72, kState = 7;
    static constexpr int kVariant = 0;
  };
  struct parent {
    using Owner = st_tree;
    using Type = Oid;
    static constexpr std::uint32_t kOffset = 80, kState = 8;
    static constexpr int kVariant = 1;
  };
  using Fields = FieldList<id, name, leaf, secret, marks, alive, parent>;
};

struct tbl_trees {
  static const TableDesc kDesc;
  struct id {
    using Type = U32;
    static constexpr std::ptrdiff_t kIndex = 0, kKeyCount = 2;
    static constexpr std::uint32_t kOffset = 8;
  };
  struct name {
    using Type = Vstring;
    static constexpr std::ptrdiff_t kIndex = 1, kKeyCount = 2;
    static constexpr std::uint32_t kOffset = 12;
  };
};

}  // namespace schema_toy
}  // namespace kvt

// Field accessors. A field is a constant record: Type, Owner (its struct), kOffset, kVariant, kState.
#pragma once

#include "objects/field_types.h"
#include "objects/state_tracking.h"

namespace kvt {

template <class Field>
void* field_get(kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  using Type = typename Field::Type;
  if (!begin_read(h, object, Field::kVariant, Type::kScalar, err)) return nullptr;
  void* field = Type::get(h, txn, at_offset(object, Field::kOffset), err);
  report(h, txn, field, object);
  return field;
}

template <class Field>
typename Field::Type::Value field_get_value(kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  using Type = typename Field::Type;
  if (!begin_read(h, object, Field::kVariant, Type::kScalar, err)) return 0;
  void* field = Type::get(h, txn, at_offset(object, Field::kOffset), err);
  if (!field) return 0;
  report(h, txn, field, object);
  return Type::get_value(h, txn, field, err);
}

template <class Field>
void field_set(kvt_handle* h, std::uint32_t txn, void* object, const void* source, int* err) {
  using Type = typename Field::Type;
  const StructDesc& owner = Field::Owner::kDesc;
  if (!begin_write(h, txn, object, Field::Owner::kTop, Field::kVariant, Type::kScalar, err)) return;
  Type::set(h, txn, at_offset(object, Field::kOffset), source, err);
  if (!mark_written(owner, h, txn, object, Field::kState, err)) return;
  report(h, txn, const_cast<void*>(source), object);
}

template <class Field>
void field_set_value(kvt_handle* h, std::uint32_t txn, void* object, typename Field::Type::Value value, int* err) {
  using Type = typename Field::Type;
  const StructDesc& owner = Field::Owner::kDesc;
  if (!begin_write(h, txn, object, Field::Owner::kTop, Field::kVariant, Type::kScalar, err)) return;
  void* field = *err ? nullptr : field_get<Field>(h, txn, object, err);
  report(h, txn, field, object);
  if (*err) return;
  if (!field) {
    fail(h, kEnoent, err);
    return;
  }
  Type::set_value(h, txn, field, value, err);
  mark_written(owner, h, txn, object, Field::kState, err);
}

template <class Field>
std::uint8_t field_state_get(kvt_handle* h, std::uint32_t txn, void* object, int* err) {
  return state_flag_get(Field::Owner::kDesc, h, txn, object, Field::kState, err);
}
template <class Field>
void field_state_set(kvt_handle* h, std::uint32_t txn, void* object, std::uint32_t value, int* err) {
  state_flag_set(Field::Owner::kDesc, h, txn, object, Field::kState, Field::kVariant, Field::Type::kScalar, value, err);
}

// Walks value fields by groups of variant: the object's variant is read anew where a group begins, and a group that it
// doesn't reach ends the walk.
class VariantGroups {
 public:
  explicit VariantGroups(const void* object) : object_(object), open_(kvt_get_instance_variant(object, 1, 0) >= 0) {}
  bool reaches(int variant) {
    if (open_ && variant > group_) {
      group_ = variant;
      open_ = kvt_get_instance_variant(object_, 1, 0) >= variant;
    }
    return open_;
  }

 private:
  const void* object_;
  int group_ = 0;
  bool open_;
};

template <class Field>
void group_get(VariantGroups& groups, kvt_handle* h, std::uint32_t txn, void* object, typename Field::Type::Value* out,
               int* err) {
  using Type = typename Field::Type;
  if (!groups.reaches(Field::kVariant)) return;
  void* field = Type::get(h, txn, at_offset(object, Field::kOffset), err);
  if (!field) {
    *out = 0;
    return;
  }
  report(h, txn, field, object);
  *out = Type::get_value(h, txn, field, err);
}

template <class Field>
void group_set(VariantGroups& groups, kvt_handle* h, std::uint32_t txn, void* object, typename Field::Type::Value value,
               int* err) {
  if (groups.reaches(Field::kVariant)) {
    Field::Type::set_value(h, txn, at_offset(object, Field::kOffset), value, err);
  }
}

template <class... Fields>
void struct_get_all(kvt_handle* h, std::uint32_t txn, void* object, typename Fields::Type::Value*... out, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  [[maybe_unused]] VariantGroups groups(object);
  (void)txn;
  (group_get<Fields>(groups, h, txn, object, out, err), ...);
}

template <class Struct, class... Fields>
void struct_set_all(kvt_handle* h, std::uint32_t txn, void* object, typename Fields::Type::Value... value, int* err) {
  if (*err) return;
  kvt_clear_last_error(h);
  adjust_variant(h, txn, object, Struct::kTop, err);
  [[maybe_unused]] VariantGroups groups(object);
  (group_set<Fields>(groups, h, txn, object, value, err), ...);
}

}  // namespace kvt

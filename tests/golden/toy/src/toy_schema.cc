// The types as tables. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"

#include "zarn_wlan/src/table_layout.h"
#include "toy_module.h"

namespace kvt {
namespace schema_toy {

constexpr const char* enm_shade_names[] = {"SHADE_NONE", "SHADE_DARK", "SHADE_RED"};
constexpr std::uint32_t enm_shade_legal[] = {2, 3};
const EnumDesc enm_shade::kDesc = {
    "enm_shade", &_enm_shade_type_info_internal, &k_module, {&k_type_messages, 33, &g_kvt_toy_trace_module_id}, 1, 3, enm_shade_names,
    enm_shade_legal, 176};
const FieldType k_enm_shade_field = {
    "enm_shade", FieldKind::kEnum, &_enm_shade_type_info_internal, enm_shade_initialize, enm_shade_set_instance_embedded, nullptr, nullptr,
    enm_shade_to_xml, enm_shade_from_xml, nullptr, nullptr, nullptr};

constexpr const char* flg_marks_names[] = {"MARK_FELL", "MARK_PRUNE"};
constexpr std::uint32_t flg_marks_legal[] = {2};
const EnumDesc flg_marks::kDesc = {
    "flg_marks", &_flg_marks_type_info_internal, &k_module, {&k_type_messages, 43, &g_kvt_toy_trace_module_id}, 0, 2, flg_marks_names,
    flg_marks_legal, 192};
const FieldType k_flg_marks_field = {
    "flg_marks", FieldKind::kFlag, &_flg_marks_type_info_internal, flg_marks_initialize, flg_marks_set_instance_embedded, nullptr, nullptr,
    flg_marks_to_xml, flg_marks_from_xml, nullptr, nullptr, nullptr};

constexpr std::uint16_t st_leaf_plain[] = {28};
constexpr std::uint16_t st_leaf_block[] = {2};
constexpr std::uint16_t st_leaf_bounds[] = {2};
const FieldDesc st_leaf_fields[] = {
    {"shade", &k_enm_shade_field, nullptr, 8, 0, 0, 0},
    {"width", &k_u_int16_field, nullptr, 20, 1, 0, 0},
};
const StructDesc st_leaf::kDesc = {
    "st_leaf", &_st_leaf_type_info_internal, &k_module, {&k_type_messages, 0, &g_kvt_toy_trace_module_id}, 0, 0, false, 2,
    st_leaf_plain, st_leaf_block, st_leaf_bounds, st_leaf_fields, 0};
const FieldType k_st_leaf_field = {
    "st_leaf", FieldKind::kStruct, &_st_leaf_type_info_internal, st_leaf_initialize, st_leaf_set_instance_embedded,
    st_leaf_destroy_internal, st_leaf_set, st_leaf_to_xml, st_leaf_from_xml, st_leaf_offset_update,
    st_leaf_offset_remove, &st_leaf::kDesc};

constexpr std::uint16_t st_tree_plain[] = {92, 144};
constexpr std::uint16_t st_tree_block[] = {8, 9};
constexpr std::uint16_t st_tree_bounds[] = {6, 8};
const FieldDesc st_tree_fields[] = {
    {"id", &k_u_int32_field, nullptr, 8, 0, 0, 0},
    {"name", &k_kvt_vstring_field, nullptr, 12, 1, 0, 0},
    {"leaf", &k_st_leaf_field, nullptr, 20, 2, 0, 0},
    {"secret", &k_kvt_aes_vstring_field, nullptr, 48, 5, 0, 0},
    {"marks", &k_flg_marks_field, nullptr, 60, 6, 0, 0},
    {"alive", &k_kvt_boolean_field, nullptr, 72, 7, 0, 0},
    {"parent", &k_kvt_oid_field, &_tbl_trees_table_type_info_internal, 80, 8, 1, 16},
};
const StructDesc st_tree::kDesc = {
    "st_tree", &_st_tree_type_info_internal, &k_module, {&k_type_messages, 16, &g_kvt_toy_trace_module_id}, 1, 1, true, 7,
    st_tree_plain, st_tree_block, st_tree_bounds, st_tree_fields, 32};
const FieldType k_st_tree_field = {
    "st_tree", FieldKind::kStruct, &_st_tree_type_info_internal, st_tree_initialize, st_tree_set_instance_embedded,
    st_tree_destroy_internal, st_tree_set, st_tree_to_xml, st_tree_from_xml, st_tree_offset_update,
    st_tree_offset_remove, &st_tree::kDesc};

const KeyDesc tbl_trees_keys[] = {
    {"id", 8, 4, tbl_trees_st_tree_id_avl_compare, same_key<tbl_trees::id>, key_prefix<tbl_trees::id>, 24},
    {"name", 12, 8, tbl_trees_st_tree_name_avl_compare, same_key<tbl_trees::name>, key_prefix<tbl_trees::name>, 26},
};
void* tbl_trees_tbi_cache = nullptr;
const TableDesc tbl_trees::kDesc = {
    "tbl_trees", "//st_tree", table_tbl_trees_luid, table_tbl_trees_luid_text, &_tbl_trees_table_type_info_internal, &_tbl_trees_table_record_type_info_internal, &k_module,
    {&k_table_messages, 0, &g_kvt_toy_trace_module_id},
    {"st_tree", 144, st_tree_create, st_tree_create_internal, st_tree_destroy,
     st_tree_set_instance_embedded, st_tree_len, st_tree_marshal, st_tree_unmarshal, st_tree_to_xml,
     st_tree_from_xml},
    tbl_trees_keys, 2, 384, 88, 80, 208, &tbl_trees_tbi_cache};

}  // namespace schema_toy
}  // namespace kvt

// What the library exports: exactly the families of the schema's types, and what the committed list has.
#include <dlfcn.h>

#include <algorithm>
#include <set>

#include "tests/product/rig.h"

namespace product_test {
namespace {

using Names = std::vector<std::string>;

// The families as a user knows them; the schema compiler has a list of its own.
const Names kObject = {"adjust_variant",
                       "compare",
                       "create",
                       "create_cr",
                       "create_internal",
                       "destroy",
                       "destroy_cr",
                       "destroy_internal",
                       "from_xml",
                       "get",
                       "get_luid",
                       "hash",
                       "get_object_references",
                       "get_oid_count",
                       "initialize",
                       "is_valid_cr",
                       "len",
                       "len_cr",
                       "marshal",
                       "print",
                       "print_cr",
                       "set",
                       "sizeof",
                       "to_xml",
                       "set_instance_embedded",
                       "toxml_cr",
                       "unmarshal",
                       "variant_data_index_cap"};
const Names kStruct = {
    "clone",          "clone_cr",      "clone_internal",       "marshal_for_clone", "get_all",
    "offset_remove",  "offset_update", "post_copyout_cleanup", "set_all",           "set_all_state_tracking_flag",
    "sizeof_internal"};
const Names kScalar = {"get_value", "set_value"};
const Names kEnum = {"map_to_internal_value"};
const Names kFlag = {"get_cr", "in_range", "set_cr"};
const Names kField = {"get", "set", "state_flag_get", "state_flag_set"};
const Names kValueField = {"get_value", "set_value"};
const Names kReferenceField = {"get_by_ref",    "get_by_ref_cr",  "set_by_ref",
                               "set_by_ref_cr", "state_flag_get", "state_flag_set"};
const Names kTimerField = {"is_timer_running", "state_flag_get", "timer_callback_unsafe",
                           "timer_dump",       "timer_safe_set", "timer_safe_stop",
                           "timer_set",        "timer_stop"};
const Names kTable = {"create_record",
                      "create_record_w_src",
                      "delete",
                      "delete_cr",
                      "destroy_record",
                      "get_luid",
                      "get_next_by_key",
                      "get_next_by_key_w_src",
                      "get_prev_by_key",
                      "insert",
                      "insert_cr",
                      "pkey_create",
                      "pkey_delete",
                      "pkey_destroy",
                      "pkey_get_first",
                      "pkey_get_first_by_src",
                      "pkey_get_first_ignore_src",
                      "pkey_get_last",
                      "pkey_get_next",
                      "pkey_get_next_by_src",
                      "pkey_get_next_ignore_src",
                      "pkey_get_prev",
                      "pkey_get_shadow",
                      "pkey_get_sub_next",
                      "pkey_insert",
                      "pkey_print",
                      "record_add_ref",
                      "record_create_cr",
                      "record_destroy_cr",
                      "record_len_cr",
                      "record_marshal_cr",
                      "record_print_cr",
                      "record_toxml_cr",
                      "record_walk_cr",
                      "request_record_destroy",
                      "request_record_destroy_cr",
                      "request_table_free",
                      "search",
                      "search_w_src",
                      "table_close",
                      "table_close_cr",
                      "table_free",
                      "table_get_count",
                      "table_get_count_by_src",
                      "table_get_count_cr",
                      "table_open",
                      "table_open_auto_id",
                      "table_open_by_id",
                      "table_open_by_ior_with_id",
                      "table_open_by_ior_with_name",
                      "table_open_cr",
                      "table_pkey_len",
                      "table_pkey_marshal",
                      "table_pkey_unmarshal",
                      "table_record_create_cb",
                      "table_record_create_dm_cb",
                      "table_record_delete_cb",
                      "table_record_delete_dm_cb",
                      "table_record_free_cb",
                      "table_record_from_xml",
                      "table_record_grouping_cb",
                      "table_record_len",
                      "table_record_marshal",
                      "table_record_modify_cb",
                      "table_record_print",
                      "table_record_to_xml",
                      "table_record_unmarshal"};
const Names kPayload = {"free_and_set_field", "get_field", "get_field_detach", "set_field"};
const Names kKey = {"avl_compare",
                    "avl_internal_walk",
                    "get_cr",
                    "get_first",
                    "get_first_by_src",
                    "get_first_ignore_src",
                    "get_first_not_pending_destroy",
                    "get_last",
                    "get_last_not_pending_destroy",
                    "get_next",
                    "get_next_by_key",
                    "get_next_by_key_not_pending_destroy",
                    "get_next_by_key_w_src",
                    "get_next_by_src",
                    "get_next_ignore_src",
                    "get_next_internal",
                    "get_next_not_pending_destroy",
                    "get_prev",
                    "get_prev_by_key",
                    "get_prev_by_key_not_pending_destroy",
                    "get_prev_internal",
                    "get_prev_not_pending_destroy",
                    "get_shadow",
                    "get_sub_next",
                    "search",
                    "search_cr",
                    "search_internal",
                    "search_nearest",
                    "search_not_pending_destroy",
                    "search_w_src",
                    "unordered_traversal",
                    "walk"};

// Builds with sanitizers export and ask for names that are none of the library's.
bool is_of_sanitizers(const std::string& name) {
  for (const char* prefix : {"__asan_", "__ubsan_", "__sanitizer_", "__lsan_", "__odr_asan"}) {
    if (name.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

class Exports : public Product {
 protected:
  const std::string library = kBuild + "/libzarn_wlan.so";

  struct Symbol {
    char kind;
    std::string name;
  };
  std::vector<Symbol> symbols(const std::string& file, const std::string& which) const {
    std::vector<Symbol> list;
    for (const std::string& line : lines_of(done("LC_ALL=C nm -D " + which + " '" + file + "'"))) {
      std::istringstream words(line);
      std::string kind, name;
      if (line[0] != ' ') words >> name;
      words >> kind >> name;
      if (*ZARN_PRODUCT_FLAGS && is_of_sanitizers(name)) continue;
      list.push_back({kind.empty() ? '?' : kind[0], name});
    }
    return list;
  }
  std::set<std::string> exported() const {
    std::set<std::string> names;
    for (const Symbol& s : symbols(library, "--defined-only")) names.insert(s.name);
    return names;
  }

  // All names that the schema's types have, from the compiler's listing.
  std::set<std::string> by_rule() const {
    std::set<std::string> names = {"g_kvt_zarn_wlan_trace_module_id",
                                   "g_kvt_zarn_wlan_stub_trace_module_id",
                                   "kvt_zarn_wlan_trace_init",
                                   "zarn_wlan_typeinfo_initialize",
                                   "zarn_wlan_type_variant_dump",
                                   "zarn_wlan_bundle_handler_register",
                                   "zarn_wlan_bundle_handler_unregister",
                                   "zarn_wlan_bundle_registered_handler",
                                   "zarn_wlan_timer_callback_table",
                                   "zarn_wlan_timer_type_mrst_lookup",
                                   "wlan_timer_dispatch",
                                   "wlan_timer_queue_init"};
    std::set<std::string> value_types = {"u_int8", "u_int16", "u_int32", "u_int64", "kvt_boolean"};
    auto add = [&](const std::string& prefix, const Names& family) {
      for (const std::string& operation : family) names.insert(prefix + "_" + operation);
    };
    // Enumerated types of all modules have value accessors as fields; the listing tells which types they are.
    const std::string listing = done("'" + kBuild + "/schema/zarnc' --list '" + kSource + "'/schema/*.zs");
    for (const std::string& line : lines_of(listing)) {
      std::istringstream words(line);
      std::string number, kind, name;
      words >> number >> kind >> name;
      if (kind == "enum") value_types.insert(name);
    }
    bool own = false;
    std::string type, payload;
    for (const std::string& line : lines_of(listing)) {
      std::istringstream words(line);
      std::string first, second, third;
      words >> first >> second >> third;
      if (first == "module") {
        own = second == "zarn_wlan";
      } else if (!own) {
        continue;
      } else if (first == "field") {
        const std::string prefix = type + "_" + second;
        if (third == "timer") {
          add(prefix, kTimerField);
          names.insert(type + "_timer_callback_table");
        } else if (third == "kvt_oid") {
          add(prefix, kReferenceField);
        } else {
          add(prefix, kField);
          if (value_types.count(third)) add(prefix, kValueField);
        }
      } else if (first == "payload") {
        payload = second;
        add(type + "_" + payload, kPayload);
      } else if (first == "key") {
        add(type + "_" + payload + "_" + second, kKey);
      } else if (second == "struct" || second == "enum" || second == "flag") {
        type = third;
        add(type, kObject);
        add(type, second == "struct" ? kStruct : kScalar);
        if (second == "enum") add(type, kEnum);
        if (second == "flag") add(type, kFlag);
        names.insert("_" + type + "_type_info_internal");
      } else if (second == "table") {
        type = third;
        add(type, kTable);
        add("table_" + type, {"luid", "luid_text", "name"});
        add("_" + type, {"table_type_info_internal", "table_record_type_info_internal"});
      }
    }
    return names;
  }
};

TEST_F(Exports, AreExactlyTheFamiliesOfTheSchema) {
  const std::set<std::string> found = exported(), expected = by_rule();
  Names extra, missing;
  std::set_difference(found.begin(), found.end(), expected.begin(), expected.end(), std::back_inserter(extra));
  std::set_difference(expected.begin(), expected.end(), found.begin(), found.end(), std::back_inserter(missing));
  EXPECT_EQ(extra, Names{}) << "exported, but of no family";
  EXPECT_EQ(missing, Names{}) << "of a family, but not exported";
}

TEST_F(Exports, AreTheCommittedOnes) {
  std::string text;
  for (const std::string& name : exported()) text += name + "\n";
  expect_golden("exports.txt", text);
}

TEST_F(Exports, AreFunctionsAndConstantsOnly) {
  for (const Symbol& s : symbols(library, "--defined-only")) {
    const bool variable =
        s.name.find("_trace_module_id") != std::string::npos || s.name == "zarn_wlan_bundle_registered_handler";
    EXPECT_NE(std::string(variable ? "BD" : "TRD").find(s.kind), std::string::npos) << s.kind << " " << s.name;
  }
}

// An application may have a handler for each event callback, or not.
TEST_F(Exports, HandlersAreWeakReferences) {
  std::set<std::string> wanted, weak;
  for (const std::string& name : exported()) {
    const std::size_t end = name.size() - 3;
    if (name.size() > 3 && name.substr(end) == "_cb" && name.rfind("tbl_", 0) == 0)
      wanted.insert("zarn_wlan_" + name.substr(0, end) + "_handler");
  }
  EXPECT_EQ(wanted.size(), 49u);
  for (const Symbol& s : symbols(library, "--undefined-only")) {
    if (s.kind == 'w' && s.name.rfind("zarn_wlan_tbl_", 0) == 0) weak.insert(s.name);
  }
  EXPECT_EQ(weak, wanted);
}

// What the library needs comes from the runtime below it or, with a version, from the system.
TEST_F(Exports, NeedsTheRuntimeAndTheSystemOnly) {
  std::set<std::string> runtime;
  for (const Symbol& s : symbols(kBuild + "/platform/libkvt.so", "--defined-only")) runtime.insert(s.name);
  for (const Symbol& s : symbols(library, "--undefined-only")) {
    if (s.kind == 'w') continue;  // handlers of applications, and the compiler's own start-up hooks
    // Sanitizers give functions of the system under their plain names; this program has them too.
    EXPECT_TRUE(runtime.count(s.name) || s.name.find("@G") != std::string::npos ||
                s.name.find("@CXXABI") != std::string::npos ||
                (*ZARN_PRODUCT_FLAGS && dlsym(RTLD_DEFAULT, s.name.c_str())))
        << s.name;
  }
}

}  // namespace
}  // namespace product_test

// Every export of a type as a call that can be made: what holds of all operations, or of all but a few, is so tested on
// all of them, over all struct, enumerated and flag types.
#pragma once

#include <iterator>
#include <tuple>
#include <type_traits>

#include "rig.h"

namespace module_test {

// Calls a function with words in place of its integer and pointer arguments, each cast to what is declared.
template <class R, class... A>
void call_with_words(R (*function)(A...), const std::vector<std::uintptr_t>& words) {
  ASSERT_EQ(words.size(), sizeof...(A));
  std::size_t next = sizeof...(A);
  // Braces evaluate from left to right.
  std::tuple<A...> arguments{[&] {
    const std::uintptr_t word = words[words.size() - next--];
    if constexpr (std::is_pointer_v<A>) {
      return reinterpret_cast<A>(word);
    } else {
      return static_cast<A>(word);
    }
  }()...};
  std::apply(function, arguments);
}

// get_all and set_all have an argument for each value field, so their types are the headers' to tell.
struct AllCalls {
  std::function<void(const std::vector<std::uintptr_t>&)> get_all, set_all;
};
// The formatter has no stable form for this.
// clang-format off
#define ALL_STRUCTS(X) \
  X(st_local_eap_auth) X(st_wlan_aaa_settings) X(st_user_qos_policy) X(st_wlan_qos_settings) \
  X(st_wlan_policies_settings) X(st_wlan_access_policies_settings) X(st_web_pre_auth_acl) \
  X(st_l3_security_settings) X(st_dot11_encryption_template) X(st_static_wep) X(st_dot1x) X(wpa_psk_type) \
  X(wpa_ft_type) X(wpa_dorp_type) X(st_mpsk_key_info) X(st_mpsk_key_info_notify) X(st_wpa_auth_key_mgmt) \
  X(st_wpa_encryption) X(st_wpa3_sae_params) X(st_wpa_wpa2) X(st_ft_params) X(st_wpa_ft_params) X(st_pmf_params) \
  X(st_wpa_pmf_params) X(st_l2_auth_type) X(st_l2_security_settings) X(st_wlan_security_settings) X(st_dtim) \
  X(st_wlan_timeout_settings) X(st_wlan_client_settings) X(st_wlan_data_acl_override) X(st_channel_scan) \
  X(st_voice) X(st_assisted_roaming_settings) X(st_multicast_buffer_tuning) X(st_802_11v) X(st_802_11ax) \
  X(st_sched_cfg) X(st_device_analytics) X(st_laa_params) X(st_dot11k_rm_beacon_meas_req) \
  X(st_wlan_feature_settings) X(st_wlan_ifid) X(st_internal_wlan_radio_policy) \
  X(st_internal_wlan_radio_policy_notify) X(st_wlan) X(st_wlan_notify) X(st_wireless_aaa_policy_notify) \
  X(st_nas_id_aaa) X(st_wireless_aaa_policy)
// clang-format on
#define ALL_CALLS(T)                                                                       \
  {#T,                                                                                     \
   {[](const std::vector<std::uintptr_t>& words) { call_with_words(T##_get_all, words); }, \
    [](const std::vector<std::uintptr_t>& words) { call_with_words(T##_set_all, words); }}},
inline const std::map<std::string, AllCalls>& all_calls() {
  static const std::map<std::string, AllCalls> calls = {ALL_STRUCTS(ALL_CALLS)};
  return calls;
}

inline std::uintptr_t word(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
inline std::vector<std::uintptr_t> words_for(Rig& rig, void* object, const std::vector<std::uintptr_t>& middle,
                                             int* err = nullptr) {
  std::vector<std::uintptr_t> words = {word(rig.h), rig.txn, word(object)};
  words.insert(words.end(), middle.begin(), middle.end());
  words.push_back(word(err ? err : &rig.err));
  return words;
}

// A set of the words of a text.
inline std::set<std::string> words(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), {}};
}

enum class Family { kStruct, kEnum, kFlag };

// A type whose objects stand alone.
struct Subject {
  std::string name;
  Family family;
  const Type* type;  // of a struct
  int top;
  std::uint32_t size, block;  // of a new object
};

inline constexpr const char* kFlagNames[] = {"flg_internal_wlan_radio_policy_notify", "flg_mpsk_key_info_notify",
                                             "flg_wireless_aaa_policy_notify"};

inline const std::vector<Subject>& all_subjects() {
  static const std::vector<Subject> subjects = [] {
    std::vector<Subject> all;
    for (const Type& type : all_types()) {
      all.push_back({type.name, Family::kStruct, &type, type.top(), type.size.back(), type.block.back()});
    }
    for (const auto& [name, enumerators] : Catalogue::get().enums) {
      int top = 0;
      for (const Enumerator& e : enumerators) top = std::max(top, e.since);
      all.push_back({name, Family::kEnum, nullptr, top, 12, 0});
    }
    for (const char* name : kFlagNames) all.push_back({name, Family::kFlag, nullptr, 0, 12, 0});
    return all;
  }();
  return subjects;
}

// How an operation hears of errors: by a slot of its own, by the handle's last error, or not at all.
enum class Errors { kNone, kSlot, kLast };

struct Call {
  std::string name;    // of the export
  std::string op;      // the part behind the type's name; for a field's operation "f" and the part behind the field's
  const Field* field;  // null: of the whole object
  Errors errors;
  std::function<std::uintptr_t(int* err)> run;
};

// Two filled objects of a type, the second one's serial forms, and all calls on the first. References are empty.
class Bench {
 public:
  Bench(Rig& rig, const Subject& subject) : rig(rig), subject(subject) {
    object = make();
    other = make();
    fill_object(object, 1);
    fill_object(other, 2);
    wire.resize(1 << 16);
    // One byte more than was written: behind a reference that ends an object a state byte is read only if there are
    // two.
    wire.resize(1 + fn<Marshal>(subject.name + "_marshal")(rig.h, rig.txn, wire.data(), other, 1 << 16, &rig.err));
    std::string text(1 << 16, '\0');
    text.resize(fn<ToXml>(subject.name + "_to_xml")(rig.h, rig.txn, "top", text.data(), other, 1 << 16, 0, &rig.err));
    document = kvt_xml_parse(text.data(), text.size(), nullptr, 0);
    EXPECT_NE(document, nullptr) << subject.name;
    EXPECT_EQ(rig.take_err(), 0) << subject.name;
    room.assign(1 << 16, '\xCC');
    if (subject.family == Family::kStruct) {
      add_struct_calls();
    } else {
      add_scalar_calls();
    }
  }
  ~Bench() {
    destroy(object);
    destroy(other);
    kvt_xml_free(document);
  }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  char* make() { return static_cast<char*>(fn<Create>(subject.name + "_create")(rig.h, rig.txn)); }
  void destroy(char* which) { fn<Destroy>(subject.name + "_destroy")(rig.h, rig.txn, which); }
  // Content that differs between the seeds 1 and 2.
  void fill_object(char* which, std::uint64_t seed) {
    if (subject.family == Family::kStruct) {
      fill(rig, *subject.type, which, seed);
      for (const Slot& slot : slots_of(*subject.type, which)) {
        if (kind_of(*slot.field) == Kind::kReference) std::memset(slot.at() + 8, 0, 40);
      }
    } else {
      which[subject.family == Family::kEnum ? 8 : 7] = static_cast<char>(seed & 1 ? 0 : 1);
    }
  }
  // Lets the call have something to change.
  void prepare(const Call& call) {
    static const std::set<std::string> changing = words(
        "set set_value set_all post_copyout_cleanup unmarshal from_xml set_cr destroy destroy_cr destroy_internal");
    if (call.field) {
      refill(*call.field);
    } else if (changing.count(call.op)) {
      fill_object(object, 1);
    }
  }
  // Takes back what a create gave, and puts a new object in the place of one that is gone or lost its offsets.
  void settle(const Call& call, std::uintptr_t result) {
    const bool created = call.op.starts_with("create"), gone = call.op.starts_with("destroy");
    if (created && rig.blocks.count(reinterpret_cast<char*>(result))) destroy(reinterpret_cast<char*>(result));
    if (call.op.starts_with("offset_")) destroy(object);
    if (gone || call.op.starts_with("offset_")) fill_object(object = make(), 1);
  }
  // The object's block, whole.
  std::string image(const char* which) const { return std::string(which, rig.blocks.at(const_cast<char*>(which))); }
  char* block_of(char* which) const { return which + subject.size; }

  Rig& rig;
  const Subject& subject;
  char *object, *other;
  std::vector<std::uint8_t> wire;
  kvt_xml_document* document;
  std::vector<Call> calls;
  char message[64] = "";
  std::vector<std::uint64_t> outs;  // of get_all
  std::string room;                 // for what is written out

 private:
  using Run = std::function<std::uintptr_t(int*)>;
  void add(const std::string& op, Errors errors, Run run) {
    calls.push_back({subject.name + "_" + op, op, nullptr, errors, std::move(run)});
  }
  void add_field(const Field& f, const std::string& op, Run run) {
    calls.push_back({subject.name + "_" + f.name + "_" + op, "f_" + op, &f, Errors::kSlot, std::move(run)});
  }
  template <class F>
  F* op(const std::string& name) const {
    return fn<F>(subject.name + "_" + name);
  }
  void refill(const Field& f) {
    if (kind_of(f) == Kind::kStruct) return fill_object(object, 1);
    std::uint64_t number = 0;
    for (const Slot& slot : slots_of(*subject.type, object)) {
      ++number;
      if (slot.object == object && slot.field->name == f.name && has_set(f)) fill_slot(rig, slot, number, 1);
    }
  }
  std::uint64_t value_for(const Field& f) { return std::stoull(content_of({"", subject.type, &f, other, 0, 0})); }
  char* buffer() { return room.data(); }

  void add_common_calls() {
    H h = rig.h;
    const Txn& t = rig.txn;
    for (const char* name : {"create", "create_internal"}) {
      add(name, Errors::kNone, [=, this, &t](int*) { return word(op<Create>(name)(h, t)); });
    }
    add("create_cr", Errors::kLast, [=, this](int*) { return word(op<void*(H)>("create_cr")(h)); });
    add("initialize", Errors::kSlot, [=, this, &t](int* err) {
      op<Initialize>("initialize")(h, t, object, record_of(subject.name), 1, 0, 0, nullptr, err);
      return 0;
    });
    add("destroy", Errors::kNone, [=, this, &t](int*) { return op<Destroy>("destroy")(h, t, object), 0; });
    add("destroy_internal", Errors::kNone,
        [=, this, &t](int*) { return op<void(H, Txn, void*, int)>("destroy_internal")(h, t, object, 1), 0; });
    add("destroy_cr", Errors::kNone, [=, this](int*) { return op<void(H, void*)>("destroy_cr")(h, object), 0; });
    add("sizeof", Errors::kNone, [=, this](int*) { return op<Sizeof>("sizeof")(h); });
    add("set_instance_embedded", Errors::kNone,
        [=, this, &t](int*) { return op<Destroy>("set_instance_embedded")(h, t, object), 0; });
    add("adjust_variant", Errors::kSlot,
        [=, this, &t](int* err) { return op<void(H, Txn, void*, int*)>("adjust_variant")(h, t, object, err), 0; });
    add("variant_data_index_cap", Errors::kNone, [=, this](int*) {
      return static_cast<std::uintptr_t>(op<std::int32_t(std::int32_t)>("variant_data_index_cap")(100));
    });
    add("get_luid", Errors::kSlot,
        [=, this, &t](int* err) { return word(op<GetLuid>("get_luid")(h, t, object, err)); });
    add("marshal", Errors::kSlot, [=, this, &t](int* err) {
      return op<Marshal>("marshal")(h, t, reinterpret_cast<std::uint8_t*>(buffer()), object, 1 << 16, err);
    });
    add("unmarshal", Errors::kSlot, [=, this, &t](int* err) {
      return op<Unmarshal>("unmarshal")(h, t, wire.data(), object, static_cast<std::int32_t>(wire.size()), 0, err);
    });
    add("len", Errors::kNone, [=, this, &t](int*) { return op<Len>("len")(h, t, object); });
    add("compare", Errors::kNone,
        [=, this](int*) { return static_cast<std::uintptr_t>(op<Compare>("compare")(object, other)); });
    add("to_xml", Errors::kSlot,
        [=, this, &t](int* err) { return op<ToXml>("to_xml")(h, t, "top", buffer(), object, 1 << 16, 0, err); });
    add("toxml_cr", Errors::kLast,
        [=, this](int*) { return static_cast<std::uintptr_t>(op<ToXmlCr>("toxml_cr")(h, object, buffer(), 1 << 16)); });
    add("from_xml", Errors::kSlot, [=, this, &t](int* err) {
      op<FromXml>("from_xml")(h, t, "//top", document, object, err, message, sizeof message);
      return 0;
    });
    add("get_oid_count", Errors::kSlot, [=, this, &t](int* err) {
      return op<std::uint32_t(H, Txn, const void*, int*)>("get_oid_count")(h, t, object, err);
    });
    add("get_object_references", Errors::kSlot, [=, this, &t](int* err) {
      void* out[4] = {};
      op<void(H, Txn, const void*, void**, std::uint32_t, int*)>("get_object_references")(h, t, object, out, 4, err);
      return word(out[0]);
    });
    add("print", Errors::kSlot,
        [=, this, &t](int* err) { return op<Print>("print")(h, t, buffer(), 1, "top", object, 1 << 16, err); });
    add("print_cr", Errors::kLast,
        [=, this](int*) { return static_cast<std::uintptr_t>(op<PrintCr>("print_cr")(h, object, buffer(), 1 << 16)); });
    add("hash", Errors::kNone, [=, this](int*) { return op<Hash>("hash")(object, 7); });
  }

  void add_struct_calls() {
    add_common_calls();
    H h = rig.h;
    const Txn& t = rig.txn;
    add("sizeof_internal", Errors::kNone,
        [=, this](int*) { return op<SizeofInternal>("sizeof_internal")(h, object, 1, 0); });
    add("set_all_state_tracking_flag", Errors::kNone,
        [=, this, &t](int*) { return op<StateAll>("set_all_state_tracking_flag")(h, t, object, 0x33), 0; });
    add("is_valid_cr", Errors::kLast, [=, this](int*) { return op<IsValid>("is_valid_cr")(h, object, 0, 0); });
    add("offset_update", Errors::kNone,
        [=, this, &t](int*) { return op<OffsetUpdate>("offset_update")(h, t, object, block_of(object)), 0; });
    add("offset_remove", Errors::kSlot,
        [=, this, &t](int* err) { return op<OffsetRemove>("offset_remove")(h, t, object, err), 0; });
    add("post_copyout_cleanup", Errors::kSlot,
        [=, this, &t](int* err) { return word(op<PostCopyout>("post_copyout_cleanup")(h, t, object, other, err)); });
    // These two do not look at the slot.
    add("get", Errors::kNone, [=, this, &t](int* err) { return word(op<Get>("get")(h, t, object, err)); });
    add("set", Errors::kNone, [=, this, &t](int* err) { return op<Set>("set")(h, t, object, other, err), 0; });
    add("len_cr", Errors::kLast, [=, this](int*) { return op<std::uint32_t(H, const void*)>("len_cr")(h, object); });
    outs.assign(subject.type->fields.size(), 0);
    add("get_all", Errors::kSlot, [=, this](int* err) {
      std::vector<std::uintptr_t> args;
      for (const Field& f : subject.type->fields) {
        if (has_value(f)) args.push_back(word(&outs[args.size()]));
      }
      return all_calls().at(subject.name).get_all(words_for(rig, object, args, err)), 0;
    });
    add("set_all", Errors::kSlot, [=, this](int* err) {
      std::vector<std::uintptr_t> args;
      for (const Field& f : subject.type->fields) {
        if (has_value(f)) args.push_back(value_for(f));
      }
      return all_calls().at(subject.name).set_all(words_for(rig, object, args, err)), 0;
    });
    for (const Field& f : subject.type->fields) add_field_calls(f);
  }

  void add_field_calls(const Field& f) {
    H h = rig.h;
    const Txn& t = rig.txn;
    const std::string prefix = f.name + "_";
    add_field(f, "state_flag_get",
              [=, this, &t](int* err) { return op<StateGet>(prefix + "state_flag_get")(h, t, object, err); });
    if (kind_of(f) != Kind::kTimer) {
      add_field(f, "state_flag_set", [=, this, &t](int* err) {
        return op<StateSet>(prefix + "state_flag_set")(h, t, object, 0x44, err), 0;
      });
    }
    if (!has_set(f)) return;
    add_field(f, "get", [=, this, &t](int* err) { return word(op<Get>(prefix + "get")(h, t, object, err)); });
    add_field(f, "set",
              [=, this, &t, &f](int* err) { return op<Set>(prefix + "set")(h, t, object, other + f.offset, err), 0; });
    if (!has_value(f)) return;
    add_field(f, "get_value", [this, &f](int* err) {
      return static_cast<std::uintptr_t>(call_get_value(*subject.type, f, rig.h, rig.txn, object, err));
    });
    add_field(f, "set_value", [this, &f](int* err) {
      return call_set_value(*subject.type, f, rig.h, rig.txn, object, value_for(f), err), 0;
    });
  }

  void add_scalar_calls() {
    add_common_calls();
    H h = rig.h;
    const Txn& t = rig.txn;
    const bool is_enum = subject.family == Family::kEnum;
    add("get", Errors::kNone, [=, this, &t](int*) { return word(op<void*(H, Txn, void*)>("get")(h, t, object)); });
    add("set", Errors::kSlot, [=, this, &t](int* err) { return op<Set>("set")(h, t, object, other, err), 0; });
    add("is_valid_cr", Errors::kLast,
        [=, this](int*) { return op<std::uint32_t(H, std::uint32_t)>("is_valid_cr")(h, 0); });
    if (is_enum) {
      add("len_cr", Errors::kLast, [=, this](int*) { return op<std::uint32_t(H)>("len_cr")(h); });
      add("map_to_internal_value", Errors::kNone,
          [=, this](int*) { return op<std::uint32_t(std::uint32_t)>("map_to_internal_value")(1); });
      add("get_value", Errors::kSlot,
          [=, this, &t](int* err) { return op<GetValue<std::uint32_t>>("get_value")(h, t, object, err); });
      add("set_value", Errors::kSlot,
          [=, this, &t](int* err) { return op<SetValue<std::uint32_t>>("set_value")(h, t, object, 1, err), 0; });
      return;
    }
    add("len_cr", Errors::kLast, [=, this](int*) { return op<std::uint32_t(H, const void*)>("len_cr")(h, object); });
    add("in_range", Errors::kNone, [=, this](int*) { return op<std::uint32_t(std::uint32_t)>("in_range")(0); });
    add("get_value", Errors::kSlot, [=, this, &t](int* err) {
      return op<std::uint32_t(H, Txn, void*, std::uint32_t, int*)>("get_value")(h, t, object, 0, err);
    });
    add("set_value", Errors::kSlot, [=, this, &t](int* err) {
      op<void(H, Txn, void*, std::uint32_t, std::uint32_t, int*)>("set_value")(h, t, object, 0, 1, err);
      return 0;
    });
    add("get_cr", Errors::kLast,
        [=, this](int*) { return op<std::uint32_t(H, void*, std::uint32_t)>("get_cr")(h, object, 0); });
    add("set_cr", Errors::kLast, [=, this](int*) {
      return static_cast<std::uintptr_t>(
          op<std::int32_t(H, void*, std::uint32_t, std::uint32_t)>("set_cr")(h, object, 0, 1));
    });
  }
};

}  // namespace module_test

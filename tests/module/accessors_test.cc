// Tests of the field accessors and of whole-object copies: every field of every type, at and below its variant.
#include "rig.h"

namespace module_test {
namespace {

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
#define ALL_CALLS(T)                                                                            \
  {                                                                                             \
#T, {                                                                                       \
      [](const std::vector<std::uintptr_t>& words) { call_with_words(T##_get_all, words); },    \
          [](const std::vector<std::uintptr_t>& words) { call_with_words(T##_set_all, words); } \
    }                                                                                           \
  }
const std::map<std::string, AllCalls> kAllCalls = {ALL_CALLS(st_local_eap_auth),
                                                   ALL_CALLS(st_wlan_aaa_settings),
                                                   ALL_CALLS(st_user_qos_policy),
                                                   ALL_CALLS(st_wlan_qos_settings),
                                                   ALL_CALLS(st_wlan_policies_settings),
                                                   ALL_CALLS(st_wlan_access_policies_settings),
                                                   ALL_CALLS(st_web_pre_auth_acl),
                                                   ALL_CALLS(st_l3_security_settings),
                                                   ALL_CALLS(st_dot11_encryption_template),
                                                   ALL_CALLS(st_static_wep),
                                                   ALL_CALLS(st_dot1x),
                                                   ALL_CALLS(wpa_psk_type),
                                                   ALL_CALLS(wpa_ft_type),
                                                   ALL_CALLS(wpa_dorp_type),
                                                   ALL_CALLS(st_mpsk_key_info),
                                                   ALL_CALLS(st_mpsk_key_info_notify),
                                                   ALL_CALLS(st_wpa_auth_key_mgmt),
                                                   ALL_CALLS(st_wpa_encryption),
                                                   ALL_CALLS(st_wpa3_sae_params),
                                                   ALL_CALLS(st_wpa_wpa2),
                                                   ALL_CALLS(st_ft_params),
                                                   ALL_CALLS(st_wpa_ft_params),
                                                   ALL_CALLS(st_pmf_params),
                                                   ALL_CALLS(st_wpa_pmf_params),
                                                   ALL_CALLS(st_l2_auth_type),
                                                   ALL_CALLS(st_l2_security_settings),
                                                   ALL_CALLS(st_wlan_security_settings),
                                                   ALL_CALLS(st_dtim),
                                                   ALL_CALLS(st_wlan_timeout_settings),
                                                   ALL_CALLS(st_wlan_client_settings),
                                                   ALL_CALLS(st_wlan_data_acl_override),
                                                   ALL_CALLS(st_channel_scan),
                                                   ALL_CALLS(st_voice),
                                                   ALL_CALLS(st_assisted_roaming_settings),
                                                   ALL_CALLS(st_multicast_buffer_tuning),
                                                   ALL_CALLS(st_802_11v),
                                                   ALL_CALLS(st_802_11ax),
                                                   ALL_CALLS(st_sched_cfg),
                                                   ALL_CALLS(st_device_analytics),
                                                   ALL_CALLS(st_laa_params),
                                                   ALL_CALLS(st_dot11k_rm_beacon_meas_req),
                                                   ALL_CALLS(st_wlan_feature_settings),
                                                   ALL_CALLS(st_wlan_ifid),
                                                   ALL_CALLS(st_internal_wlan_radio_policy),
                                                   ALL_CALLS(st_internal_wlan_radio_policy_notify),
                                                   ALL_CALLS(st_wlan),
                                                   ALL_CALLS(st_wlan_notify),
                                                   ALL_CALLS(st_wireless_aaa_policy_notify),
                                                   ALL_CALLS(st_nas_id_aaa),
                                                   ALL_CALLS(st_wireless_aaa_policy)};

std::vector<std::uintptr_t> words_for(Rig& rig, void* object, const std::vector<std::uintptr_t>& middle) {
  std::vector<std::uintptr_t> words = {reinterpret_cast<std::uintptr_t>(rig.h), rig.txn,
                                       reinterpret_cast<std::uintptr_t>(object)};
  words.insert(words.end(), middle.begin(), middle.end());
  words.push_back(reinterpret_cast<std::uintptr_t>(&rig.err));
  return words;
}

TEST(FieldAccess, SetStoresAtThePublishedPlaceAndGetGivesItBack) {
  for (Place place : kPlaces) {
    Rig rig(Tracking::kOn, place);
    for (const Type& type : all_types()) {
      char* object = rig.make(type);
      fill(rig, type, object, 2);
      std::uint64_t number = 0;
      for (const Slot& slot : slots_of(type, object)) {
        ++number;
        if (!has_set(*slot.field) || kind_of(*slot.field) == Kind::kStruct) continue;
        Contents expected = contents_of(type, object);
        EXPECT_TRUE(announces_all(rig, [&] { fill_slot(rig, slot, number, 1); })) << slot.path;
        // Only this field changes, and the content is as the tables place it.
        EXPECT_NE(std::exchange(expected[slot.path], content_of(slot)), content_of(slot)) << slot.path;
        EXPECT_EQ(contents_of(type, object), expected) << slot.path;
        EXPECT_EQ(fn<Get>(slot.owner->name + "_" + slot.field->name + "_get")(rig.h, rig.txn, slot.object, &rig.err),
                  slot.at());
        if (has_value(*slot.field)) {
          EXPECT_EQ(std::to_string(call_get_value(*slot.owner, *slot.field, rig.h, rig.txn, slot.object, &rig.err)),
                    content_of(slot));
        }
        EXPECT_EQ(rig.take_err(), 0) << slot.path;
      }
      EXPECT_EQ(fn<Get>(type.name + "_get")(rig.h, rig.txn, object, &rig.err), object);
      rig.destroy(type, object);
      EXPECT_TRUE(rig.blocks.empty()) << type.name;
    }
  }
}

TEST(FieldAccess, BelowItsVariantAFieldIsRefusedUntilTheDomainAllowsIt) {
  for (const Type& type : all_types()) {
    for (int limit = 0; limit < type.top(); ++limit) {
      Rig rig;
      kvt_domain_set_variant(rig.h, record_of(type.name), limit);
      char* object = rig.make(type);
      ASSERT_EQ(object[4], limit);
      for (const Field& f : type.fields) {
        if (!has_set(f)) continue;
        SCOPED_TRACE(type.name + "." + f.name + " at variant " + std::to_string(limit));
        const std::string before(object, type.size.back());
        const int expected = f.variant > limit ? 43 : 0;
        const std::string name = type.name + "_" + f.name;
        void* at = fn<Get>(name + "_get")(rig.h, rig.txn, object, &rig.err);
        EXPECT_EQ(rig.h->last_error, expected);
        EXPECT_EQ(rig.take_err(), expected);
        EXPECT_EQ(at, expected ? nullptr : object + f.offset);
        alignas(8) char source[512] = {};
        if (expected) fn<Set>(name + "_set")(rig.h, rig.txn, object, source, &rig.err);
        EXPECT_EQ(rig.take_err(), expected);
        if (has_value(f)) {
          call_get_value(type, f, rig.h, rig.txn, object, &rig.err);
          EXPECT_EQ(rig.take_err(), expected);
          call_set_value(type, f, rig.h, rig.txn, object, 1, &rig.err);
          EXPECT_EQ(rig.take_err(), expected);
        }
        if (expected) {
          EXPECT_EQ(std::string(object, before.size()), before);
        }
      }
      kvt_domain_set_variant(rig.h, record_of(type.name), limit + 1);
      for (const Field& f : type.fields) {
        if (f.variant != limit + 1 || !has_value(f)) continue;
        call_get_value(type, f, rig.h, rig.txn, object, &rig.err);
        if (object[4] == limit) {
          EXPECT_EQ(rig.take_err(), 43) << "a read raises nothing: " << f.name;
        }
        call_set_value(type, f, rig.h, rig.txn, object, 1, &rig.err);
        EXPECT_EQ(rig.take_err(), 0) << f.name;
        EXPECT_EQ(object[4], limit + 1);
      }
      rig.destroy(type, object);
    }
  }
}

// The published bounds, one for each variant, say which indexes are its fields'.
TEST(IsValid, GoesByTheVariantThatAnIndexCameWith) {
  for (const Type& type : all_types()) {
    Rig rig;
    char* object = rig.make(type);
    const auto valid = fn<IsValid>(type.name + "_is_valid_cr");
    for (int domain = 0; domain <= type.top(); ++domain) {
      kvt_domain_set_variant(rig.h, record_of(type.name), domain);
      for (int own = 0; own <= type.top(); ++own) {
        object[4] = static_cast<char>(own);
        for (std::uint32_t index = 0; index <= type.bound.back(); ++index) {
          const auto group = std::upper_bound(type.bound.begin(), type.bound.end(), index);
          const int needed = group == type.bound.end() ? 127 : static_cast<int>(group - type.bound.begin());
          EXPECT_EQ(valid(rig.h, object, index, 0), needed <= std::min(domain, own)) << type.name << index;
          EXPECT_EQ(valid(rig.h, object, index, 1), needed <= domain) << type.name << index;
        }
      }
    }
    const auto cap = fn<std::int32_t(std::int32_t)>(type.name + "_variant_data_index_cap");
    EXPECT_EQ(cap(-3), -3);
    EXPECT_EQ(cap(type.top() + 1), type.top());
    rig.destroy(type, object);
  }
}

TEST(AllFields, AreReadAndStoredUpToTheVariantAndMarkNothing) {
  ASSERT_EQ(kAllCalls.size(), all_types().size());
  for (const Type& type : all_types()) {
    for (int variant = 0; variant <= type.top(); ++variant) {
      SCOPED_TRACE(type.name + " at variant " + std::to_string(variant));
      Rig rig(Tracking::kOn);
      kvt_domain_set_variant(rig.h, record_of(type.name), variant);
      char* object = rig.make(type);
      fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 5);
      std::vector<std::uintptr_t> values, outs;
      std::vector<std::uint64_t> results(type.fields.size(), 0xEEEEEEEEEEEEEEEE);
      for (const Field& f : type.fields) {
        if (!has_value(f)) continue;
        outs.push_back(reinterpret_cast<std::uintptr_t>(&results[values.size()]));
        values.push_back(sample(f, values.size(), 1));
      }
      EXPECT_TRUE(announces_all(rig, [&] { kAllCalls.at(type.name).set_all(words_for(rig, object, values)); }));
      EXPECT_EQ(rig.take_err(), 0);
      kAllCalls.at(type.name).get_all(words_for(rig, object, outs));
      EXPECT_EQ(rig.take_err(), 0);
      std::size_t next = 0;
      for (const Slot& slot : slots_of(type, object)) {
        if (slot.object != object || !has_value(*slot.field)) continue;
        std::uint64_t value = 0;
        const std::uint64_t mask = ~std::uint64_t{0} >> (64 - 8 * value_width(*slot.field));
        if (slot.variant <= variant) value = values[next];
        EXPECT_EQ(content_of(slot), std::to_string(value)) << slot.path;
        EXPECT_EQ(results[next] & mask, slot.variant <= variant ? value : 0xEEEEEEEEEEEEEEEE & mask) << slot.path;
        ++next;
      }
      const std::uint32_t block = type.block.back();
      EXPECT_EQ(std::string(object + type.size.back(), block), std::string(block, '\5'));
      rig.destroy(type, object);
    }
  }
}

TEST(SetObject, CopiesDeepAndGivesTheOldContentBack) {
  for (Place place : kPlaces) {
    for (Tracking tracking : kTrackings) {
      Rig rig(tracking, place);
      for (const Type& type : all_types()) {
        SCOPED_TRACE(type.name + " in " + name_of(place) + ", tracking " + name_of(tracking));
        const auto set = fn<Set>(type.name + "_set");
        char* source = rig.make(type);
        fill(rig, type, source, 1);
        const std::size_t filled = rig.blocks.size();
        char* dest = rig.make(type);
        fill(rig, type, dest, 2);
        const Contents expected = contents_of(type, source);
        EXPECT_TRUE(announces_all(rig, [&] { set(rig.h, rig.txn, dest, source, &rig.err); }));
        EXPECT_EQ(rig.take_err(), 0);
        EXPECT_EQ(contents_of(type, dest), expected);
        EXPECT_EQ(rig.blocks.size(), 2 * filled) << "shared or leaked strings";
        if (rig.tracked()) {
          const std::uint32_t size = type.size.back(), block = type.block.back();
          EXPECT_EQ(std::string(dest + size, block), std::string(source + size, block));
          EXPECT_FALSE(dest[6] & KVT_OBJ_STTR_OFFSET);
        }
        set(rig.h, rig.txn, dest, dest, &rig.err);
        EXPECT_EQ(contents_of(type, dest), expected);
        fill(rig, type, source, 2);
        EXPECT_EQ(contents_of(type, dest), expected);
        rig.destroy(type, source);
        EXPECT_EQ(contents_of(type, dest), expected);
        rig.destroy(type, dest);
        EXPECT_TRUE(rig.blocks.empty());
      }
    }
  }
}

TEST(SetObject, WithAnyAllocationFailingLeavesEveryStringOneOwner) {
  for (const char* name : {"st_user_qos_policy", "wpa_psk_type", "st_wlan"}) {
    const Type& type = type_of(name);
    bool all_passed = false;
    for (int failures = 0; !all_passed; ++failures) {
      Rig rig(Tracking::kOn);
      char* source = rig.make(type);
      fill(rig, type, source, 1);
      const Contents before = contents_of(type, source);
      char* dest = rig.make(type);
      fill(rig, type, dest, 2);
      rig.fail_after = failures;
      fn<Set>(type.name + "_set")(rig.h, rig.txn, dest, source, &rig.err);
      all_passed = rig.fail_after >= 0;
      rig.fail_after = -1;
      EXPECT_EQ(rig.take_err(), all_passed ? 0 : 12) << name << failures;
      rig.destroy(type, dest);
      EXPECT_EQ(contents_of(type, source), before) << name << failures;
      rig.destroy(type, source);
      EXPECT_TRUE(rig.blocks.empty()) << name << failures;
    }
  }
}

TEST(SetObject, IsRefusedBetweenVariantsThatDoNotFit) {
  Rig rig;
  const Type& type = type_of("st_wlan_client_settings");
  char* high = rig.make(type);
  kvt_domain_set_variant(rig.h, record_of(type.name), 0);
  char* low = rig.make(type);
  fill(rig, type, high, 1);
  const auto set = fn<Set>(type.name + "_set");
  const std::string before(low, type.size[1]);
  set(rig.h, rig.txn, low, high, &rig.err);
  EXPECT_EQ(rig.take_err(), 43);
  EXPECT_EQ(std::string(low, type.size[1]), before);
  set(rig.h, rig.txn, high, low, &rig.err);
  EXPECT_EQ(rig.take_err(), 0);
  EXPECT_EQ(high[4], 0) << "the lower variant comes over with the header";
  low[5] = 0;
  set(rig.h, rig.txn, high, low, &rig.err);
  EXPECT_EQ(rig.take_err(), 43);
  low[5] = 1;
  rig.destroy(type, high);
  rig.destroy(type, low);
}

TEST(SetObject, IntoAnUntrackedObjectOnATrackingHandleKeepsStringsApart) {
  Rig rig(Tracking::kOff);
  const Type& type = type_of("st_local_eap_auth");
  char* source = rig.make(type);
  fill(rig, type, source, 1);
  char* dest = rig.make(type);
  fill(rig, type, dest, 2);
  const std::size_t blocks = rig.blocks.size();
  kvt_sttr_descriptor on{KVT_STTR_ON};
  kvt_sttr_descriptor* const off = std::exchange(rig.h->sttr, &on);
  fn<Set>(type.name + "_set")(rig.h, rig.txn, dest, source, &rig.err);
  EXPECT_EQ(rig.take_err(), 22);
  EXPECT_EQ(rig.blocks.size(), blocks);
  rig.h->sttr = off;
  rig.destroy(type, source);
  rig.destroy(type, dest);
  EXPECT_TRUE(rig.blocks.empty());
}

// The slot is set before every export that takes one: nothing may come of the call, the last error stays as well.
TEST(StickySlot, StopsEveryOperationOfEveryType) {
  kvt_xml_document* document = kvt_xml_parse("<a/>", 4, nullptr, 0);
  char message[64] = "untouched";
  for (const Type& type : all_types()) {
    Rig rig(Tracking::kOn);
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    char* other = rig.make(type);
    const std::uint32_t whole = type.size.back() + type.block.back();
    const std::string before(object, whole);
    const std::size_t blocks = rig.blocks.size();
    std::uint8_t buffer[16] = "untouched", out[8] = {9};
    rig.h->last_error = 77;
    rig.announced.clear();
    auto stays = [&](const std::string& name, auto call) {
      int err = 5;
      const auto result = call(name, &err);
      EXPECT_FALSE(result) << name;
      EXPECT_EQ(err, 5) << name;
      EXPECT_EQ(rig.h->last_error, 77) << name;
      EXPECT_TRUE(rig.announced.empty()) << name;
      EXPECT_EQ(rig.blocks.size(), blocks) << name;
      EXPECT_EQ(std::string(object, whole), before) << name;
      EXPECT_STREQ(reinterpret_cast<char*>(buffer), "untouched") << name;
      rig.announced.clear();
      rig.h->last_error = 77;
    };
    const Txn txn = rig.txn;
    stays(type.name + "_initialize", [&](const std::string& name, int* err) {
      return fn<Initialize>(name)(rig.h, txn, object, record_of(type.name), 1, 0, 0, nullptr, err), 0;
    });
    stays(type.name + "_adjust_variant", [&](const std::string& name, int* err) {
      return fn<void(H, Txn, void*, int*)>(name)(rig.h, txn, object, err), 0;
    });
    stays(type.name + "_offset_remove",
          [&](const std::string& name, int* err) { return fn<OffsetRemove>(name)(rig.h, txn, object, err), 0; });
    stays(type.name + "_post_copyout_cleanup",
          [&](const std::string& name, int* err) { return fn<PostCopyout>(name)(rig.h, txn, object, other, err), 0; });
    stays(type.name + "_get_luid",
          [&](const std::string& name, int* err) { return fn<GetLuid>(name)(rig.h, txn, object, err); });
    stays(type.name + "_marshal", [&](const std::string& name, int* err) {
      return fn<Marshal>(name)(rig.h, txn, buffer, object, sizeof buffer, err);
    });
    stays(type.name + "_unmarshal", [&](const std::string& name, int* err) {
      return fn<Unmarshal>(name)(rig.h, txn, buffer, object, sizeof buffer, 0, err);
    });
    stays(type.name + "_to_xml", [&](const std::string& name, int* err) {
      return fn<ToXml>(name)(rig.h, txn, "a", reinterpret_cast<char*>(buffer), object, sizeof buffer, 0, err);
    });
    stays(type.name + "_from_xml", [&](const std::string& name, int* err) {
      fn<FromXml>(name)(rig.h, txn, "//b", document, object, err, message, sizeof message);
      return std::strcmp(message, "untouched");
    });
    std::vector<std::uintptr_t> zeros(
        static_cast<std::size_t>(std::count_if(type.fields.begin(), type.fields.end(), has_value)));
    for (const bool set : {false, true}) {
      stays(type.name + (set ? "_set_all" : "_get_all"), [&](const std::string&, int* err) {
        std::vector<std::uintptr_t> words =
            words_for(rig, object, set ? zeros : std::vector(zeros.size(), reinterpret_cast<std::uintptr_t>(out)));
        words.back() = reinterpret_cast<std::uintptr_t>(err);
        const AllCalls& calls = kAllCalls.at(type.name);
        return (set ? calls.set_all : calls.get_all)(words), out[0] != 9;
      });
    }
    for (const Field& f : type.fields) {
      const std::string name = type.name + "_" + f.name;
      stays(name + "_state_flag_get",
            [&](const std::string& name, int* err) { return fn<StateGet>(name)(rig.h, txn, object, err); });
      if (kind_of(f) != Kind::kTimer) {
        stays(name + "_state_flag_set",
              [&](const std::string& name, int* err) { return fn<StateSet>(name)(rig.h, txn, object, 1, err), 0; });
      }
      if (!has_set(f)) continue;
      stays(name + "_get", [&](const std::string& name, int* err) { return fn<Get>(name)(rig.h, txn, object, err); });
      stays(name + "_set", [&](const std::string& name, int* err) {
        return fn<Set>(name)(rig.h, txn, object, other + f.offset, err), 0;
      });
      if (!has_value(f)) continue;
      stays(name + "_get_value",
            [&](const std::string&, int* err) { return call_get_value(type, f, rig.h, txn, object, err); });
      stays(name + "_set_value",
            [&](const std::string&, int* err) { return call_set_value(type, f, rig.h, txn, object, 0, err), 0; });
    }
    rig.h->last_error = 77;
    EXPECT_EQ(fn<std::uint32_t(H, const void*)>(type.name + "_len_cr")(rig.h, object), 0u);
    EXPECT_EQ(fn<ToXmlCr>(type.name + "_toxml_cr")(rig.h, object, reinterpret_cast<char*>(buffer), sizeof buffer), -1);
    EXPECT_STREQ(reinterpret_cast<char*>(buffer), "untouched");
    rig.destroy(type, object);
    rig.destroy(type, other);
  }
  kvt_xml_free(document);
}

}  // namespace
}  // namespace module_test

// Tests of the print form of all types, against text that is made from the published tables.
#include <gmock/gmock.h>

#include "guarded_buffer.h"
#include "rig.h"

namespace module_test {
namespace {

constexpr std::size_t kPlenty = 60000;

// Enumerators and bits of all types by number: the module's from the published table, others from their schema.
const std::vector<std::string>& names_of(const std::string& type) {
  static const auto all = [] {
    std::map<std::string, std::vector<std::string>> names;
    for (const auto& [name, enumerators] : Catalogue::get().enums) {
      for (const Enumerator& e : enumerators) names[name].push_back(e.name);
    }
    names["flg_internal_wlan_radio_policy_notify"] = {"TBL_INT_WLAN_RADIO_POLICY_NOTIFY"};
    names["flg_mpsk_key_info_notify"] = {"TBL_MPSK_KEYS_INT_NOTIFY"};
    names["flg_wireless_aaa_policy_notify"] = {"TBL_WIRELESS_AAA_POLICY_NOTIFY"};
    std::ifstream siblings(ZARN_SOURCE_DIR "/schema/siblings.zs");
    std::string type;
    for (std::string line; std::getline(siblings, line);) {
      std::istringstream words(line);
      std::string first, second;
      words >> first >> second;
      if (line[0] != ' ') {
        type = first == "enum" || first == "flag" ? second : "";
      } else if (!type.empty()) {
        names[type].push_back(first);
      }
    }
    return names;
  }();
  return all.at(type);
}

std::string hex(const std::string& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", byte);
    text += two;
  }
  return text;
}

std::string value_text(const Field& f, const char* at) {
  switch (kind_of(f)) {
    case Kind::kInteger:
      return with_value_type(f, [&](auto v) { return std::to_string(load<decltype(v)>(at)); });
    case Kind::kBoolean:
      return load<std::uint32_t>(at) ? "true" : "false";
    case Kind::kEnum:
      return names_of(f.kind)[load<std::uint32_t>(at + 8)];
    case Kind::kFlag:
      return at[7] & 1 ? names_of(f.kind)[0] + " " : "";
    case Kind::kReference: {
      char locator[17];
      std::snprintf(locator, sizeof locator, "%016llx", static_cast<unsigned long long>(load<std::uint64_t>(at + 8)));
      return locator + ("/" + hex({at + 16, 16})) + "/" + hex({at + 32, 16});
    }
    default: {
      const std::string text(kvt_vstring_text(at), kvt_vstring_length(at));
      if (f.kind == "kvt_aes_vstring") return text.empty() ? "" : "********";
      return f.kind == "qep_bytestr" ? hex(text) : "\"" + text + "\"";
    }
  }
}

std::string expected_print(const Type& type, const char* object, std::size_t indent, const std::string& label) {
  const std::string margin(indent, ' '), inner(indent + 2, ' ');
  std::string text = margin + label + "@" + type.name + ": {\n";
  for (const Field& f : type.fields) {
    if (object[4] < f.variant || kind_of(f) == Kind::kTimer) continue;
    const char* at = object + f.offset;
    text += kind_of(f) == Kind::kStruct ? expected_print(type_of(f.kind), at, indent + 2, f.name)
                                        : inner + f.name + "@" + f.kind + ":" + value_text(f, at) + "\n";
  }
  return text + margin + "}\n";
}

std::string print(Rig& rig, const std::string& type, const void* object, std::uint32_t indent = 0,
                  const char* label = "top") {
  std::string text(kPlenty, '\xCC');
  const std::uint32_t used = fn<Print>(type + "_print")(rig.h, rig.txn, text.data(), indent, label, object,
                                                        static_cast<std::int32_t>(text.size()), &rig.err);
  EXPECT_EQ(text[used], '\0') << type;
  text.resize(used);
  return text;
}

std::string print_cr(Rig& rig, const std::string& type, const void* object) {
  std::string text(kPlenty, '\xCC');
  const std::int32_t used = fn<PrintCr>(type + "_print_cr")(rig.h, object, text.data(), kPlenty);
  if (used < 0) return "refused: " + std::string(text.c_str());
  text.resize(static_cast<std::size_t>(used));
  return text;
}

TEST(Print, EveryTypeAtEveryVariantShowsItsFieldsInOrder) {
  for (Tracking tracking : kTrackings) {
    for (const Type& type : all_types()) {
      for (int variant = 0; variant <= type.top(); ++variant) {
        SCOPED_TRACE(type.name + " variant " + std::to_string(variant) + " tracking " + name_of(tracking));
        Rig rig(tracking);
        limit_domain(rig, variant);
        char* object = rig.make(type);
        fill(rig, type, object, static_cast<std::uint64_t>(variant) + 1, variant);
        rig.announced.clear();
        EXPECT_EQ(print(rig, type.name, object, 3, "a_label"), expected_print(type, object, 3, "a_label"));
        EXPECT_EQ(print_cr(rig, type.name, object), expected_print(type, object, 0, type.name));
        EXPECT_TRUE(rig.announced.empty());
        EXPECT_EQ(rig.take_err(), 0);
      }
    }
  }
}

TEST(Print, NestedObjectsStandTwoColumnsFurtherRight) {
  Rig rig;
  char* object = rig.make(type_of("st_wpa_pmf_params"));
  void* options = st_wpa_pmf_params_pmf_options_get(rig.h, rig.txn, object, &rig.err);
  enm_pmf_feature_availability_set_value(rig.h, rig.txn, options, FEATURE_OPTIONAL, &rig.err);
  void* inner = st_wpa_pmf_params_pmf_params_get(rig.h, rig.txn, object, &rig.err);
  st_pmf_params_set_all(rig.h, rig.txn, inner, 7, 200, &rig.err);
  EXPECT_EQ(print(rig, "st_wpa_pmf_params", object, 2, "wpa_pmf"),
            "  wpa_pmf@st_wpa_pmf_params: {\n"
            "    pmf_options@enm_pmf_feature_availability:FEATURE_OPTIONAL\n"
            "    pmf_params@st_pmf_params: {\n"
            "      pmf_comeback_timer@u_int8:7\n"
            "      pmf_sa_timeout@u_int16:200\n"
            "    }\n"
            "  }\n");
}

TEST(Print, AtAnyRoomStaysInsideEndsWithANulAndSaysWhatIsMissing) {
  GuardedBuffer guarded;
  Rig rig;
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    const std::string whole = print(rig, type.name, object, 1);
    for (std::size_t room = 0; room <= whole.size() + 1; ++room) {
      char* buffer = reinterpret_cast<char*>(guarded.with_room(room));
      const std::uint32_t used = fn<Print>(type.name + "_print")(rig.h, rig.txn, buffer, 1, "top", object,
                                                                 static_cast<std::int32_t>(room), &rig.err);
      SCOPED_TRACE(type.name + " room " + std::to_string(room));
      EXPECT_EQ(rig.h->last_error, room > whole.size() ? 0 : 90);
      EXPECT_EQ(rig.take_err(), room > whole.size() ? 0 : 90);
      EXPECT_TRUE(guarded.untouched_before(room));
      if (room == 0) {
        EXPECT_EQ(used, 0u);
      } else {
        EXPECT_EQ(std::string(buffer), whole.substr(0, used));
      }
      const std::int32_t cr = fn<PrintCr>(type.name + "_print_cr")(
          rig.h, object, reinterpret_cast<char*>(guarded.with_room(room)), static_cast<std::int32_t>(room));
      EXPECT_EQ(cr < 0, std::exchange(rig.h->last_error, 0) != 0);
      if (testing::Test::HasFailure()) return;
    }
    rig.destroy(type, object);
  }
}

TEST(Print, WithoutAVariantOrAnObjectTheBracesAreEmpty) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    object[4] = -1;
    for (const void* empty : {static_cast<const void*>(object), static_cast<const void*>(nullptr)}) {
      EXPECT_EQ(print(rig, type.name, empty, 2), "  top@" + type.name + ": {\n  }\n");
      EXPECT_EQ(print_cr(rig, type.name, empty), type.name + "@" + type.name + ": {\n}\n");
    }
    EXPECT_EQ(rig.take_err(), 0);
    object[4] = object[5];
    rig.destroy(type, object);
  }
}

TEST(Print, WithAnErrorPendingNothingIsWritten) {
  Rig rig;
  std::vector<std::string> types;
  for (const Type& type : all_types()) types.push_back(type.name);
  for (const auto& [type, all] : Catalogue::get().enums) types.push_back(type);
  types.push_back("flg_mpsk_key_info_notify");
  for (const std::string& type : types) {
    void* object = fn<Create>(type + "_create")(rig.h, rig.txn);
    char buffer[8] = "before";
    rig.err = 5;
    rig.h->last_error = 6;
    EXPECT_EQ(fn<Print>(type + "_print")(rig.h, rig.txn, buffer, 0, "top", object, 8, &rig.err), 0u) << type;
    EXPECT_EQ(fn<PrintCr>(type + "_print_cr")(rig.h, object, buffer, 8), -1) << type;
    EXPECT_EQ(rig.take_err(), 5);
    EXPECT_EQ(std::exchange(rig.h->last_error, 0), 6);
    EXPECT_STREQ(buffer, "before") << type;
  }
}

TEST(PrintEnumerated, EveryEnumeratorByName) {
  Rig rig;
  for (const auto& [type, all] : Catalogue::get().enums) {
    char* object = static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
    object[4] = 0;
    for (const Enumerator& e : all) {
      std::memcpy(object + 8, &e.value, 4);
      EXPECT_EQ(print(rig, type, object, 2, "f"), "  f@" + type + ":" + e.name + "\n");
      EXPECT_EQ(print_cr(rig, type, object), type + "@" + type + ":" + e.name + "\n");
    }
    for (std::uint32_t value : {static_cast<std::uint32_t>(all.size()), 0xFFFFFFFFu}) {
      std::memcpy(object + 8, &value, 4);
      EXPECT_EQ(print(rig, type, object), "top@" + type + ":Enum value out of range");
    }
    EXPECT_EQ(print(rig, type, nullptr), "top@" + type + ":Enum value out of range");
    EXPECT_EQ(rig.take_err(), 0);
  }
}

TEST(PrintEnumerated, BehindAnUnknownValueTheNextFieldGoesOnInTheLine) {
  Rig rig;
  char* object = rig.make(type_of("st_wpa_pmf_params"));
  std::memset(object + type_of("st_wpa_pmf_params").fields[0].offset + 8, 0x11, 4);
  EXPECT_THAT(print(rig, "st_wpa_pmf_params", object),
              testing::StartsWith("top@st_wpa_pmf_params: {\n  pmf_options@enm_pmf_feature_availability:"
                                  "Enum value out of range  pmf_params@st_pmf_params: {\n"));
}

TEST(PrintFlag, SetBitsByNameAndNullByWhereItsErrorGoes) {
  for (const std::string type :
       {"flg_internal_wlan_radio_policy_notify", "flg_mpsk_key_info_notify", "flg_wireless_aaa_policy_notify"}) {
    Rig rig;
    char* object = static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
    EXPECT_EQ(print(rig, type, object, 2, "f"), "  f@" + type + ":\n");
    object[7] = '\x81';
    EXPECT_EQ(print(rig, type, object, 2, "f"), "  f@" + type + ":" + names_of(type)[0] + " \n");
    EXPECT_EQ(print_cr(rig, type, object), type + "@" + type + ":" + names_of(type)[0] + " \n");
    EXPECT_EQ(rig.h->last_error, 0);
    EXPECT_EQ(print(rig, type, nullptr, 1, "f"), " f@" + type + ":ERR \n");
    EXPECT_EQ(rig.take_err(), 0);
    EXPECT_EQ(std::exchange(rig.h->last_error, 0), 43);
    EXPECT_EQ(print_cr(rig, type, nullptr), "refused: " + type + "@" + type + ":");
    EXPECT_EQ(std::exchange(rig.h->last_error, 0), 43);
  }
}

TEST(Print, ASecretIsOneMaskWhateverItHolds) {
  Rig rig;
  const Type& type = type_of("st_wlan");
  char* object = rig.make(type);
  fill(rig, type, object, 1);
  const std::string text = print(rig, "st_wlan", object);
  int secrets = 0;
  for (const Slot& slot : slots_of(type, object)) {
    if (slot.field->kind != "kvt_aes_vstring") continue;
    ++secrets;
    const std::string sealed(static_cast<char*>(kvt_ref_at(load<std::uint32_t>(slot.at()))),
                             load<std::uint32_t>(slot.at() + 4));
    for (const std::string& secret : {content_of(slot), sealed, hex(sealed).substr(0, 16)}) {
      EXPECT_FALSE(secret.empty());
      EXPECT_EQ(text.find(secret), std::string::npos) << slot.path;
    }
    kvt_aes_vstring_assign(rig.h, rig.txn, slot.at(), "x", 1, &rig.err);
  }
  EXPECT_GT(secrets, 1);
  EXPECT_EQ(print(rig, "st_wlan", object), text) << "shows the length";
}

}  // namespace
}  // namespace module_test

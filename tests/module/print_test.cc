// Tests of the print form of all types; what it is for each type and variant, the golden files tell.
#include <gmock/gmock.h>

#include "guarded_buffer.h"
#include "rig.h"

namespace module_test {
namespace {

constexpr std::size_t kPlenty = 60000;

std::string hex(const std::string& bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", byte);
    text += two;
  }
  return text;
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
    EXPECT_EQ(print_cr(rig, type.name, object), print(rig, type.name, object, 0, type.name.c_str()));
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

TEST(PrintScalar, NullByWhereItsErrorGoes) {
  Rig rig;
  for (const auto& [type, all] : Catalogue::get().enums) {
    EXPECT_EQ(print(rig, type, nullptr), "top@" + type + ":Enum value out of range");
    EXPECT_EQ(rig.h->last_error, 0) << type;
  }
  for (const std::string type :
       {"flg_internal_wlan_radio_policy_notify", "flg_mpsk_key_info_notify", "flg_wireless_aaa_policy_notify"}) {
    EXPECT_EQ(print(rig, type, nullptr, 1, "f"), " f@" + type + ":ERR \n");
    EXPECT_EQ(rig.take_err(), 0);
    EXPECT_EQ(std::exchange(rig.h->last_error, 0), 43);
    EXPECT_EQ(print_cr(rig, type, nullptr), "refused: " + type + "@" + type + ":");
    EXPECT_EQ(std::exchange(rig.h->last_error, 0), 43);
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

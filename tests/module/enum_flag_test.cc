// Tests of enumerated and flag types as objects of their own.
#include "xml_rig.h"

namespace module_test {
namespace {

const auto& enums() { return Catalogue::get().enums; }
constexpr const char* kFlags[] = {"flg_internal_wlan_radio_policy_notify", "flg_mpsk_key_info_notify",
                                  "flg_wireless_aaa_policy_notify"};
constexpr const char* kFlagBits[] = {"TBL_INT_WLAN_RADIO_POLICY_NOTIFY", "TBL_MPSK_KEYS_INT_NOTIFY",
                                     "TBL_WIRELESS_AAA_POLICY_NOTIFY"};

using FlagSetValue = void(H, Txn, void*, std::uint32_t, std::uint32_t, int*);
using FlagGetValue = std::uint32_t(H, Txn, void*, std::uint32_t, int*);

char* make(Rig& rig, const std::string& type) {
  return static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
}
std::uint32_t value_of(const char* object) { return load<std::uint32_t>(object + 8); }

int cap_of(const std::vector<Enumerator>& all) {
  int cap = 0;
  for (const Enumerator& e : all) cap = std::max(cap, e.since);
  return cap;
}
std::uint32_t legal_at(const std::vector<Enumerator>& all, int variant) {
  return static_cast<std::uint32_t>(
      std::count_if(all.begin(), all.end(), [&](const Enumerator& e) { return e.since <= variant; }));
}

TEST(Enumerated, ValuesAreTakenUpToWhatTheVariantKnows) {
  ASSERT_EQ(enums().size(), 12u);
  for (Place place : kPlaces) {
    for (const auto& [type, all] : enums()) {
      for (int variant = 0; variant <= cap_of(all); ++variant) {
        SCOPED_TRACE(type + " at variant " + std::to_string(variant) + " in " + name_of(place));
        Rig rig(Tracking::kOn, place);
        kvt_domain_set_variant(rig.h, record_of(type), variant);
        char* object = make(rig, type);
        ASSERT_EQ(rig.blocks[object], 12u);
        EXPECT_EQ(object[4], variant);
        EXPECT_EQ(object[5], cap_of(all));
        EXPECT_EQ(object[6], 0);
        EXPECT_EQ(value_of(object), 0u);
        EXPECT_EQ(fn<std::int32_t(std::int32_t)>(type + "_variant_data_index_cap")(100), cap_of(all));
        const std::uint32_t legal = legal_at(all, variant);
        char* source = make(rig, type);
        for (std::uint32_t value : {0u, legal - 1, legal, legal + 1, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
          std::memset(object + 8, 0, 4);
          const std::string before(object, 12);
          EXPECT_TRUE(announces_all(
              rig, [&] { fn<SetValue<std::uint32_t>>(type + "_set_value")(rig.h, rig.txn, object, value, &rig.err); }));
          EXPECT_EQ(rig.h->last_error, value < legal ? 0 : 43) << value;
          EXPECT_EQ(rig.take_err(), value < legal ? 0 : 43) << value;
          EXPECT_EQ(value_of(object), value < legal ? value : 0) << value;
          std::memcpy(object, before.data(), 12);
          std::memcpy(source + 8, &value, 4);
          source[6] = KVT_OBJ_EMBEDDED;
          fn<Set>(type + "_set")(rig.h, rig.txn, object, source, &rig.err);
          EXPECT_EQ(rig.take_err(), value < legal ? 0 : 43) << value;
          EXPECT_EQ(std::string(object, 12), value < legal ? std::string(source, 12) : before) << value;
          const auto valid = fn<std::uint32_t(H, std::int32_t)>(type + "_is_valid_cr");
          EXPECT_EQ(valid(rig.h, static_cast<std::int32_t>(value)),
                    static_cast<std::int32_t>(value) < static_cast<std::int32_t>(legal))
              << "signed: " << value;
          EXPECT_EQ(fn<std::uint32_t(std::uint32_t)>(type + "_map_to_internal_value")(value), value);
        }
        fn<Destroy>(type + "_destroy")(rig.h, rig.txn, object);
        fn<Destroy>(type + "_destroy")(rig.h, rig.txn, source);
        EXPECT_TRUE(rig.blocks.empty());
      }
    }
  }
}

TEST(Enumerated, ComparesByTheUnclampedDifference) {
  Rig rig;
  char* a = make(rig, "key_size_type");
  char* b = make(rig, "key_size_type");
  for (std::int32_t value : {2, 1, 0, static_cast<std::int32_t>(0x80000001)}) {
    std::memcpy(a + 8, &value, 4);
    EXPECT_EQ(key_size_type_compare(a, b), value);
  }
  EXPECT_EQ(key_size_type_compare(nullptr, nullptr), 0);
  EXPECT_EQ(key_size_type_compare(nullptr, a), -1);
  EXPECT_EQ(key_size_type_compare(a, nullptr), 1);
}

TEST(Enumerated, BytesCarryAnyNumberAtEveryRoom) {
  for (const auto& [type, all] : enums()) {
    Rig rig;
    EXPECT_EQ(fn<Sizeof>(type + "_sizeof")(rig.h), 12u);
    EXPECT_EQ(fn<Len>(type + "_len")(rig.h, rig.txn, nullptr), 5u);
    char* object = make(rig, type);
    const std::uint8_t wire[] = {9, 0xFE, 0xDC, 0xBA, 0x98};  // neither the variant nor the number is known here
    for (int room = 0; room <= 5; ++room) {
      fn<Unmarshal>(type + "_unmarshal")(rig.h, rig.txn, wire, object, room, 0, &rig.err);
      EXPECT_EQ(rig.take_err(), room < 5 ? 90 : 0) << type << room;
      EXPECT_EQ(value_of(object), room < 5 ? 0 : 0xFEDCBA98u) << type << room;
    }
    EXPECT_EQ(object[4], cap_of(all));
    std::uint8_t buffer[6];
    for (int room = 0; room <= 5; ++room) {
      std::memset(buffer, 0xCC, sizeof buffer);
      const std::uint32_t used = fn<Marshal>(type + "_marshal")(rig.h, rig.txn, buffer, object, room, &rig.err);
      EXPECT_EQ(rig.take_err(), room < 5 ? 90 : 0) << type << room;
      EXPECT_LE(used, static_cast<std::uint32_t>(room));
      EXPECT_EQ(buffer[room], 0xCC) << type << room;
    }
    EXPECT_EQ(buffer[0], cap_of(all));
    EXPECT_EQ(std::memcmp(buffer + 1, wire + 1, 4), 0) << type;
  }
}

TEST(Enumerated, XmlNamesTheEnumeratorAndTheFirstPresentWins) {
  for (const auto& [type, all] : enums()) {
    Rig rig;
    char* object = make(rig, type);
    std::string every;
    for (auto e = all.rbegin(); e != all.rend(); ++e) every += "<" + e->name + "/>";
    for (const Enumerator& e : all) {
      std::memcpy(object + 8, &e.value, 4);
      EXPECT_EQ(to_xml(rig, type, object, "top", 3), "<top><" + e.name + "/></top>");
      std::memset(object + 8, 0x11, 4);
      from_xml(rig, type, "<top><" + e.name + "/></top>", object);
      EXPECT_EQ(rig.take_err(), 0) << e.name;
      EXPECT_EQ(value_of(object), e.value) << e.name;
    }
    from_xml(rig, type, "<top>" + every + "</top>", object);
    EXPECT_EQ(value_of(object), all.front().value) << every;
    std::memset(object + 8, 0x11, 4);
    EXPECT_EQ(from_xml(rig, type, "<other>" + every + "</other>", object), "none");
    EXPECT_EQ(rig.take_err(), 2);
    EXPECT_EQ(value_of(object), 0x11111111u);
    rig.h->last_error = 0;
    std::string text(256, '\0');
    text.resize(static_cast<std::size_t>(fn<ToXmlCr>(type + "_toxml_cr")(rig.h, object, text.data(), 256)));
    EXPECT_EQ(text, "<" + type + "><" + type + " value out of range/></" + type + ">");
  }
}

TEST(Flag, OneBitIsSetAndClearedTheOthersStay) {
  for (const char* name : kFlags) {
    const std::string type = name;
    Rig rig;
    char* object = make(rig, type);
    ASSERT_EQ(rig.blocks[object], 12u);
    const auto set = fn<FlagSetValue>(type + "_set_value");
    const auto get = fn<FlagGetValue>(type + "_get_value");
    for (std::uint32_t on : {5u, 0u, 0x80000000u, 0u}) {
      object[7] = static_cast<char>(0x80 | (on == 0));
      EXPECT_TRUE(announces_all(rig, [&] { set(rig.h, rig.txn, object, 0, on, &rig.err); }));
      EXPECT_EQ(static_cast<std::uint8_t>(object[7]), 0x80 | (on != 0));
      EXPECT_EQ(get(rig.h, rig.txn, object, 0, &rig.err), on != 0);
      EXPECT_EQ(rig.take_err(), 0);
    }
    const std::string before(object, 12);
    for (std::uint32_t bit : {1u, 7u, 8u, 31u, 32u, 0xFFFFFFFFu}) {
      EXPECT_EQ(fn<std::uint32_t(std::uint32_t)>(type + "_in_range")(bit), 0u);
      EXPECT_EQ(fn<std::uint32_t(H, std::uint32_t)>(type + "_is_valid_cr")(rig.h, bit), 0u);
      EXPECT_EQ(get(rig.h, rig.txn, object, bit, &rig.err), 0u);
      EXPECT_EQ(rig.take_err(), 43);
      set(rig.h, rig.txn, object, bit, 1, &rig.err);
      EXPECT_EQ(rig.take_err(), 43);
      EXPECT_EQ(std::string(object, 12), before);
    }
    EXPECT_EQ(fn<std::uint32_t(std::uint32_t)>(type + "_in_range")(0), 1u);
    EXPECT_EQ(fn<std::uint32_t(H, std::uint32_t)>(type + "_is_valid_cr")(rig.h, 0), 1u);
    rig.h->last_error = 0;
    EXPECT_EQ(fn<std::int32_t(H, void*, std::uint32_t, std::uint32_t)>(type + "_set_cr")(rig.h, object, 0, 1), 0);
    EXPECT_EQ(fn<std::uint32_t(H, void*, std::uint32_t)>(type + "_get_cr")(rig.h, object, 0), 1u);
    EXPECT_EQ(fn<std::int32_t(H, void*, std::uint32_t, std::uint32_t)>(type + "_set_cr")(rig.h, object, 1, 1), 43);
    EXPECT_EQ(fn<std::uint32_t(H, void*, std::uint32_t)>(type + "_get_cr")(rig.h, object, 0), 0u) << "pending error";
    char* other = make(rig, type);
    EXPECT_EQ(fn<Compare>(type + "_compare")(other, object), -0x81);
    fn<Set>(type + "_set")(rig.h, rig.txn, other, object, &rig.err);
    EXPECT_EQ(std::string(other, 12), std::string(object, 12));
    EXPECT_EQ(fn<Compare>(type + "_compare")(other, object), 0);
    fn<Destroy>(type + "_destroy")(rig.h, rig.txn, object);
    fn<Destroy>(type + "_destroy")(rig.h, rig.txn, other);
    EXPECT_TRUE(rig.blocks.empty());
  }
}

TEST(Flag, BytesAtEveryRoomAndAJumpBeyondThem) {
  for (const char* name : kFlags) {
    const std::string type = name;
    Rig rig;
    char* object = make(rig, type);
    object[7] = '\x81';
    std::uint8_t buffer[8];
    for (int room = 0; room <= 6; ++room) {
      std::memset(buffer, 0xCC, sizeof buffer);
      EXPECT_LE(fn<Marshal>(type + "_marshal")(rig.h, rig.txn, buffer, object, room, &rig.err),
                static_cast<std::uint32_t>(room));
      EXPECT_EQ(rig.take_err(), room < 6 ? 90 : 0) << room;
      EXPECT_EQ(buffer[room], 0xCC) << room;
    }
    const std::uint8_t wire[] = {0, 0, 0, 0, 5, 0x81};
    EXPECT_EQ(std::memcmp(buffer, wire, sizeof wire), 0);
    struct Case {
      std::uint8_t jump;
      int room;
      std::uint32_t used;
      int err;
    };
    for (const Case& c : {Case{5, 6, 6, 0}, Case{7, 8, 8, 0}, Case{0, 6, 6, 0}, Case{7, 7, 8, 0}, Case{5, 5, 5, 90},
                          Case{5, 4, 1, 90}, Case{5, 0, 0, 90}}) {
      const std::uint8_t bytes[] = {0, 0, 0, 0, c.jump, 0x81, 0, 0};
      object[7] = 0x22;
      EXPECT_EQ(fn<Unmarshal>(type + "_unmarshal")(rig.h, rig.txn, bytes, object, c.room, 0, &rig.err), c.used);
      EXPECT_EQ(rig.take_err(), c.err) << int{c.jump} << " in " << c.room;
      EXPECT_EQ(static_cast<std::uint8_t>(object[7]), c.room >= 6 ? 0x81 : 0x22) << "not masked";
    }
  }
}

TEST(Flag, XmlSetsTheBitAndItsAbsenceLeavesItAlone) {
  for (std::size_t i = 0; i < std::size(kFlags); ++i) {
    const std::string type = kFlags[i], bit = kFlagBits[i];
    Rig rig;
    char* object = make(rig, type);
    for (bool on : {false, true}) {
      object[7] = on;
      const std::string text = to_xml(rig, type, object);
      EXPECT_EQ(text, on ? "<top><" + bit + "/></top>" : "<top></top>");
      for (bool before : {false, true}) {
        object[7] = before;
        from_xml(rig, type, text, object);
        EXPECT_EQ(rig.take_err(), 0);
        EXPECT_EQ(object[7], on || before);
      }
    }
  }
}

}  // namespace
}  // namespace module_test

// Tests of the XML form of all types, both ways.
#include <sys/mman.h>

#include "xml_rig.h"

namespace module_test {
namespace {

TEST(Xml, ATripKeepsEveryFieldThatHasAForm) {
  for (Place place : kPlaces) {
    for (Tracking tracking : kTrackings) {
      Rig rig(tracking, place);
      for (const Type& type : all_types()) {
        SCOPED_TRACE(type.name + " in " + name_of(place) + ", tracking " + name_of(tracking));
        char* source = rig.make(type);
        fill(rig, type, source, 1);
        const std::string text = to_xml(rig, type, source);
        EXPECT_EQ(rig.take_err(), 0);
        char* object = rig.make(type);
        fill(rig, type, object, 2);
        if (rig.tracked()) fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 9);
        Contents expected = contents_of(type, object);
        bool enumerated = false;
        for (const Slot& slot : slots_of(type, source)) {
          enumerated |= kind_of(*slot.field) == Kind::kEnum;
          // A document can only set a bit.
          const bool kept = kind_of(*slot.field) == Kind::kFlag && content_of(slot) == "0";
          if (has_xml(*slot.field) && !kept) expected[slot.path] = content_of(slot);
        }
        const auto announced = announces_all(rig, [&] { from_xml(rig, type, text, object); });
        EXPECT_TRUE(announced || enumerated);
        EXPECT_EQ(rig.take_err(), 0) << text;
        EXPECT_EQ(contents_of(type, object), expected) << text;
        if (rig.tracked()) {
          EXPECT_EQ(std::string(object + type.size.back(), type.block.back()), std::string(type.block.back(), '\11'));
        }
        rig.destroy(type, source);
        rig.destroy(type, object);
        EXPECT_TRUE(rig.blocks.empty());
      }
    }
  }
}

TEST(Xml, GoldenText) {
  Rig rig(Tracking::kOn);
  const Type& type = type_of("st_wlan_timeout_settings");
  char* object = rig.make(type);
  st_wlan_timeout_settings_session_timeout_set_value(rig.h, rig.txn, object, 86400, &rig.err);
  st_wlan_timeout_settings_dtim_state_flag_set(rig.h, rig.txn, object, 7, &rig.err);
  std::string text(300, '\0');
  text.resize(static_cast<std::size_t>(st_wlan_timeout_settings_toxml_cr(rig.h, object, text.data(), 300)));
  EXPECT_EQ(text,
            "<st_wlan_timeout_settings><session_timeout state=\"2\">86400</session_timeout><dtim state=\"7\">"
            "<dot11a_dtim>0</dot11a_dtim><dot11b_dtim>0</dot11b_dtim></dtim></st_wlan_timeout_settings>");
  const std::size_t inner = type.name.size() + 2;
  std::string named(300, '\0');
  named.resize(st_wlan_timeout_settings_to_xml(rig.h, rig.txn, "x", named.data(), object, 300, 5, &rig.err));
  EXPECT_EQ(named, "<x state=\"5\">" + text.substr(inner, text.size() - 2 * inner - 1) + "</x>");
  object[4] = -1;
  EXPECT_EQ(to_xml(rig, type, object), "<top></top>");
}

TEST(Xml, AnUntrackedObjectOnATrackingHandleIsLeftOpen) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    object[6] = 0;
    EXPECT_EQ(to_xml(rig, type, object, "top", 5), "<top state=\"5\">") << type.name;
    EXPECT_EQ(rig.take_err(), 22) << type.name;
    EXPECT_EQ(rig.h->last_error, 22) << type.name;
    rig.h->last_error = 0;
    std::string text(300, '*');
    EXPECT_EQ(fn<ToXmlCr>(type.name + "_toxml_cr")(rig.h, object, text.data(), 300), -1);
    EXPECT_EQ(text.substr(0, type.name.size() + 3), "<" + type.name + ">*");
    EXPECT_EQ(fn<ToXmlCr>(type.name + "_toxml_cr")(rig.h, object, text.data() + 100, 200), -1);
    EXPECT_EQ(text[100], '*') << "nothing while the last error is set";
    rig.destroy(type, object);
  }
}

// The buffer is shared with the process that stops, so what it wrote can be seen.
TEST(XmlDeathTest, ACorruptHandleStopsBeforeAnyOutput) {
  constexpr std::size_t kSize = 4096;
  auto* buffer = static_cast<char*>(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(buffer, MAP_FAILED);
  Rig rig;
  kvt_sttr_descriptor corrupt{};
  corrupt.tag = 0x1234;
  for (const char* name : {"st_dtim", "st_wlan"}) {
    char* object = rig.make(type_of(name));
    kvt_sttr_descriptor* whole = rig.h->sttr;
    rig.h->sttr = &corrupt;
    EXPECT_DEATH(fn<ToXml>(std::string(name) + "_to_xml")(rig.h, rig.txn, "top", buffer, object, kSize, 0, &rig.err),
                 "Corrupted KVT Handle");
    rig.h->sttr = whole;
    EXPECT_EQ(std::string(buffer, kSize), std::string(kSize, '\0')) << name;
  }
  munmap(buffer, kSize);
}

// Every element has its field's state word, also a nested struct's opening; only those of enumerated and flag fields
// have none.
TEST(Xml, StateWordsStandWhereTheyBelong) {
  Rig rig(Tracking::kOn);
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    fn<StateAll>(type.name + "_set_all_state_tracking_flag")(rig.h, rig.txn, object, 9);
    const std::string text = to_xml(rig, type, object);
    std::map<std::string, int> expected, found;
    for (const Slot& slot : slots_of(type, object)) {
      if (!has_xml(*slot.field)) continue;
      const bool dropped = kind_of(*slot.field) == Kind::kEnum || kind_of(*slot.field) == Kind::kFlag;
      ++expected["<" + slot.field->name + (dropped ? ">" : " state=\"9\">")];
    }
    for (const auto& [opening, count] : expected) {
      for (std::size_t at = 0; (at = text.find(opening, at)) != std::string::npos; ++at) ++found[opening];
    }
    EXPECT_EQ(found, expected) << type.name;
    EXPECT_EQ(text.substr(0, 5), "<top>") << type.name;
    rig.destroy(type, object);
  }
}

// A path is cut where its buffer ends, and what is left may be the name of another field.
TEST(XmlPath, AFieldWhosePathIsTooLongIsAbsentWhateverItsBeginNames) {
  Rig rig;
  int pairs = 0;
  for (const Type& type : all_types()) {
    for (const Field& shorter : type.fields) {
      for (const Field& longer : type.fields) {
        if (&shorter == &longer || !longer.name.starts_with(shorter.name)) continue;
        if (!has_xml(shorter) || kind_of(longer) == Kind::kStruct) continue;
        ++pairs;
        // The shorter name fits to the last character. What stands in it would do for either field.
        const std::string top(255 - 2 - 1 - shorter.name.size(), 'n');
        const bool named = kind_of(longer) == Kind::kEnum;
        const std::string value =
            named ? "<" + std::string(longer.kind == "key_format_type" ? "KEY_HEX" : "CRYPT_AES") + "/>" : "1";
        char* object = rig.make(type);
        const Contents before = contents_of(type, object);
        from_xml(rig, type, "<" + top + "><" + shorter.name + ">" + value + "</" + shorter.name + "></" + top + ">",
                 object, "//" + top);
        rig.take_err();
        const std::string path = type.name + "." + longer.name;
        EXPECT_EQ(contents_of(type, object).at(path), before.at(path)) << path;
        rig.destroy(type, object);
      }
    }
  }
  EXPECT_GE(pairs, 10);
}

// Of a document at a long path exactly the fields are read whose paths fit.
TEST(XmlPath, FieldsAreReadAsFarAsTheirPathsFit) {
  Rig rig;
  for (const char* name : {"st_wlan", "st_wlan_notify", "st_wpa_wpa2", "st_l2_security_settings"}) {
    const Type& type = type_of(name);
    char* source = rig.make(type);
    fill(rig, type, source, 1);
    for (const std::size_t length : {150, 200, 215, 230, 240, 254, 300}) {
      const std::string top(length, 'n');
      const std::string text = to_xml(rig, type, source, top.c_str());
      char* object = rig.make(type);
      const Contents full = contents_of(type, source), empty = contents_of(type, object);
      from_xml(rig, type, text, object, "//" + top);
      EXPECT_EQ(rig.take_err(), 0);
      for (const Slot& slot : slots_of(type, object)) {
        std::size_t need = 2 + length + slot.path.size() - type.name.size();
        if (kind_of(*slot.field) == Kind::kEnum || kind_of(*slot.field) == Kind::kFlag) {
          const std::string own = to_xml(rig, slot.field->kind, source + (slot.at() - object), "e");
          need += own.size() - std::string("<e></e>").size() - 2;  // "/NAME" where the text has "<NAME/>"
          if (own == "<e></e>") continue;
        }
        EXPECT_EQ(content_of(slot), (has_xml(*slot.field) && need <= 255 ? full : empty).at(slot.path))
            << slot.path << " behind " << length;
      }
      rig.destroy(type, object);
    }
    rig.destroy(type, source);
  }
}

// The slot of a reading tells its outcome; the last error still knows of what was absent.
TEST(Xml, WhatIsAbsentStaysTheLastError) {
  Rig rig;
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    EXPECT_EQ(from_xml(rig, type, "<top/>", object), "none") << type.name;
    EXPECT_EQ(rig.take_err(), 0) << type.name;
    EXPECT_EQ(rig.h->last_error, 2) << type.name;
    rig.destroy(type, object);
  }
}

TEST(Xml, AnEmptyElementChangesNothingAndNoneIsAnError) {
  Rig rig;
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    const Contents before = contents_of(type, object);
    from_xml(rig, type, "<a><top><unknown/></top></a>", object);
    EXPECT_EQ(rig.take_err(), 0) << type.name;
    EXPECT_EQ(contents_of(type, object), before) << type.name;
    from_xml(rig, type, "<a><other/></a>", object);
    EXPECT_EQ(rig.take_err(), 2) << type.name;
    EXPECT_EQ(contents_of(type, object), before) << type.name;
    rig.destroy(type, object);
  }
}

TEST(Xml, AnyOneAbsentElementKeepsItsFieldAndNoOther) {
  Rig rig;
  for (const char* name : {"st_wlan_client_settings", "wpa_psk_type", "st_wlan_notify", "st_l3_security_settings"}) {
    const Type& type = type_of(name);
    for (const Field& left_out : type.fields) {
      if (!has_xml(left_out)) continue;
      char* source = rig.make(type);
      fill(rig, type, source, 1);
      std::string text = to_xml(rig, type, source);
      const std::size_t begin = std::min(text.find("<" + left_out.name + ">"), text.find("<" + left_out.name + " "));
      const std::size_t end = text.find("</" + left_out.name + ">");
      ASSERT_NE(end, std::string::npos);
      text.erase(begin, end + left_out.name.size() + 3 - begin);
      char* object = rig.make(type);
      const Contents empty = contents_of(type, object), full = contents_of(type, source);
      from_xml(rig, type, text, object);
      EXPECT_EQ(rig.take_err(), 0) << left_out.name;
      for (const Slot& slot : slots_of(type, object)) {
        const bool absent =
            (slot.path + ".").starts_with(type.name + "." + left_out.name + ".") || !has_xml(*slot.field);
        EXPECT_EQ(content_of(slot), (absent ? empty : full).at(slot.path)) << slot.path << " without " << left_out.name;
      }
      rig.destroy(type, source);
      rig.destroy(type, object);
    }
  }
}

TEST(Xml, OfALowVariantLeavesOutLaterFieldsButReadsThem) {
  for (const Type& type : all_types()) {
    for (int variant = 0; variant < type.top(); ++variant) {
      Rig rig;
      char* source = rig.make(type);
      fill(rig, type, source, 1);
      const std::string whole = to_xml(rig, type, source);
      kvt_domain_set_variant(rig.h, record_of(type.name), variant);
      char* low = rig.make(type);
      const std::string text = to_xml(rig, type, low);
      for (const Field& f : type.fields) {
        if (!has_xml(f)) continue;
        EXPECT_EQ(text.find("<" + f.name + ">") != std::string::npos, f.variant <= variant)
            << type.name << "." << f.name << variant;
      }
      from_xml(rig, type, whole, low);
      EXPECT_EQ(rig.take_err(), 0);
      EXPECT_EQ(low[4], variant);
      EXPECT_EQ(to_xml(rig, type, (low[4] = static_cast<char>(type.top()), low)), whole) << type.name;
      rig.destroy(type, source);
      rig.destroy(type, low);
      EXPECT_TRUE(rig.blocks.empty()) << type.name;
    }
  }
}

TEST(Xml, AFieldThatCannotBeReadStopsTheReadingAndIsNamed) {
  Rig rig;
  const Document document("<top><session_timeout>5</session_timeout><dtim><dot11a_dtim>256</dot11a_dtim></dtim></top>");
  char* object = rig.make(type_of("st_wlan_timeout_settings"));
  char message[128] = "";
  st_wlan_timeout_settings_from_xml(rig.h, rig.txn, "//top", document.document, object, &rig.err, message,
                                    sizeof message);
  EXPECT_EQ(rig.take_err(), 22);
  EXPECT_TRUE(std::string(message).starts_with("Failed xpath: //top/dtim/dot11a_dtim")) << message;
  EXPECT_EQ(st_wlan_timeout_settings_session_timeout_get_value(rig.h, rig.txn, object, &rig.err), 5u);
}

// Presence alone selects: what stands in the element is not looked at, however long it is.
TEST(Xml, AnEnumeratorOrABitIsThereWhateverItsElementHolds) {
  Rig rig;
  for (const std::string& content : {std::string(), std::string("text"), std::string(127, 'x'), std::string(128, 'x'),
                                     std::string(5000, 'x'), std::string("<deeper/>")}) {
    const std::string text = "<top><bit><TBL_WLAN_NOTIFY>" + content + "</TBL_WLAN_NOTIFY></bit><value><KEY_HEX>" +
                             content + "</KEY_HEX></value></top>";
    const Document document(text);
    std::uint32_t value[3] = {}, bits[3] = {};
    char message[40] = "none";
    fn<FromXml>("key_format_type_from_xml")(rig.h, rig.txn, "//top/value", document.document, value, &rig.err, message,
                                            sizeof message);
    EXPECT_EQ(rig.take_err(), 0) << content.size();
    EXPECT_EQ(value[2], 1u) << content.size();
    fn<FromXml>("flg_wlan_notify_from_xml")(rig.h, rig.txn, "//top/bit", document.document, bits, &rig.err, message,
                                            sizeof message);
    EXPECT_EQ(rig.take_err(), 0) << content.size();
    EXPECT_EQ(reinterpret_cast<char*>(bits)[7], 1) << content.size();
    EXPECT_STREQ(message, "none");
  }
}

TEST(Xml, AnyShortRoomIsAnErrorAndNothingIsWrittenBeyondIt) {
  Rig rig(Tracking::kOn);
  for (const char* name : {"st_dtim", "wpa_psk_type", "st_wlan_notify", "st_wlan_security_settings"}) {
    const Type& type = type_of(name);
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    const std::string whole = to_xml(rig, type, object);
    for (std::size_t room = 0; room <= whole.size(); ++room) {
      std::string text(whole.size() + 1, '\xCC');
      const std::uint32_t used = fn<ToXml>(type.name + "_to_xml")(rig.h, rig.txn, "top", text.data(), object,
                                                                  static_cast<std::int32_t>(room), 0, &rig.err);
      EXPECT_EQ(rig.take_err(), room < whole.size() ? 90 : 0) << name << room;
      EXPECT_LE(used, room) << name;
      EXPECT_EQ(text.find_first_not_of('\xCC', room), std::string::npos) << name << room;
    }
    rig.destroy(type, object);
  }
}

}  // namespace
}  // namespace module_test

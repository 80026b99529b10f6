// Tests of the XML form of all types, both ways.
#include "xml_rig.h"

namespace module_test {
namespace {

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
    std::string by_handle(text.size() + 2 * type.name.size(), '\0');
    const auto size = static_cast<std::int32_t>(by_handle.size());
    by_handle.resize(
        static_cast<std::size_t>(fn<ToXmlCr>(type.name + "_toxml_cr")(rig.h, object, by_handle.data(), size)));
    EXPECT_EQ(by_handle, to_xml(rig, type, object, type.name.c_str()));
    rig.destroy(type, object);
  }
}

// Of a document at a long path exactly the fields are read whose paths fit. A path is cut where its buffer ends, and
// what is left may be the name of another field, which must not be taken for it.
TEST(XmlPath, FieldsAreReadAsFarAsTheirPathsFit) {
  Rig rig;
  for (const char* name : {"st_wlan", "st_wlan_notify", "st_wpa_wpa2", "st_l2_security_settings"}) {
    const Type& type = type_of(name);
    char* source = rig.make(type);
    fill(rig, type, source, 1);
    for (std::size_t length = 150; length <= 260; ++length) {
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

TEST(Xml, AnEmptyElementChangesNothingAndNoneIsAnError) {
  Rig rig;
  for (const Type& type : all_types()) {
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    const Contents before = contents_of(type, object);
    from_xml(rig, type, "<a><top><unknown/></top></a>", object);
    EXPECT_EQ(rig.take_err(), 0) << type.name;
    EXPECT_EQ(contents_of(type, object), before) << type.name;
    EXPECT_EQ(rig.h->last_error, 2) << type.name << ": what is absent stays the last error";
    from_xml(rig, type, "<a><other/></a>", object);
    EXPECT_EQ(rig.take_err(), 2) << type.name;
    EXPECT_EQ(contents_of(type, object), before) << type.name;
    rig.destroy(type, object);
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

TEST(Xml, NoObjectIsNeitherWrittenNorReadThrough) {
  Rig rig;
  const Document document("<top><KEY_HEX/><TBL_WLAN_NOTIFY/><dot11a_dtim>1</dot11a_dtim></top>");
  const struct {
    const char* type;
    const char* xml;
    int err;
  } cases[] = {{"key_format_type", "<top><key_format_type value out of range/></top>", 22},
               {"flg_wlan_notify", "<top><error>ERR</error></top>", 0},
               {"st_dtim", "<top></top>", 22}};
  for (const auto& c : cases) {
    std::string text(100, '\0');
    text.resize(
        fn<ToXml>(c.type + std::string("_to_xml"))(rig.h, rig.txn, "top", text.data(), nullptr, 100, 0, &rig.err));
    EXPECT_EQ(text, c.xml);
    EXPECT_EQ(rig.take_err(), 0) << c.type;
    fn<FromXml>(c.type + std::string("_from_xml"))(rig.h, rig.txn, "//top", document.document, nullptr, &rig.err,
                                                   nullptr, 0);
    EXPECT_EQ(rig.take_err(), c.err) << c.type;
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

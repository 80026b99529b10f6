// Tests of the XML form of all types, both ways.
#include "rig.h"

namespace module_test {
namespace {

struct Document {
  explicit Document(const std::string& text) {
    char message[128] = "";
    document = kvt_xml_parse(text.data(), text.size(), message, sizeof message);
    EXPECT_NE(document, nullptr) << message << "\n" << text;
  }
  ~Document() { kvt_xml_free(document); }
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  kvt_xml_document* document;
};

std::string to_xml(Rig& rig, const Type& type, const void* object, const char* name = "top") {
  std::string text(1 << 16, '\0');
  text.resize(fn<ToXml>(type.name + "_to_xml")(rig.h, rig.txn, name, text.data(), object,
                                               static_cast<std::int32_t>(text.size()), 0, &rig.err));
  return text;
}

void from_xml(Rig& rig, const Type& type, const std::string& text, void* object, const char* path = "//top") {
  const Document document(text);
  char message[128] = "none";
  fn<FromXml>(type.name + "_from_xml")(rig.h, rig.txn, path, document.document, object, &rig.err, message,
                                       sizeof message);
}

bool has_xml(const Field& f) { return kind_of(f) != Kind::kReference && kind_of(f) != Kind::kTimer; }

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
  object[6] = 0;
  object[4] = 0;
  to_xml(rig, type, object);
  EXPECT_EQ(rig.take_err(), 22) << "the state of an untracked object cannot be told";
  rig.h->last_error = 0;
  EXPECT_EQ(st_wlan_timeout_settings_toxml_cr(rig.h, object, text.data(), 300), -1);
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

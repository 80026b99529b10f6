// The XML Schema that the build makes, held against what the library writes and against what is wrong.
#include <unistd.h>

#include <cstdlib>

#include "filled.h"
#include "tests/golden_file.h"
#include "xml_rig.h"

namespace module_test {
namespace {

namespace fs = std::filesystem;

class Xsd : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "module_xsd.XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override { fs::remove_all(dir_); }

  void add(const std::string& document) {
    char name[32];
    std::snprintf(name, sizeof name, "%05zu.xml", documents_.size());
    golden::spill(dir_ / name, document);
    documents_.push_back(document);
  }
  // What the validator says of all documents, each with its own line.
  std::vector<bool> valid() const {
    const fs::path out = dir_ / "out";
    const std::string schema = ZARN_BINARY_DIR "/generated/share/zarn_wlan.xsd";
    // Not its status: it is not 0 as soon as one document is refused.
    if (std::system(("cd '" + dir_.string() + "' && xmllint --nonet --noout --schema '" + schema + "' *.xml >out 2>&1")
                        .c_str()) == -1) {
      ADD_FAILURE() << "no shell";
    }
    messages_ = golden::slurp(out);
    std::vector<bool> result;
    for (std::size_t i = 0; i < documents_.size(); ++i) {
      char line[64];
      std::snprintf(line, sizeof line, "%05zu.xml validates", i);
      result.push_back(messages_.find(line) != std::string::npos);
    }
    return result;
  }

  fs::path dir_;
  std::vector<std::string> documents_;
  mutable std::string messages_;
};

TEST_F(Xsd, AcceptsWhatTheLibraryWrites) {
  std::vector<std::string> headings;
  for_every_filled([&](Rig& rig, const Type& type, char* object, const std::string& heading) {
    add(to_xml(rig, type, object, type.name.c_str(), rig.tracked() ? 255 : 0));
    headings.push_back(heading);
    char* empty = rig.make(type);
    add(to_xml(rig, type, empty, type.name.c_str()));
    headings.push_back(heading + ", new");
    rig.destroy(type, empty);
  });
  Rig rig;
  for (const Kind kind : {Kind::kEnum, Kind::kFlag}) {
    for (const std::string& type : scalar_types(kind)) {
      if (!find_symbol("_" + type + "_type_info_internal")) continue;
      auto* object = static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
      object[kind == Kind::kEnum ? 8 : 7] = 1;
      // Those of another module stand in this one's documents as fields only.
      if (Catalogue::get().enums.count(type) || (kind == Kind::kFlag && type != "flg_wlan_notify")) {
        add(to_xml(rig, type, object, type.c_str()));
        headings.push_back(type);
      }
      fn<Destroy>(type + "_destroy")(rig.h, rig.txn, object);
    }
  }
  const std::vector<bool> accepted = valid();
  for (std::size_t i = 0; i < accepted.size(); ++i) {
    EXPECT_TRUE(accepted[i]) << headings[i] << "\n" << messages_.substr(0, 2000);
    if (!accepted[i]) break;
  }
}

TEST_F(Xsd, TellsRightFromWrong) {
  const struct {
    bool right;
    const char* document;
  } cases[] = {
      {true, "<st_dtim/>"},
      {true, "<st_dtim> <dot11b_dtim state='255'> 0x0fF </dot11b_dtim><dot11a_dtim>007</dot11a_dtim> </st_dtim>"},
      {false, "<st_dtim><dot11c_dtim>1</dot11c_dtim></st_dtim>"},
      {false, "<st_dtim><dot11a_dtim>1</dot11a_dtim><dot11a_dtim>1</dot11a_dtim></st_dtim>"},
      {false, "<st_dtim>text</st_dtim>"},
      {false, "<st_dtim color='red'/>"},
      {false, "<st_dtim><dot11a_dtim>256</dot11a_dtim></st_dtim>"},
      {false, "<st_dtim><dot11a_dtim>0x100</dot11a_dtim></st_dtim>"},
      {false, "<st_dtim><dot11a_dtim>-1</dot11a_dtim></st_dtim>"},
      {false, "<st_dtim><dot11a_dtim>+1</dot11a_dtim></st_dtim>"},
      {false, "<st_dtim><dot11a_dtim/></st_dtim>"},
      {false, "<st_dtim><dot11a_dtim state='256'>1</dot11a_dtim></st_dtim>"},
      {false, "<st_dtims/>"},
      {true, "<st_wpa_pmf_params><pmf_options><FEATURE_OPTIONAL/></pmf_options></st_wpa_pmf_params>"},
      {false, "<st_wpa_pmf_params><pmf_options><FEATURE_OPTIONEL/></pmf_options></st_wpa_pmf_params>"},
      {false, "<st_wpa_pmf_params><pmf_options>FEATURE_OPTIONAL</pmf_options></st_wpa_pmf_params>"},
      {false,
       "<st_wpa_pmf_params><pmf_options><FEATURE_OPTIONAL/><FEATURE_DISABLED/></pmf_options></st_wpa_pmf_params>"},
      {true, "<zarn_wlan><tbl_wlan><st_wlan><wlan_id>1</wlan_id><ssid> a </ssid></st_wlan></tbl_wlan></zarn_wlan>"},
      {true, "<st_wlan><ssid encoding='hex'>00</ssid><status>1</status></st_wlan>"},
      {false, "<st_wlan><ssid encoding='sealed'>00</ssid></st_wlan>"},
      {false, "<st_wlan><status>yes</status></st_wlan>"},
      {false, "<st_wlan><parent_wlan_oid>1</parent_wlan_oid></st_wlan>"},
      {true, "<st_mpsk_key_info><mpsk_key encoding='sealed'>00</mpsk_key></st_mpsk_key_info>"},
      {true, "<st_mpsk_key_info><mpsk_key>typed by a person</mpsk_key></st_mpsk_key_info>"},
      {false, "<st_mpsk_key_info><mpsk_key encoding='base64'>00</mpsk_key></st_mpsk_key_info>"},
      {false, "<zarn_wlan><tbl_wlan><st_dtim/></tbl_wlan></zarn_wlan>"},
      {false, "<zarn_wlan><tbl_wlan/></zarn_wlan>"},
      {false, "<zarn_wlan><st_wlan/></zarn_wlan>"},
  };
  for (const auto& c : cases) add(c.document);
  const std::vector<bool> accepted = valid();
  for (std::size_t i = 0; i < accepted.size(); ++i) EXPECT_EQ(accepted[i], cases[i].right) << cases[i].document;
}

}  // namespace
}  // namespace module_test

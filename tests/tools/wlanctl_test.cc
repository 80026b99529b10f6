// Tests of wlanctl as a user meets it: exit status, one line of reason, and a database that is whole afterwards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zarn_wlan/zarn_wlan.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

namespace {

namespace fs = std::filesystem;

const std::string kTool = ZARN_BINARY_DIR "/tools/wlanctl";
const std::string kCampus = std::string(ZARN_SOURCE_DIR) + "/examples/campus.xml";

struct Result {
  int status;
  std::string out, err;
};

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void spill(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::size_t lines(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class Wlanctl : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "wlanctl_test.XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
    unsetenv("ZARN_WLAN_DB");
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string at(const std::string& name) const { return (dir_ / name).string(); }

  // Runs a command line of the shell, in which `wlanctl` is the tool.
  Result shell(const std::string& line) const {
    const std::string script = "wlanctl() { '" + kTool + "' \"$@\"; }; cd '" + dir_.string() +
                               "'; set -o pipefail; { " + line + "\n} >out 2>err";
    spill(dir_ / "script", script);
    const int status = std::system(("bash '" + at("script") + "'").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(dir_ / "out"), slurp(dir_ / "err")};
  }
  Result on_database(const std::string& arguments, const std::string& database = "a.db") const {
    return shell("wlanctl --db " + database + " " + arguments);
  }
  void import_campus() const {
    const Result result = on_database("import '" + kCampus + "'");
    ASSERT_EQ(result.status, 0) << result.err;
  }

  fs::path dir_;
};

void expect_refused(const Result& result, int status, const std::string& reason) {
  EXPECT_EQ(result.status, status);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(lines(result.err), 1u) << result.err;
  EXPECT_EQ(result.err.rfind("wlanctl: ", 0), 0u) << result.err;
  EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
}

TEST_F(Wlanctl, WrongCommandLineIsStatusTwo) {
  for (const char* arguments : {"", "--db a.db", "--db a.db fly", "--db a.db find", "--db a.db find --id x",
                                "--db a.db find --id 1 --ssid b", "--db a.db import", "--db a.db set 1", "list",
                                "--db a.db list --table tbl_none", "--db a.db receive --wait 0"}) {
    SCOPED_TRACE(arguments);
    expect_refused(shell("wlanctl " + std::string(arguments)), 2, "");
  }
  EXPECT_FALSE(fs::exists(at("a.db")));
  EXPECT_EQ(shell("wlanctl --help").status, 0);
}

struct BadImport {
  const char* name;
  const char* xml;
  const char* reason;
};

constexpr const char* kGood =
    "<zarn_wlan>\n<tbl_wlan><st_wlan><wlan_id>901</wlan_id><profile_name>p</profile_name>"
    "<ssid>s</ssid></st_wlan></tbl_wlan>\n</zarn_wlan>\n";

constexpr BadImport kBadImports[] = {
    {"Empty", "", "bad.xml: "},
    {"CutShort", "<zarn_wlan>\n <tbl_wlan>\n", "line "},
    {"TagsCrossed", "<zarn_wlan>\n<tbl_wlan><st_wlan></tbl_wlan></st_wlan></zarn_wlan>", "bad.xml: line 2"},
    {"OtherRoot", "<wlans/>", "bad.xml: line 1, column 1: the root element is <wlans>"},
    {"NoRecords", "<zarn_wlan></zarn_wlan>", "holds no records"},
    {"UnknownTable", "<zarn_wlan>\n  <tbl_lan/></zarn_wlan>", "line 2, column 3: there is no table <tbl_lan>"},
    {"UnknownPayload", "<zarn_wlan>\n<tbl_wlan>\n<st_lan/></tbl_wlan></zarn_wlan>",
     "line 3, column 1: unknown element <st_lan> in <tbl_wlan>"},
    {"TwoPayloads", "<zarn_wlan>\n<tbl_wlan><st_wlan/><st_wlan/></tbl_wlan></zarn_wlan>", "must hold one <st_wlan>"},
    {"UnknownField",
     "<zarn_wlan><tbl_wlan><st_wlan>\n<wlan_id>1</wlan_id>\n <sid>x</sid></st_wlan></tbl_wlan></zarn_wlan>",
     "line 3, column 2: unknown element <sid> in <st_wlan>"},
    {"FieldOfAnotherStruct",
     "<zarn_wlan><tbl_wlan><st_wlan>\n<session_timeout>9</session_timeout></st_wlan></tbl_wlan></zarn_wlan>",
     "line 2, column 1: unknown element <session_timeout>"},
    {"UnknownEnumerator",
     "<zarn_wlan><tbl_wlan><st_wlan>\n<mdns_sd_mode><MDNS_SD_SHOUT/></mdns_sd_mode></st_wlan></tbl_wlan></zarn_wlan>",
     "line 2, column 15: unknown element <MDNS_SD_SHOUT> in <mdns_sd_mode>"},
    {"EnumeratorAsText",
     "<zarn_wlan><tbl_wlan><st_wlan>\n<mdns_sd_mode>MDNS_SD_DROP</mdns_sd_mode></st_wlan></tbl_wlan></zarn_wlan>",
     "text has no place in <mdns_sd_mode>"},
    {"FieldTwice", "<zarn_wlan><tbl_wlan><st_wlan>\n<ssid>a</ssid><ssid>b</ssid></st_wlan></tbl_wlan></zarn_wlan>",
     "line 2, column 15: <ssid> stands twice"},
    {"NumberIsText", "<zarn_wlan><tbl_wlan><st_wlan>\n<wlan_id>one</wlan_id></st_wlan></tbl_wlan></zarn_wlan>",
     "line 2, column 1: <wlan_id>"},
    {"NumberTooLarge",
     "<zarn_wlan><tbl_wlan><st_wlan><wlan_timeout><dtim>\n<dot11a_dtim>256</dot11a_dtim></dtim></wlan_timeout>"
     "</st_wlan></tbl_wlan></zarn_wlan>",
     "line 2, column 1: <dot11a_dtim>"},
    {"DuplicateInTheFile",
     "<zarn_wlan>\n<tbl_wlan><st_wlan><wlan_id>1</wlan_id><profile_name>p</profile_name><ssid>s</ssid></st_wlan></"
     "tbl_wlan>"
     "\n<tbl_wlan><st_wlan><wlan_id>2</wlan_id><profile_name>p</profile_name><ssid>t</ssid></st_wlan></tbl_wlan></"
     "zarn_wlan>",
     "line 3, column 1: tbl_wlan does not take wlan_id 2, profile_name \"p\""},
};

TEST_F(Wlanctl, BadFileIsRefusedWithItsPlaceAndLeavesNoDatabase) {
  for (const BadImport& bad : kBadImports) {
    SCOPED_TRACE(bad.name);
    spill(at("bad.xml"), bad.xml);
    expect_refused(on_database("import bad.xml"), 1, bad.reason);
    EXPECT_FALSE(fs::exists(at("a.db")));
  }
  expect_refused(on_database("import missing.xml"), 1, "missing.xml: No such file or directory");
  expect_refused(on_database("import ."), 1, ".: Is a directory");
}

TEST_F(Wlanctl, DuplicateOfTheDatabaseLeavesItAsItWas) {
  spill(at("good.xml"), kGood);
  import_campus();
  const std::string before = on_database("export").out;
  // A new profile in front: it must go again when the second one is refused.
  std::string text = kGood;
  text.replace(text.rfind("</zarn_wlan>"), 12,
               "<tbl_wlan><st_wlan><wlan_id>902</wlan_id><profile_name>q</profile_name><ssid>Library</ssid></st_wlan>"
               "</tbl_wlan>\n</zarn_wlan>");
  spill(at("twice.xml"), text);
  const Result refused = on_database("import twice.xml");
  expect_refused(refused, 1, "twice.xml: line 3, column 1: tbl_apgroup_wlan does not take wlan_id 902");
  EXPECT_NE(refused.err.find("ssid"), std::string::npos) << refused.err;
  EXPECT_EQ(on_database("export").out, before);
  EXPECT_EQ(on_database("import good.xml").status, 0);
}

TEST_F(Wlanctl, ImportedProfileIsFoundByEachKey) {
  import_campus();
  const Result list = on_database("list");
  EXPECT_GE(lines(list.out), 25u) << list.out;
  const std::string by_id = on_database("find --json --id 6").out;
  EXPECT_NE(by_id.find("\"ssid\": \"Campus Guest\""), std::string::npos) << by_id;
  EXPECT_EQ(on_database("find --json --name guest-web").out, by_id);
  EXPECT_EQ(on_database("find --json --ssid 'Campus Guest'").out, by_id);
  expect_refused(on_database("find --ssid 'Campus Gues'"), 1, "no profile has ssid");
  expect_refused(on_database("find --id 4294967295"), 1, "no profile has wlan_id");
  for (const char* arguments : {"--table tbl_internal_wlan_radio_policy DOT11_RADIO_BAND_5_GHZ",
                                "--table tbl_mpsk_keys_int 3", "--table tbl_wireless_aaa_policy aaa-staff"}) {
    EXPECT_EQ(on_database(std::string("show ") + arguments).status, 0) << arguments;
  }
  expect_refused(on_database("show --table tbl_internal_wlan_radio_policy DOT11_RADIO_BAND_7_GHZ"), 1, "no record");
  expect_refused(on_database("show --table tbl_mpsk_keys_int 256"), 1, "no record");
}

// The comments behind a record's XML.
std::string references_in(const std::string& shown) {
  const std::size_t at = shown.find("<!-- ");
  return at == std::string::npos ? "" : shown.substr(at);
}

TEST_F(Wlanctl, ShowFollowsTheReferencesThatNamesMade) {
  import_campus();
  const std::string keys =
      "<!-- int_mpsk_keys_oid leads to tbl_mpsk_keys_int: priority 0; priority 1; priority 2; priority 3; priority 4 "
      "-->\n";
  const std::string policies =
      "<!-- internal_radio_policy_oid leads to tbl_internal_wlan_radio_policy: band DOT11_RADIO_BAND_2_4_GHZ; band "
      "DOT11_RADIO_BAND_5_GHZ; band DOT11_RADIO_BAND_6_GHZ -->\n";
  const std::string dormitory = "<!-- parent_wlan_oid leads to tbl_wlan: wlan_id 11, profile_name \"dorm-mpsk\" -->\n";
  const struct {
    const char* arguments;
    std::string references;
  } cases[] = {{"dorm-mpsk", keys},
               {"--table tbl_apgroup_wlan dorm-mpsk", keys},
               {"roaming", policies},
               {"guest-web", ""},
               {"--table tbl_mpsk_keys_int 3", dormitory},
               {"--table tbl_internal_wlan_radio_policy DOT11_RADIO_BAND_6_GHZ",
                "<!-- parent_wlan_oid leads to tbl_wlan: wlan_id 1, profile_name \"roaming\" -->\n"},
               {"--table tbl_wireless_aaa_policy aaa-staff", ""}};
  // In another database the same records refer to each other, not to where they came from.
  EXPECT_EQ(shell("wlanctl --db a.db send | wlanctl --db b.db --key a.db.key receive").status, 0);
  for (const char* database : {"a.db", "b.db --key a.db.key"}) {
    for (const auto& c : cases) {
      const Result shown = on_database(std::string("show ") + c.arguments, database);
      EXPECT_EQ(shown.status, 0) << shown.err;
      EXPECT_EQ(references_in(shown.out), c.references) << database << " " << c.arguments;
    }
  }
  EXPECT_EQ(on_database("set --table tbl_mpsk_keys_int 3 parent_apfvap_profilename_key guest-web").status, 0);
  EXPECT_EQ(references_in(on_database("show guest-web").out),
            "<!-- int_mpsk_keys_oid leads to tbl_mpsk_keys_int: priority 3 -->\n");
  EXPECT_EQ(on_database("delete dorm-mpsk").status, 0);
  EXPECT_EQ(references_in(on_database("show --table tbl_mpsk_keys_int 0").out),
            "<!-- parent_wlan_oid leads to tbl_wlan -->\n");
}

TEST_F(Wlanctl, ANameWithoutAProfileTiesNothing) {
  spill(at("keys.xml"),
        "<zarn_wlan><tbl_mpsk_keys_int><st_mpsk_key_info><priority>1</priority><parent_apfvap_profilename_key>a--b"
        "</parent_apfvap_profilename_key></st_mpsk_key_info></tbl_mpsk_keys_int></zarn_wlan>");
  EXPECT_EQ(on_database("import keys.xml").status, 0);
  EXPECT_EQ(references_in(on_database("show --table tbl_mpsk_keys_int 1").out), "");
  // The profile comes later, with a name that must not end a comment.
  spill(at("profile.xml"),
        "<zarn_wlan><tbl_wlan><st_wlan><wlan_id>1</wlan_id><profile_name>a--b</profile_name></st_wlan></tbl_wlan>"
        "</zarn_wlan>");
  EXPECT_EQ(on_database("import profile.xml").status, 0);
  EXPECT_EQ(references_in(on_database("show --table tbl_mpsk_keys_int 1").out),
            "<!-- parent_wlan_oid leads to tbl_wlan: wlan_id 1, profile_name \"a- -b\" -->\n");
}

TEST_F(Wlanctl, SecretsStandNowhereInPlainText) {
  import_campus();
  const std::string secret = "House-Linden-3F-kitchen-radio";
  ASSERT_NE(slurp(kCampus).find(secret), std::string::npos);
  EXPECT_EQ(slurp(at("a.db")).find(secret), std::string::npos);
  EXPECT_EQ(on_database("send").out.find(secret), std::string::npos);
  EXPECT_EQ(on_database("show --table tbl_mpsk_keys_int 0").out.find(secret), std::string::npos);
  EXPECT_EQ(on_database("--trace set dorm-mpsk wlan_timeout/session_timeout 5").err.find(secret), std::string::npos);
}

TEST_F(Wlanctl, ExportIsImportedAgainWithEqualRecords) {
  import_campus();
  EXPECT_EQ(on_database("export all.xml").status, 0);
  const Result again = shell("wlanctl --db b.db --key a.db.key import all.xml");
  EXPECT_EQ(again.status, 0) << again.err;
  const Result received = shell(
      "wlanctl --db b.db --key a.db.key send | wlanctl --db c.db --key a.db.key receive --verify '" + kCampus + "'");
  EXPECT_EQ(received.status, 0) << received.err;
}

TEST_F(Wlanctl, ThirdProcessStoresEqualRecordsOverASocket) {
  import_campus();
  const Result both = shell("wlanctl --db b.db --key a.db.key receive --socket s --wait 20 --verify '" + kCampus +
                            "' & wlanctl --db a.db send --socket s --wait 20; sent=$?; wait $! && exit $sent");
  EXPECT_EQ(both.status, 0) << both.err;
  EXPECT_NE(both.out.find("all are stored"), std::string::npos) << both.out;
  EXPECT_NE(both.out.find("all are equal"), std::string::npos) << both.out;
  EXPECT_FALSE(fs::exists(at("s")));
}

TEST_F(Wlanctl, VerifyTellsADifference) {
  import_campus();
  EXPECT_EQ(on_database("set 6 wlan_timeout/session_timeout 77").status, 0);
  const Result result =
      shell("wlanctl --db a.db send | wlanctl --db b.db --key a.db.key receive --verify '" + kCampus + "'");
  expect_refused(result, 1, "tbl_wlan, wlan_id 6, profile_name \"guest-web\": differs");
}

struct BadStream {
  const char* name;
  void (*spoil)(std::string&);
  const char* reason;
};

constexpr BadStream kBadStreams[] = {
    {"Empty", [](std::string& s) { s.clear(); }, "breaks off before its end mark"},
    {"NoEndMark", [](std::string& s) { s.resize(s.size() - 4); }, "breaks off before its end mark"},
    {"CutInAFrame", [](std::string& s) { s.resize(100); }, "frame 1 is cut short"},
    {"TooShortForARecord", [](std::string& s) { s = std::string("\0\0\0\x08garbage!", 12); }, "too short for a record"},
    {"LongerThanAnyRecord", [](std::string& s) { s = std::string("\xff\xff\xff\xff", 4); }, "more than any record"},
    {"UnknownTable", [](std::string& s) { s[4 + 27] ^= 1; }, "frame 1 belongs to no table"},
    {"WrongHeader", [](std::string& s) { s[4] ^= 0x40; }, "frame 1 is no record of tbl_wlan"},
    {"PayloadIsNoise", [](std::string& s) { std::fill(s.begin() + 4 + 43, s.begin() + 4 + 300, '\xff'); }, "frame 1"},
    {"SameRecordTwice",
     [](std::string& s) {
       const auto byte = [&](int i) { return static_cast<std::uint8_t>(s[static_cast<std::size_t>(i)]); };
       const std::size_t size = (std::size_t{byte(0)} << 24 | byte(1) << 16 | byte(2) << 8 | byte(3)) + 4;
       s.insert(0, s.substr(0, size));
     },
     "frame 2: tbl_wlan does not take wlan_id 1"},
};

TEST_F(Wlanctl, BadStreamIsRefusedAndLeavesNoDatabase) {
  import_campus();
  const std::string good = on_database("send").out;
  ASSERT_GT(good.size(), 1000u);
  for (const BadStream& bad : kBadStreams) {
    SCOPED_TRACE(bad.name);
    std::string stream = good;
    bad.spoil(stream);
    spill(at("stream"), stream);
    expect_refused(shell("wlanctl --db b.db receive <stream"), 1, bad.reason);
    EXPECT_FALSE(fs::exists(at("b.db")));
  }
}

TEST_F(Wlanctl, SetMarksTheStateOfTheFieldInBothTables) {
  import_campus();
  const Result result =
      on_database("set guest-web wlan_security/l2_security/l2_auth/wpa_pmf/pmf_options FEATURE_REQUIRED");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(lines(result.out), 2u) << result.out;
  EXPECT_NE(result.out.find("FEATURE_DISABLED -> FEATURE_REQUIRED, state 0 -> 2"), std::string::npos) << result.out;
  const std::string shown = on_database("show guest-web").out;
  EXPECT_NE(shown.find("<FEATURE_REQUIRED"), std::string::npos);
}

TEST_F(Wlanctl, SetTellsNothingOfASecret) {
  import_campus();
  const Result result = on_database("set --table tbl_mpsk_keys_int 2 mpsk_key House-Maple-brass-teapot");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "tbl_mpsk_keys_int mpsk_key: (secret) -> (secret), state 0 -> 2\n");
  EXPECT_EQ(slurp(at("a.db")).find("brass-teapot"), std::string::npos);
}

TEST_F(Wlanctl, SetTakesASecretFromStandardInput) {
  import_campus();
  const std::string set = "set --table tbl_mpsk_keys_int 0 mpsk_key";
  const std::string verify = "wlanctl --db a.db send | wlanctl --db $RANDOM.db --key a.db.key receive --verify '";
  const Result changed = shell("printf 'House-Maple-brass-teapot' | wlanctl --db a.db " + set);
  EXPECT_EQ(changed.out, "tbl_mpsk_keys_int mpsk_key: (secret) -> (secret), state 0 -> 2\n") << changed.err;
  expect_refused(shell(verify + kCampus + "'"), 1, "differs");
  EXPECT_EQ(shell("echo 'House-Linden-3F-kitchen-radio' | wlanctl --db a.db " + set).status, 0);
  EXPECT_EQ(shell(verify + kCampus + "'").status, 0) << "the line end belongs to the value";
  // What cannot be written in XML is refused, and the refusal does not tell it.
  const Result refused = shell("printf 'House-Maple\\001brass-teapot' | wlanctl --db a.db " + set);
  expect_refused(refused, 1, "value: line 1");
  EXPECT_EQ(refused.err.find("teapot"), std::string::npos) << refused.err;
}

TEST_F(Wlanctl, ATerminalDoesNotShowTheSecretThatIsTyped) {
  import_campus();
  int terminal = -1;
  const pid_t tool = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (tool == 0) {
    if (chdir(dir_.c_str()) == 0)
      execl(kTool.c_str(), "wlanctl", "--db", "a.db", "set", "--table", "tbl_mpsk_keys_int", "2", "mpsk_key", nullptr);
    _exit(127);
  }
  ASSERT_GT(tool, 0);
  std::string seen;
  char part[256];
  ssize_t got;
  bool typed = false;
  while ((got = read(terminal, part, sizeof part)) > 0) {
    seen.append(part, static_cast<std::size_t>(got));
    if (!typed && seen.find("mpsk_key: ") != std::string::npos)
      typed = write(terminal, "House-Maple-brass-teapot\n", 25) == 25;
  }
  close(terminal);
  int status = -1;
  EXPECT_EQ(waitpid(tool, &status, 0), tool);
  EXPECT_EQ(status, 0) << seen;
  EXPECT_NE(seen.find("(secret) -> (secret)"), std::string::npos) << seen;
  EXPECT_EQ(seen.find("teapot"), std::string::npos) << seen;
}

TEST_F(Wlanctl, AValueOnTheCommandLineIsOverwrittenThere) {
  import_campus();
  // The database is locked, so that the tool waits with its arguments in sight.
  const int file = open(at("a.db").c_str(), O_RDWR | O_CLOEXEC);
  const std::uint32_t holder = 4711;
  struct flock region {};
  region.l_type = F_WRLCK;
  region.l_whence = SEEK_SET;
  region.l_start = (off_t{1} << 42) + holder;
  region.l_len = 1;
  ASSERT_EQ(fcntl(file, F_OFD_SETLK, &region), 0);
  ASSERT_EQ(pwrite(file, &holder, sizeof holder, 0x400C), ssize_t{sizeof holder});
  const Result seen = shell("'" + kTool +
                            "' --db a.db set --table tbl_mpsk_keys_int 2 mpsk_key House-brass-teapot & tool=$!\n"
                            "for i in {1..200}; do arguments=$(tr '\\0' ' ' </proc/$tool/cmdline)\n"
                            "case $arguments in *'**'*) break;; esac; sleep 0.05; done\n"
                            "kill $tool; echo \"$arguments\"");
  close(file);
  EXPECT_NE(seen.out.find("mpsk_key ******************"), std::string::npos) << seen.out;
  EXPECT_EQ(seen.out.find("teapot"), std::string::npos) << seen.out;
}

TEST_F(Wlanctl, WithTheSendersKeySecretsAreSealedAnew) {
  import_campus();
  EXPECT_EQ(on_database("export all.xml").status, 0);
  for (const char* take : {"import --sender-key a.db.key all.xml", "receive --sender-key a.db.key <frames"}) {
    SCOPED_TRACE(take);
    const Result taken = shell("wlanctl --db a.db send >frames; rm -f b.db* c.db*; wlanctl --db b.db " +
                               std::string(take) + " && mv a.db.key away");
    EXPECT_EQ(taken.status, 0) << taken.err;
    const Result read = shell("wlanctl --db b.db send | wlanctl --db c.db --key b.db.key receive --verify '" + kCampus +
                              "'; status=$?; mv away a.db.key; exit $status");
    EXPECT_EQ(read.status, 0) << read.err;
  }
}

TEST_F(Wlanctl, AnotherKeyIsRefusedAndALostOneReplacedOnDemand) {
  import_campus();
  const std::string list = on_database("list").out;
  EXPECT_EQ(shell("wlanctl --db b.db import '" + kCampus + "'").status, 0);
  expect_refused(on_database("--key b.db.key list"), 1, "key file \"b.db.key\": does not hold the key of the database");
  EXPECT_EQ(shell("rm a.db.key").status, 0);
  for (const std::string& command : {std::string("list"), "import '" + kCampus + "'"})
    expect_refused(on_database(command), 1, "key file \"a.db.key\": No such file or directory");
  EXPECT_EQ(on_database("--replace-key list").out, list);
  EXPECT_EQ(on_database("list").out, list);
}

TEST_F(Wlanctl, SetRefusesWhatTheSchemaDoesNotHave) {
  import_campus();
  const std::string before = on_database("export").out;
  const struct {
    const char *arguments, *reason;
  } cases[] = {
      {"guest-web profile_name other", "is a key"},
      {"guest-web ssid other", "is a key"},
      {"guest-web no_such_field 1", "no field"},
      {"guest-web wlan_timeout 1", "group of fields"},
      {"guest-web wlan_timeout/session_timeout soon", "is no value of session_timeout"},
      {"guest-web wlan_timeout/dtim/dot11a_dtim 256", "is no value of dot11a_dtim"},
      {"guest-web mdns_sd_mode MDNS_SD_SHOUT", "is no enumerator"},
      {"guest-web mdns_sd_mode '<a/>'", "is no enumerator"},
      {"guest-web mdns_sd_mode/MDNS_SD_BRIDGE 1", "no field"},
      {"guest-web ../wlan_id 1", "no path"},
      {"nobody status true", "holds no record \"nobody\""},
  };
  for (const auto& [arguments, reason] : cases) {
    SCOPED_TRACE(arguments);
    expect_refused(on_database("set " + std::string(arguments)), 1, reason);
  }
  EXPECT_EQ(on_database("export").out, before);
}

TEST_F(Wlanctl, DeletedProfileIsGoneFromBothTables) {
  import_campus();
  const std::size_t count = lines(on_database("list").out);
  EXPECT_EQ(on_database("delete guest-web").status, 0);
  EXPECT_EQ(lines(on_database("list").out), count - 1);
  EXPECT_EQ(lines(on_database("list --table tbl_apgroup_wlan").out), count - 1);
  expect_refused(on_database("find --ssid 'Campus Guest'"), 1, "no profile");
  expect_refused(on_database("delete guest-web"), 1, "holds no record");
}

TEST_F(Wlanctl, WatchShowsWhatOthersChange) {
  import_campus();
  const auto watch = [&](const std::string& arguments, const std::string& then) {
    return shell("'" + kTool + "' watch a.db " + arguments +
                 " & W=$!; until ls -l /proc/$W/fd | grep -q inotify; do sleep 0.01; done\n" + then + "; wait $W");
  };
  const std::string changes =
      "wlanctl --db a.db set 1 wlan_timeout/session_timeout 77; wlanctl --db a.db delete 1; wlanctl --db a.db import "
      "'" +
      kCampus + "' 2>/dev/null";
  Result result = watch("--count 2 --table tbl_wlan --json", changes);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("\"kind\": \"modify\", \"table\": \"tbl_wlan\", \"field\": \"wlan_id\", \"key\": \"1\""),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("\"kind\": \"delete\", \"table\": \"tbl_wlan\""), std::string::npos) << result.out;
  result = shell("wlanctl watch a.db --from oldest --count 1");
  EXPECT_NE(result.out.find("modify  tbl_wlan  wlan_id 1\n"), std::string::npos) << result.out;
  for (const char* signal : {"INT", "TERM"}) EXPECT_EQ(watch("", std::string("kill -") + signal + " $W").status, 0);
  expect_refused(shell("wlanctl watch a.db --from 999999"), 1, "not there yet");
}

TEST_F(Wlanctl, NoDatabaseIsNoCrash) {
  expect_refused(on_database("list"), 1, "a.db: ");
  spill(at("a.db"), "this is no database, whatever its name says\n");
  for (const char* command : {"list", "export", "send", "delete 1"}) expect_refused(on_database(command), 1, "a.db: ");
  EXPECT_EQ(slurp(at("a.db")), "this is no database, whatever its name says\n");
}

#ifndef __SANITIZE_ADDRESS__
TEST_F(Wlanctl, ALimitOfAddressSpaceIsAnError) {
  import_campus();
  for (const char* command : {"wlanctl --db a.db list", "wlanctl --db a.db export", "wlanctl --db a.db set 1 ssid x"})
    expect_refused(shell("ulimit -v 1000000; " + std::string(command)), 1, "Cannot allocate memory");
}
#endif

TEST_F(Wlanctl, ReaderThatGoesAwayEndsItQuietly) {
  import_campus();
  const Result result = shell("(wlanctl --db a.db export; echo status $? >&2) | head -c 1 >first");
  EXPECT_EQ(slurp(at("first")), "<");
  EXPECT_EQ(result.err, "status 1\n");
}

TEST_F(Wlanctl, NamesCannotStirTheTerminal) {
  spill(at("odd.xml"),
        "<zarn_wlan><tbl_wlan><st_wlan><wlan_id>1</wlan_id><profile_name>a\nb\xc2\x9b"
        "31m</profile_name><ssid>\xe2\x82\xac</ssid></st_wlan></tbl_wlan></zarn_wlan>");
  EXPECT_EQ(on_database("import odd.xml").status, 0);
  const std::string list = on_database("list").out;
  EXPECT_EQ(lines(list), 2u) << list;
  EXPECT_EQ(list.find("\xc2\x9b"), std::string::npos);
  EXPECT_NE(list.find("\xe2\x82\xac"), std::string::npos);
  EXPECT_NE(on_database("list --json").out.find("a\\u000ab"), std::string::npos);
}

TEST_F(Wlanctl, TimersAreShownAndRun) {
  import_campus();
  EXPECT_EQ(on_database("timers").out, "DUE  IN  EVERY  FOR\n");
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  int err = 0;
  kvt_handle* h = kvt_handle_open_database(at("a.db").c_str(), &options, &err);
  const std::uint32_t txn = kvtdb_txn_begin(h, &err);
  void* queue = wlan_timer_queue_init(h, txn, &err);
  void* table = tbl_wlan_table_open(h, txn, "campus", 1, &err);
  void* record = tbl_wlan_pkey_get_first(h, txn, table, &err);
  st_wlan_ref_cleanup_timer_timer_set(h, txn, queue, tbl_wlan_st_wlan_get_field(h, txn, record), -2, 0, 0, 0, nullptr,
                                      &err);
  kvtdb_txn_commit(h, txn, &err);
  kvt_handle_close(h);
  ASSERT_EQ(err, 0);
  const Result shown = shell("wlanctl timers a.db"), again = on_database("timers");
  EXPECT_TRUE(std::regex_match(shown.out, std::regex("DUE .*\n-?\\d+\\.\\d{6} +-\\d+\\.\\d{6} +-  +wlan_id 1, .*\n")))
      << shown.out;
  EXPECT_EQ(lines(again.out), 2u) << "looking changes nothing";
  const Result run = on_database("timers --run");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out.rfind("expired: wlan_id 1, profile_name \"", 0), 0u) << run.out;
  EXPECT_EQ(lines(on_database("timers --run").out + on_database("timers").out), 1u);
}

const std::string kModule = ZARN_BINARY_DIR "/libzarn_wlan.so";
const std::string kInsertExists = "tbl_wlan insert record exists for st_wlan wlan_id";

TEST_F(Wlanctl, MessagesAndManifestOfABuiltFile) {
  const Result messages = shell("wlanctl trace '" + kModule + "' '" ZARN_BINARY_DIR "/platform/libkvt.so'");
  EXPECT_EQ(messages.status, 0) << messages.err;
  for (const std::string line : {"table zarn_wlan 0: 7 messages, id ", "fatal: Corrupted KVT Handle\n",
                                 "error: tbl_wlan insert record exists for st_wlan wlan_id\n", "table kvt 0: "}) {
    EXPECT_NE(messages.out.find(line), std::string::npos) << line;
  }
  const Result manifest = shell("wlanctl manifest '" + kModule + "'");
  EXPECT_EQ(manifest.status, 0) << manifest.err;
  EXPECT_EQ(manifest.out.rfind("# zarn_wlan.minime\n", 0), 0u);
  EXPECT_NE(manifest.out.find("type002:00048N\n"), std::string::npos);
  EXPECT_NE(manifest.out.find("N\nzarn_wlan\npkg_uid: "), std::string::npos);
}

TEST_F(Wlanctl, OtherFilesHaveNoMessagesAndNoManifest) {
  spill(at("text"), "no built file");
  spill(at("cut.so"), slurp(kModule).substr(0, 5000));
  const struct {
    const char *arguments, *reason;
  } cases[] = {
      {"trace text", "text: is no ELF file"},
      {"trace missing", "missing: No such file or directory"},
      {"trace cut.so", "cut.so: "},
      {"trace '" ZARN_BINARY_DIR "/schema/zarnc'", "holds no message tables"},
      {"trace --ring text", "text: is no trace ring"},
      {"trace --ring missing", "missing: No such file or directory"},
      {"manifest text", "text: is no ELF file"},
      {"manifest .", ".: Is a directory"},
      {"manifest cut.so", "cut.so: "},
      {"manifest '" ZARN_BINARY_DIR "/schema/zarnc'", "holds no manifest"},
  };
  for (const auto& [arguments, reason] : cases) {
    SCOPED_TRACE(arguments);
    expect_refused(shell("wlanctl " + std::string(arguments)), 1, reason);
  }
  for (const char* arguments : {"trace", "manifest", "manifest a b"})
    expect_refused(shell("wlanctl " + std::string(arguments)), 2, "");
}

TEST_F(Wlanctl, TraceOfACommandIsDecodedLater) {
  spill(at("good.xml"), kGood);
  EXPECT_EQ(on_database("import good.xml").status, 0);
  expect_refused(on_database("--trace-file ring import good.xml"), 1, kInsertExists);
  const Result decoded = shell("wlanctl trace --ring ring");
  EXPECT_EQ(decoded.status, 0) << decoded.err;
  EXPECT_NE(decoded.out.find(" error kvt_zarn_wlan: " + kInsertExists + "\n"), std::string::npos) << decoded.out;
  EXPECT_EQ(shell("wlanctl trace --ring ring '" + kModule + "'").out, decoded.out);
  const Result unsaved = on_database("--trace-file no/where list");
  EXPECT_EQ(unsaved.status, 1);
  EXPECT_EQ(unsaved.err, "wlanctl: no/where: the trace is not saved (No such file or directory)\n");
}

// A library without its texts still works, and its lines tell numbers; the file it was made from has the texts for
// them.
TEST_F(Wlanctl, LinesOfAStrippedLibraryAreDecodedWithTheOriginal) {
  spill(at("good.xml"), kGood);
  fs::create_directory(dir_ / "lib");
  EXPECT_EQ(shell("objcopy -R .fenlog_texts '" + kModule + "' lib/libzarn_wlan.so.0").status, 0);
  const std::string with_it = "export LD_LIBRARY_PATH=lib; wlanctl --db a.db --trace-file ring import good.xml";
  EXPECT_EQ(shell(with_it).status, 0);
  const Result refused = shell(with_it);
  expect_refused(refused, 1, "(message ");
  EXPECT_EQ(refused.err.find(kInsertExists), std::string::npos);
  const Result numbers = shell("wlanctl trace --ring ring");
  EXPECT_EQ(numbers.status, 1);
  EXPECT_NE(numbers.out.find(" error kvt_zarn_wlan: message "), std::string::npos) << numbers.out;
  EXPECT_NE(numbers.err.find("have no text: no file has the table with id "), std::string::npos) << numbers.err;
  EXPECT_NE(numbers.err.find("lib/libzarn_wlan.so.0"), std::string::npos) << numbers.err;
  const Result words = shell("wlanctl trace --ring ring '" + kModule + "'");
  EXPECT_EQ(words.status, 0) << words.err;
  EXPECT_NE(words.out.find(kInsertExists), std::string::npos) << words.out;
  expect_refused(shell("wlanctl trace lib/libzarn_wlan.so.0"), 1, "holds no message texts");
}

}  // namespace

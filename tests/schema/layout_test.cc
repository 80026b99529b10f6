// Tests of what follows from a sound schema: places, sizes, state bytes and bounds, of toy types and of the real ones.
#include "tests/schema/rig.h"

namespace zarnc {
namespace {

TEST(Layout, OfEveryKindOfFieldIsGolden) {
  const Outcome run = compile({"--list", (kCases / "toy.zs").string()});
  EXPECT_EQ(run.messages, "");
  EXPECT_EQ(run.out, read_text(kCases / "toy.list"));
}

struct Size {
  const char* name;
  const char* fields;  // of st_toy
  const char* expected;
};

// The reserved room steps up behind an end of 36 and of 64; a wide field rounds from its own variant on.
constexpr Size kSizes[] = {
    {"ByteRightBehindTheHeader", "a u_int8", "used 8 size 12 block 1 bound 1"},
    {"ByteThenWord", "a u_int8, b u_int16", "used 10 size 16 block 2 bound 2"},
    {"BytesArePacked", "a u_int8, b u_int8, c u_int8", "used 10 size 16 block 3 bound 3"},
    {"End36", "a qep_bytestr, b qep_bytestr, c kvt_aes_vstring", "used 36 size 40 block 3 bound 3"},
    {"End37", "a qep_bytestr, b qep_bytestr, c kvt_aes_vstring, d u_int8", "used 37 size 48 block 4 bound 4"},
    {"End64", "a kvt_oid, b qep_bytestr", "used 64 size 72 block 2 bound 2"},
    {"End65", "a kvt_oid, b qep_bytestr, c u_int8", "used 65 size 88 block 3 bound 3"},
    {"NarrowSizeIsNoMultipleOf8", "a kvt_vstring", "used 16 size 20 block 1 bound 1"},
    {"WideSizeIs", "a u_int64", "used 16 size 24 block 1 bound 1"},
    {"ReferenceAfterByte", "a u_int8, b kvt_oid", "used 56 size 64 block 2 bound 2"},
    {"TimerIsAlignedButDoesNotCount", "a u_int8, b timer, c u_int8", "used 73 size 92 block 3 bound 3"},
    {"NestedWideFieldDoesNotCount", "a st_wide", "used 32 size 36 block 2 bound 1"},
};

class ObjectSize : public ::testing::TestWithParam<Size> {};

TEST_P(ObjectSize, IsComputed) {
  std::string text =
      "module toy 1\n  struct st_toy\n  struct st_wide\n"
      "struct st_wide 00000000000000000000000000000001 \"w\"\n  a u_int64 \"w\"\n"
      "struct st_toy 00000000000000000000000000000002 \"t\"\n  ";
  text +=
      replaced(replaced(GetParam().fields, "kvt_oid", "kvt_oid -> struct st_wide"), ", ", " \"f\"\n  ") + " \"f\"\n";
  Scratch scratch;
  const Outcome run = compile({"--list", scratch.write("toy.zs", text)});
  EXPECT_EQ(run.messages, "");
  const std::string head = "  variant 0 ";
  const std::size_t at = run.out.find(head) + head.size();
  EXPECT_EQ(run.out.substr(at, run.out.find('\n', at) - at), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Of, ObjectSize, ::testing::ValuesIn(kSizes), [](const auto& one) { return one.param.name; });

// What a layout has lost and gained, line by line.
std::vector<std::string> lines_only_in(const std::string& text, const std::string& other) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (("\n" + other).find("\n" + line + "\n") == std::string::npos) lines.push_back(line);
  }
  return lines;
}

TEST(Growth, OneLineAddsAFieldAndNothingElseMoves) {
  const std::string text = read_text(kCases / "toy.zs");
  const std::string last = "  leaf  kvt_oid -> struct st_leaf  \"Leaf spoken of\"\n";
  ASSERT_NE(text.find(last), text.npos);
  Scratch scratch;
  const std::string file =
      scratch.write("toy.zs", replaced(text, last, last + "  loud  kvt_boolean  variant 1  \"Said aloud\"\n"));
  const Outcome before = compile({"--list", (kCases / "toy.zs").string()});
  const Outcome after = compile({"--list", file});
  EXPECT_EQ(after.messages, "");
  EXPECT_EQ(lines_only_in(before.out, after.out), std::vector<std::string>{});
  EXPECT_EQ(lines_only_in(after.out, before.out),
            (std::vector<std::string>{"  variant 1 used 60 size 72 block 2 bound 3",
                                      "  field loud kvt_boolean offset 56 width 4 variant 1 state 1"}));
}

class Published : public ::testing::Test {
 protected:
  Outcome against(const std::filesystem::path& tables, std::vector<std::string> files) {
    files.insert(files.begin(), {"--list", "--published", tables.string()});
    return compile(files);
  }

  // The real schema's text with one change.
  std::vector<std::string> changed(const std::string& name, const std::string& from, const std::string& to) {
    std::vector<std::string> files = real_schema();
    for (std::string& file : files) {
      if (std::filesystem::path(file).filename() != name) continue;
      const std::string text = read_text(file);
      EXPECT_NE(text.find(from), text.npos);
      file = scratch_.write(name, replaced(text, from, to));
    }
    return files;
  }

  Scratch scratch_;
  const std::filesystem::path tables_ = kRoot / "schema/published";
};

TEST_F(Published, TablesMatchTheSchema) {
  const Outcome run = against(tables_, real_schema());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.messages, "");
  EXPECT_NE(run.out.find("38 struct st_device_analytics "), run.out.npos);
  EXPECT_NE(run.out.find("50 enum enm_dhcp_option82_format "), run.out.npos);
  EXPECT_NE(run.out.find("77 table tbl_wireless_aaa_policy "), run.out.npos);
}

TEST_F(Published, EveryStoredFactThatMovesIsTold) {
  // Left out, one byte moves the next in its place. The expectations beside the schema would speak first.
  std::vector<std::string> files = changed("features.zs", "  dot11a_dtim  u_int8  \"DTIM period on 802.11a\"\n", "");
  for (std::string& file : files) {
    file = scratch_.write("silent_" + std::filesystem::path(file).filename().string(),
                          replaced(read_text(file), "\nexpect ", "\n# "));
  }
  const Outcome run = against(tables_, files);
  EXPECT_EQ(run.status, 1);
  for (const char* text :
       {"st_dtim field dot11a_dtim: the schema has none", "st_dtim variant 0: used expected 9, computed 8",
        "st_dtim variant 0: size expected 16, computed 12", "st_dtim variant 0: block expected 2, computed 1",
        "st_dtim variant 0: bound expected 2, computed 1", "st_dtim field dot11b_dtim: place expected 1, computed 0",
        "st_dtim field dot11b_dtim: offset expected 8, computed 7",
        "st_dtim field dot11b_dtim: state expected 1, computed 0",
        "st_wlan_timeout_settings field dtim: width expected 16, computed 12"}) {
    EXPECT_NE(run.messages.find(text), run.messages.npos) << text << "\n" << run.messages;
  }
}

struct Change {
  const char* name;
  const char *file, *from, *to;
  const char* message;  // all of them; "" when the change is growth
};

constexpr Change kChanges[] = {
    // Nothing but the new line is written, so what stands beside the schema must hold for the older variants.
    {"NewVariantIsGrowth", "wlan.zs", "variant 3 bookkeeping  \"Modify on the interface-identifier message\"\n",
     "variant 3 bookkeeping  \"Modify on the interface-identifier message\"\n  tenth u_int8 variant 4 \"New\"\n", ""},
    {"OtherTarget", "wlan.zs", "-> struct st_wlan ", "-> struct st_dtim ",
     "schema/published/fields.tsv:261:49: error: st_wlan_notify field wlan_rec_ref: target expected st_wlan, computed "
     "st_dtim\n"},
    {"OtherOrder", "wlan.zs", "  struct st_voice\n  struct st_assisted_roaming_settings\n",
     "  struct st_assisted_roaming_settings\n  struct st_voice\n",
     "schema/published/order.tsv:35:11: error: st_assisted_roaming_settings: expected behind st_voice, computed before "
     "it\n"},
    {"OtherLuid", "keys.zs", "d0e5b1c1f20388aeb67a0a1898e7542c", "d0e5b1c1f20388aeb67a0a1898e7542d",
     "schema/published/order.tsv:16:28: error: st_mpsk_key_info: luid expected d0e5b1c1f20388aeb67a0a1898e7542c, "
     "computed d0e5b1c1f20388aeb67a0a1898e7542d\n"},
    {"OtherEnumerator", "qos.zs", "  QOS_ALLOWED ", "  QOS_MAYBE ",
     "schema/published/enums.tsv:10:1: error: enm_qos_wmm_status enumerator QOS_ALLOWED: the schema has none\n"},
    {"OtherKeyOrder", "wlan.zs", "  key     profile_name\n  key     ssid\n", "  key     ssid\n  key     profile_name\n",
     "schema/published/keys.tsv:8:20: error: tbl_apgroup_wlan key 1: field expected profile_name, computed ssid\n"
     "schema/published/keys.tsv:8:45: error: tbl_apgroup_wlan key 1: offset expected 28, computed 36\n"
     "schema/published/keys.tsv:9:20: error: tbl_apgroup_wlan key 2: field expected ssid, computed profile_name\n"
     "schema/published/keys.tsv:9:37: error: tbl_apgroup_wlan key 2: offset expected 36, computed 28\n"},
    {"OtherRecordLuid", "wlan.zs", "0876c0300a9eace5266bbebed32add47", "0876c0300a9eace5266bbebed32add48",
     "schema/published/tables.tsv:5:28: error: tbl_wlan: record_luid expected 0876c0300a9eace5266bbebed32add47, "
     "computed "
     "0876c0300a9eace5266bbebed32add48\n"},
};

class PublishedChange : public Published, public ::testing::WithParamInterface<Change> {};

TEST_P(PublishedChange, IsFoundOrAllowed) {
  const Change& change = GetParam();
  const Outcome run = against(tables_, changed(change.file, change.from, change.to));
  EXPECT_EQ(run.messages, change.message);
  EXPECT_EQ(run.status, *change.message ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Of, PublishedChange, ::testing::ValuesIn(kChanges),
                         [](const auto& one) { return one.param.name; });

TEST_F(Published, MissingOrMalformedTablesAreErrors) {
  Scratch scratch;
  for (const char* name : {"structs.tsv", "fields.tsv", "enums.tsv", "tables.tsv", "keys.tsv", "order.tsv"}) {
    std::filesystem::copy(tables_ / name, scratch.path() / name);
  }
  scratch.write("structs.tsv", "type\tvariant\tsize\tweight\nst_dtim\t0\t16\t1\nst_dtim\t0\n");
  std::filesystem::remove(scratch.path() / "enums.tsv");
  scratch.write("keys.tsv", "table\tkey\tfield\n");
  const Outcome run = against(scratch.path(), real_schema());
  const std::string at = scratch.path().string() + "/";
  EXPECT_EQ(run.messages, at + "enums.tsv:1:1: error: cannot be read\n" + at + "keys.tsv:1:1: error: holds no rows\n" +
                              at + "structs.tsv:2:14: error: unknown column 'weight'\n" + at +
                              "structs.tsv:3:1: error: expected 4 columns\n");
}

}  // namespace
}  // namespace zarnc

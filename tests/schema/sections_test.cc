// Tests of what the schema compiler has a built file tell of itself: digests that follow the definition and nothing
// else, stamps that are the same for the same build.
#include <stdlib.h>

#include <map>
#include <regex>

#include "tests/schema/rig.h"

namespace zarnc {
namespace {

const std::string kText =
    "module toy 1\n  struct st_leaf\n  struct st_tree\n  struct st_moss\n  enum enm_shade\n  flag flg_marks\n"
    "  table tbl_trees\n"
    "struct st_leaf 00000000000000000000000000000001 \"leaf\"\n  shade enm_shade \"shade\"\n"
    "struct st_tree 00000000000000000000000000000002 \"tree\"\n  id u_int32 unit mm \"number\"\n"
    "  leaf st_leaf \"leaf\"\n  marks flg_marks \"marks\"\n  moss kvt_oid -> struct st_moss \"moss\"\n"
    "struct st_moss 00000000000000000000000000000003 \"moss\"\n  a u_int8 \"a\"\n"
    "enum enm_shade 00000000000000000000000000000004 \"shade\"\n  SHADE_DARK \"dark\"\n  SHADE_RED \"red\"\n"
    "flag flg_marks 00000000000000000000000000000005 \"marks\"\n  MARK_FELL \"fell\"\n"
    "table tbl_trees st_tree \"trees\"\n  luid 00000000000000000000000000000006\n"
    "  record 00000000000000000000000000000007\n  key id\n";

// The lines of the manifest and of the stamp, as they stand in remarks beside the bytes.
std::vector<std::string> told_by(const std::string& schema, const std::vector<std::string>& options = {}) {
  Scratch scratch;
  const std::string file = scratch.write("schema.zs", schema);
  const std::string out = std::filesystem::path(file).parent_path() / "out";
  std::vector<std::string> arguments = {"--out", out, "--module", "toy", file};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const Outcome run = compile(arguments);
  EXPECT_EQ(run.status, 0) << run.messages;
  const std::string source = read_text(std::filesystem::path(out) / "src/toy_sections.cc");
  std::vector<std::string> lines;
  std::istringstream in(source.substr(source.find(".ostrel")));
  for (std::string line; std::getline(in, line);) {
    std::smatch parts;
    if (std::regex_match(line, parts, std::regex(R"(/\* (.*) \*/)"))) lines.push_back(parts[1]);
  }
  return lines;
}

// Digests by the luid's last digit.
std::map<char, std::string> digests_of(const std::string& schema) {
  std::map<char, std::string> digests;
  for (const std::string& line : told_by(schema)) {
    if (line.size() > 65 && line[32] == ':') digests[line[31]] = line.substr(33, 32);
  }
  EXPECT_EQ(digests.size(), 7u);
  return digests;
}

struct Change {
  const char* name;
  const char* from;
  const char* to;
  const char* changed;  // last digits of the luids whose digests change
};

constexpr Change kChanges[] = {
    {"MeaningOfAField", "\"number\"", "\"count\"", ""},
    {"UnitOfAField", " unit mm", "", ""},
    {"OrderOfTypes", "  struct st_leaf\n  struct st_tree", "  struct st_tree\n  struct st_leaf", ""},
    {"Identity", "00000000000000000000000000000003", "00000000000000000000000000000013", ""},
    {"NameOfAField", "  a u_int8", "  b u_int8", "3"},
    {"TypeOfAField", "  a u_int8", "  a u_int16", "3"},
    {"OneFieldMore", "  a u_int8 \"a\"\n", "  a u_int8 \"a\"\n  b u_int8 \"b\"\n", "3"},
    {"NewVariant", "  a u_int8 \"a\"\n", "  a u_int8 \"a\"\n  b u_int8 variant 1 \"b\"\n", "3"},
    {"Target", "struct st_moss \"moss\"", "table tbl_trees \"moss\"", "267"},
    {"NameOfAnEnumerator", "SHADE_RED", "SHADE_BLUE", "12467"},
    {"NewEnumerator", "SHADE_RED \"red\"", "SHADE_RED \"red\"\n  SHADE_BLUE since 1 \"blue\"", "12467"},
    {"OrderOfEnumerators", "SHADE_DARK \"dark\"\n  SHADE_RED", "SHADE_RED \"dark\"\n  SHADE_DARK", "12467"},
    {"NewBit", "MARK_FELL \"fell\"", "MARK_FELL \"fell\"\n  MARK_PRUNE \"prune\"", "2567"},
    {"OtherKey", "  key id\n", "  key id\n  key other\n", "67"},
};

class Digest : public ::testing::TestWithParam<Change> {};

TEST_P(Digest, FollowsTheDefinition) {
  // A field to make a key of, which both sides have.
  const std::string text = replaced(kText, "  leaf st_leaf", "  other u_int16 \"other\"\n  leaf st_leaf");
  const Change& change = GetParam();
  ASSERT_NE(text.find(change.from), text.npos);
  const auto before = digests_of(text), after = digests_of(replaced(text, change.from, change.to));
  std::string changed;
  for (const auto& [luid, digest] : before) {
    if (after.at(luid) != digest) changed += luid;
  }
  EXPECT_EQ(changed, change.changed);
}

INSTANTIATE_TEST_SUITE_P(Of, Digest, ::testing::ValuesIn(kChanges), [](const auto& one) { return one.param.name; });

class Stamp : public ::testing::Test {
 protected:
  void SetUp() override { unsetenv("SOURCE_DATE_EPOCH"); }
  void TearDown() override { unsetenv("SOURCE_DATE_EPOCH"); }
  static std::vector<std::string> stamp(const std::vector<std::string>& options = {}) {
    const std::vector<std::string> lines = told_by(kText, options);
    return {lines.end() - 7, lines.end()};
  }
};

TEST_F(Stamp, NamesNoOneUnasked) {
  const std::vector<std::string> lines = stamp();
  EXPECT_EQ(lines[0], "toy");
  EXPECT_TRUE(std::regex_match(lines[1], std::regex("pkg_uid: [0-9a-f]{32}"))) << lines[1];
  EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.end()),
            (std::vector<std::string>{"built by: -", "on host: -", "pid: -", "at: -", "comment: -"}));
  EXPECT_EQ(stamp(), lines);
}

TEST_F(Stamp, HonoursTheSourceDate) {
  setenv("SOURCE_DATE_EPOCH", "951782400", 1);
  EXPECT_EQ(stamp()[5], "at: 2000-02-29T00:00:00Z");
  EXPECT_EQ(stamp({"--stamp", "at=noon"})[5], "at: noon");
  for (const char* wrong : {"", "today", "-1", "12x", "99999999999999999999"}) {
    setenv("SOURCE_DATE_EPOCH", wrong, 1);
    const Outcome run = compile({"--list", (kCases / "toy.zs").string()});
    EXPECT_EQ(run.status, 2) << wrong;
    EXPECT_EQ(run.messages.substr(0, run.messages.find('\n')),
              "zarnc: error: SOURCE_DATE_EPOCH is no number of seconds: '" + std::string(wrong) + "'");
  }
}

// What is told cannot break out of the remark that shows it.
TEST_F(Stamp, MayHoldAnyLine) { EXPECT_EQ(stamp({"--stamp", "comment=a */ b )\" c"})[6], "comment: a *  b )  c"); }

TEST_F(Stamp, TellsWhatItIsTold) {
  EXPECT_EQ(
      stamp({"--stamp", "built by=a = b", "--stamp", "on host=h", "--stamp", "pid=7", "--stamp", "comment=", "--stamp",
             "pkg_uid=u"}),
      (std::vector<std::string>{"toy", "pkg_uid: u", "built by: a = b", "on host: h", "pid: 7", "at: -", "comment: "}));
}

}  // namespace
}  // namespace zarnc

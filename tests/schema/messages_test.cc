// Tests of what the schema compiler refuses, and where it points. Golden messages lie beside their schemas; after a
// wanted change they are made with `zarnc --list tests/schema/cases/NAME.zs 2>tests/schema/cases/NAME.err` and
// reviewed.
#include "tests/schema/rig.h"

namespace zarnc {
namespace {

class Messages : public ::testing::TestWithParam<const char*> {};

TEST_P(Messages, AreGolden) {
  const std::string name = GetParam();
  const Outcome run = compile({"--list", (kCases / (name + ".zs")).string()});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.messages, read_text(kCases / (name + ".err")));
}

INSTANTIATE_TEST_SUITE_P(Cases, Messages,
                         ::testing::Values("syntax", "names", "types", "variants", "tables", "expectations", "needs"),
                         [](const auto& one) { return std::string(one.param); });

struct Limit {
  const char* name;
  int fields;
  const char* type;
  const char* message;  // "" when it is allowed
};

constexpr Limit kLimits[] = {
    {"MostFields", 255, "u_int8", ""},
    {"OneFieldMore", 256, "u_int8", ":259:3: error: struct 'st_many' has more than 255 fields\n"},
    {"LargeObject", 64, "st_large", ""},
    {"TooLargeObject", 65, "st_large", ":3:8: error: an object of 'st_many' takes 65544 bytes, more than 65535\n"},
};

class Limits : public ::testing::TestWithParam<Limit> {};

TEST_P(Limits, OfOneStruct) {
  const Limit& limit = GetParam();
  std::string text = "# Made by a test.\n\nstruct st_many 00000000000000000000000000000001 \"many fields\"\n";
  for (int i = 0; i < limit.fields; ++i) text += "  f" + std::to_string(i) + " " + limit.type + " \"one\"\n";
  text += "struct st_large 00000000000000000000000000000002 \"a large one\"\n";
  for (int i = 0; i < 82; ++i) text += "  f" + std::to_string(i) + " kvt_aes_vstring \"one\"\n";
  text += "module toy 1\n  struct st_many\n  struct st_large\nexpect st_large size 1008\n";
  Scratch scratch;
  const std::string file = scratch.write("limit.zs", text);
  const Outcome run = compile({"--list", file});
  const std::string message = limit.message;
  EXPECT_EQ(run.status, message.empty() ? 0 : 1);
  EXPECT_EQ(run.messages, message.empty() ? "" : file + message);
}

INSTANTIATE_TEST_SUITE_P(Struct, Limits, ::testing::ValuesIn(kLimits), [](const auto& one) { return one.param.name; });

// A chain of structs, each in the one before it; told from the top or from the bottom.
TEST(Nesting, HasALimitInWhateverOrder) {
  for (int structs : {32, 33}) {
    for (bool from_the_top : {true, false}) {
      SCOPED_TRACE(std::to_string(structs) + (from_the_top ? " from the top" : " from the bottom"));
      std::string text = "module toy 1\n", types;
      for (int i = 0; i < structs; ++i) {
        const std::string number = std::to_string(100 + i);
        text += "  struct st_" + number + "\n";
        std::string type = "struct st_" + number + " " + std::string(29, '0') + number + " \"a\"\n";
        type += i + 1 < structs ? "  next st_" + std::to_string(101 + i) + " \"b\"\n" : "  last u_int8 \"c\"\n";
        types = from_the_top ? types + type : type + types;
      }
      Scratch scratch;
      const std::string file = scratch.write("chain.zs", text + types);
      const Outcome run = compile({"--list", file});
      const std::string line = from_the_top ? "98" : "100";
      EXPECT_EQ(run.messages,
                structs == 32 ? "" : file + ":" + line + ":8: error: more than 32 structs inside each other\n");
    }
  }
}

// Sources that a mistake or malice made large are judged in time that grows as they do. Where it grew with the square,
// each of these would take hours.
TEST(Files, MayBeLargeAndWrong) {
  constexpr int kMany = 400000;
  std::string texts = "module", keys = "struct st_a 00000000000000000000000000000001 \"a\"\n", chain;
  for (int i = 0; i < kMany; ++i) texts += " \"\"";
  for (int i = 0; i < kMany / 4; ++i) keys += "  f" + std::to_string(i) + " u_int8 \"f\"\n";
  keys += "table tbl_a st_a \"a\"\n";
  for (int i = 0; i < kMany / 4; ++i) keys += "  key f" + std::to_string(kMany) + "\n";
  for (int i = 0; i < kMany / 4; ++i) {
    chain += "struct s" + std::to_string(i) + " 0 \"a\"\n f s" + std::to_string(i + 1) + " \"b\"\n";
  }
  Scratch scratch;
  for (const std::string& text : {texts, keys, chain}) {
    const Outcome run = compile({"--list", scratch.write("large.zs", text)});
    EXPECT_EQ(run.status, 1);
    EXPECT_LT(run.messages.size(), 300 * text.size());
  }
}

TEST(Files, AreOneSchemaAndErrorsKeepTheirOrder) {
  Scratch scratch;
  const std::string module = scratch.write("z_first.zs", "module toy 1\n  struct st_b\n  struct st_a\n");
  const std::string type_a =
      scratch.write("b.zs", "struct st_a 00000000000000000000000000000001 \"a\"\n  b st_b \"b\"\n  c st_c \"c\"\n");
  const std::string type_b =
      scratch.write("a.zs", "struct st_b 00000000000000000000000000000002 \"b\"\r\n  a u_int9 \"a\"");
  const Outcome run = compile({"--list", module, type_a, type_b});
  EXPECT_EQ(run.messages,
            type_a + ":3:5: error: unknown type 'st_c'\n" + type_b + ":2:5: error: unknown type 'u_int9'\n");
}

struct Usage {
  const char* name;
  std::vector<std::string> arguments;
  int status;
  const char* message;
};

class Arguments : public ::testing::TestWithParam<Usage> {};

TEST_P(Arguments, AreJudged) {
  const Usage& usage = GetParam();
  std::vector<std::string> arguments = usage.arguments;
  for (std::string& one : arguments) one = replaced(one, "TOY", (kCases / "toy.zs").string());
  const Outcome run = compile(arguments);
  EXPECT_EQ(run.status, usage.status) << run.messages;
  EXPECT_EQ(run.messages.substr(0, run.messages.find('\n')), usage.message);
}

INSTANTIATE_TEST_SUITE_P(
    Line, Arguments,
    ::testing::Values(
        Usage{"Nothing", {}, 2, "zarnc: error: neither --out nor --list given"},
        Usage{"NoFile", {"--list"}, 2, "zarnc: error: no schema file given"},
        Usage{"NoWork", {"TOY"}, 2, "zarnc: error: neither --out nor --list given"},
        Usage{"NoModule", {"--out", "nowhere", "TOY"}, 2, "zarnc: error: --out needs a --module"},
        Usage{"NoValue", {"--list", "TOY", "--module"}, 2, "zarnc: error: --module needs a value"},
        Usage{"UnknownOption", {"--list", "--verbose", "TOY"}, 2, "zarnc: error: unknown option --verbose"},
        Usage{"UnknownModule", {"--list", "--module", "toys", "TOY"}, 1, "zarnc: error: there is no module 'toys'"},
        Usage{"MissingFile", {"--list", "missing.zs"}, 1, "zarnc: error: cannot read missing.zs"},
        Usage{"NoLibrary",
              {"--out", "nowhere", "--module", "toy", "--module", "toy", "TOY"},
              2,
              "zarnc: error: several modules need a --library"},
        Usage{"UnknownStamp",
              {"--list", "--stamp", "host=x", "TOY"},
              2,
              "zarnc: error: --stamp knows no 'host=': pkg_uid, built by, on host, pid, at, comment"},
        Usage{"NoStampValue",
              {"--list", "--stamp", "at", "TOY"},
              2,
              "zarnc: error: --stamp knows no 'at=': pkg_uid, built by, on host, pid, at, comment"},
        Usage{"StampOfTwoLines",
              {"--list", "--stamp", "comment=a\nb", "TOY"},
              2,
              "zarnc: error: a control character in --stamp comment"},
        Usage{"OneModule", {"--list", "--module", "toy", "TOY"}, 0, ""}),
    [](const auto& one) { return one.param.name; });

}  // namespace
}  // namespace zarnc

// The schema compiler is tied to no one schema: a small one has golden output, and a line more in it is a field more in
// a module that compiles and works.
#include <algorithm>
#include <map>

#include "tests/product/rig.h"

namespace product_test {
namespace {

class ToySchema : public Product {
 protected:
  const std::string schema = kSource + "/tests/product/toy/toy.zs";
  void generate(const std::string& file, const std::string& out) const {
    done("env -u SOURCE_DATE_EPOCH '" + kBuild + "/schema/zarnc' --out " + out + " --module toy '" + file + "'");
  }
  std::string run_with(const std::string& changed, const std::string& program) const;
  static std::map<std::string, std::string> files_below(const fs::path& root) {
    std::map<std::string, std::string> files;
    if (!fs::exists(root)) return files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (entry.is_regular_file()) files[fs::relative(entry.path(), root).string()] = slurp(entry.path());
    }
    return files;
  }
};

TEST_F(ToySchema, OutputIsTheGoldenOne) {
  generate(schema, "out");
  const auto made = files_below(dir / "out");
  ASSERT_GT(made.size(), 10u);
  if (updating_golden()) fs::remove_all(golden_path("toy"));
  for (const auto& [name, text] : made) expect_golden("toy/" + name + ".golden", text);
  for (const auto& [name, text] : files_below(golden_path("toy"))) {
    EXPECT_TRUE(made.count(fs::path(name).replace_extension().string())) << name << " is no longer made";
  }
}

TEST_F(ToySchema, OutputIsTheSameOnEveryRunAndAtEveryPlace) {
  generate(schema, "one");
  spill(dir / "elsewhere/copy.zs", slurp(schema));
  generate("elsewhere/copy.zs", "two");
  EXPECT_EQ(files_below(dir / "one"), files_below(dir / "two"));
  const auto before = fs::last_write_time(dir / "one/src/toy_schema.h");
  generate(schema, "one");
  EXPECT_EQ(fs::last_write_time(dir / "one/src/toy_schema.h"), before) << "a file that stays the same is not rewritten";
}

// The output of a program that uses the module of a changed schema.
std::string ToySchema::run_with(const std::string& changed, const std::string& program) const {
  spill(dir / "changed.zs", changed);
  generate("changed.zs", "out");
  std::string unit;
  for (const auto& [name, text] : files_below(dir / "out/src")) {
    if (fs::path(name).extension() == ".cc") unit += "#include \"" + name + "\"\n";
  }
  spill(dir / "toy.cc", unit);
  const std::string includes = " -Iout/include -Iout/src -I'" + kSource + "' -I'" + kSource + "/include' ";
  done(kCompiler + "-std=gnu++20 -O0 -Wall -Wextra -Werror -fno-exceptions -fno-rtti -fvisibility=hidden -c toy.cc" +
       includes);
  done(kCCompiler + "-std=c11 -Wall -Wextra -pedantic -Werror -c '" + kSource + "/tests/product/toy/" + program +
       ".c'" + includes);
  done(kCompiler + program + ".o toy.o " ZARN_PRODUCT_OBJECTS " -L'" + kBuild + "/platform' -lkvt -Wl,-rpath,'" +
       kBuild + "/platform' -o use");
  return done("./use");
}

TEST_F(ToySchema, OneLineIsANewField) {
  const std::string out = run_with(slurp(schema) + "  rings   u_int32  variant 2  \"Rings\"\n", "use_new_field");
  EXPECT_NE(out.find(">1234567</rings>"), std::string::npos) << out;
}

TEST_F(ToySchema, NestedReferencesAreCountedOnceAndChainsEnd) {
  std::string text = slurp(schema);
  const std::string last_struct = "  struct st_tree\n";
  text.insert(text.find(last_struct) + last_struct.size(), "  struct st_grove\n");
  text +=
      "\nstruct st_grove 00000000000000000000000000000008 \"Grove\"\n"
      "  oldest  st_tree                       \"Oldest tree\"\n"
      "  next    kvt_oid -> struct st_grove    \"Next grove on the way\"\n";
  EXPECT_EQ(run_with(text, "use_references"), "");
}

// What stood there before keeps its places.
TEST_F(ToySchema, OlderFieldsStayWhereTheyAre) {
  spill(dir / "grown.zs", slurp(schema) + "  rings   u_int32  variant 2  \"Rings\"\n");
  const std::string list = "'" + kBuild + "/schema/zarnc' --list ";
  const std::vector<std::string> before = lines_of(done(list + "'" + schema + "'"));
  const std::vector<std::string> after = lines_of(done(list + "grown.zs"));
  for (const std::string& line : before) {
    EXPECT_NE(std::find(after.begin(), after.end(), line), after.end()) << line;
  }
  EXPECT_EQ(after.size(), before.size() + 2) << "the field's line and its variant's";
}

}  // namespace
}  // namespace product_test

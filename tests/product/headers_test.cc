// Every public header stands alone, in C and in C++, under the strictest warnings.
#include "tests/product/rig.h"

namespace product_test {
namespace {

class Headers : public Product {
 protected:
  std::vector<std::string> names() const {
    std::vector<std::string> list;
    for (const std::string& root : {kSource + "/include", kBuild + "/generated/include"}) {
      for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.path().extension() == ".h") list.push_back(fs::relative(entry.path(), root).string());
      }
    }
    return list;
  }
  // A source for each header, all given to one run of the compiler.
  void compile(const std::string& compiler, const std::string& extension) {
    const std::vector<std::string> headers = names();
    ASSERT_GT(headers.size(), 80u);
    std::string sources;
    for (std::size_t i = 0; i < headers.size(); ++i) {
      const std::string name = "h" + std::to_string(i) + extension;
      spill(dir / name, "#include <" + headers[i] + ">\nint main(void);\n");
      sources += " " + name;
    }
    done(compiler + " -Wall -Wextra -pedantic -Werror -fsyntax-only -I'" + kSource + "/include' -I'" + kBuild +
         "/generated/include'" + sources);
  }
};

TEST_F(Headers, EachAloneInC11) { compile(kCCompiler + "-std=c11", ".c"); }
TEST_F(Headers, EachAloneInCxx20) { compile(kCompiler + "-std=c++20", ".cc"); }

TEST_F(Headers, UmbrellaBringsEveryTypeOfTheModule) {
  const std::string umbrella = slurp(kBuild + "/generated/include/zarn_wlan/zarn_wlan.h");
  for (const auto& entry : fs::directory_iterator(kBuild + "/generated/include/zarn_wlan")) {
    const std::string name = entry.path().filename().string();
    if (name == "zarn_wlan.h") continue;
    EXPECT_NE(umbrella.find("#include \"zarn_wlan/" + name + "\""), std::string::npos) << name;
  }
}

}  // namespace
}  // namespace product_test

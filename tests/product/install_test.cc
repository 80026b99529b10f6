// An installed library is found and used by a program that knows nothing of this source tree.
#include "tests/product/rig.h"

namespace product_test {
namespace {

class Install : public Product {
 protected:
  void SetUp() override {
    Product::SetUp();
    done(std::string("'" ZARN_PRODUCT_CMAKE "' --install '") + kBuild + "' --prefix '" + prefix() + "'");
  }
  std::string prefix() const { return (dir / "there").string(); }
  // examples/first.c as it was installed, run: an element of the profile that it makes.
  void expect_example(const std::string& program) const {
    const std::string out = done(program);
    EXPECT_NE(out.find("<ssid>Library</ssid>"), std::string::npos) << out;
    EXPECT_NE(out.find("<wlan_id>7</wlan_id>"), std::string::npos) << out;
  }
  const std::string example = "share/zarn_wlan/examples/first.c";
};

TEST_F(Install, PkgConfigBuildsTheExample) {
  const std::string lib = prefix() + "/" ZARN_PRODUCT_LIBDIR;
  const std::string flags = "$(PKG_CONFIG_PATH='" + lib + "/pkgconfig' pkg-config --cflags --libs zarn_wlan)";
  done(kCCompiler + "-std=c11 -Wall -Wextra -pedantic -Werror there/" + example + " " + flags + " -Wl,-rpath,'" + lib +
       "' -o first");
  expect_example("./first");
}

TEST_F(Install, CMakePackageBuildsTheExample) {
  spill(dir / "user/CMakeLists.txt",
        "cmake_minimum_required(VERSION 3.20)\n"
        "project(user LANGUAGES C CXX)\n"
        "find_package(zarn_wlan 0.1 REQUIRED)\n"
        "add_executable(first ../there/" +
            example +
            ")\n"
            "target_link_libraries(first PRIVATE zarn_wlan::zarn_wlan)\n");
  const std::string cmake = "'" ZARN_PRODUCT_CMAKE "' ";
  done(cmake + "-S user -B user/build -DCMAKE_PREFIX_PATH='" + prefix() +
       "' -DCMAKE_C_COMPILER='" ZARN_PRODUCT_CC "' -DCMAKE_CXX_COMPILER='" ZARN_PRODUCT_CXX
       "' -DCMAKE_C_FLAGS='" ZARN_PRODUCT_FLAGS "'");
  done(cmake + "--build user/build");
  expect_example("user/build/first");
}

TEST_F(Install, ToolRunsFromItsNewPlace) {
  done("'" + prefix() + "/bin/wlanctl' --db a.db import '" + prefix() + "/share/zarn_wlan/examples/campus.xml'");
  EXPECT_NE(done("'" + prefix() + "/bin/wlanctl' --db a.db list"), "");
}

// The sections that tools read outlive strip: it takes symbols, not what a file says of itself.
TEST_F(Install, StrippedLibrariesStillTellWhatTheyAre) {
  const std::string prefix = this->prefix();
  done("'" ZARN_PRODUCT_CMAKE "' --install '" + kBuild + "' --strip --prefix '" + prefix + "'");
  const std::string tool = "'" + prefix + "/bin/wlanctl' ",
                    module = "'" + prefix + "/" ZARN_PRODUCT_LIBDIR "/libzarn_wlan.so'";
  EXPECT_EQ(done("readelf -S " + module).find(".symtab"), std::string::npos) << "not stripped";
  EXPECT_EQ(done(tool + "manifest " + module),
            done("'" + kBuild + "/tools/wlanctl' manifest '" + kBuild + "/libzarn_wlan.so'"));
  EXPECT_EQ(done(tool + "trace " + module),
            done("'" + kBuild + "/tools/wlanctl' trace '" + kBuild + "/libzarn_wlan.so'"));
  const std::string import = tool + "--db a.db import '" + prefix + "/share/zarn_wlan/examples/campus.xml'";
  done(import);
  const Result again = shell(import);
  EXPECT_NE(again.out.find("insert record exists for"), std::string::npos) << again.out;
}

// An editor or a script finds the schema of the documents beside the examples.
TEST_F(Install, XmlSchemaTakesTheExampleAndAnExportOfIt) {
  const std::string share = prefix() + "/share/zarn_wlan/", wlanctl = "'" + prefix() + "/bin/wlanctl' --db a.db ";
  const std::string check = "xmllint --nonet --noout --schema '" + share + "zarn_wlan.xsd' ";
  done(check + "'" + share + "examples/campus.xml'");
  done(wlanctl + "import '" + share + "examples/campus.xml' && " + wlanctl + "export out.xml && " + check + "out.xml");
  done("sed s/wlan_id/wlan_ID/ out.xml >wrong.xml");
  EXPECT_NE(shell(check + "wrong.xml").status, 0);
}

// A program that was linked here must find its libraries there, not in the place where they were built.
TEST_F(Install, NothingPointsBackAtTheBuild) {
  const std::string tools = "for f in '" + prefix() + "'/bin/wlanctl '" + prefix() +
                            "'/" ZARN_PRODUCT_LIBDIR "/*.so; do readelf -d \"$f\" | grep -E 'R(UN)?PATH'; done; true";
  EXPECT_EQ(done(tools).find(kBuild), std::string::npos);
  EXPECT_EQ(done("grep -rlF '" + kBuild + "' '" + prefix() +
                 "/" ZARN_PRODUCT_LIBDIR "' --include=*.cmake --include=*.pc; true"),
            "");
}

}  // namespace
}  // namespace product_test

// Processes of two generations of a schema read each other's bytes: fields that only one of them has, at every level of
// nesting, with and without state bytes, as objects and as records.
#include <map>
#include <utility>

#include "tests/product/rig.h"

namespace product_test {
namespace {

// In the order in which a peer prints them; the newer schema's own come last. "-" marks nested objects, "!" a boolean.
constexpr const char* kOlder[] = {"id",           "-middle", "-middle.inner", "middle.inner.small", "middle.inner.text",
                                  "!middle.mark", "tail"};
constexpr const char* kNewer[] = {"middle.inner.wide",  "middle.inner.more", "-middle.second", "middle.second.small",
                                  "middle.second.more", "middle.note",       "name",           "late"};

class Peers : public Product {
 protected:
  void build(const std::string& name, const std::string& schema, const std::string& options) const {
    spill(dir / (name + ".zs"), schema);
    done("'" + kBuild + "/schema/zarnc' --out " + name + " --module peers " + name + ".zs");
    std::string unit;
    for (const auto& entry : fs::directory_iterator(dir / name / "src")) {
      if (entry.path().extension() == ".cc") unit += "#include \"" + entry.path().filename().string() + "\"\n";
    }
    spill(dir / (name + ".cc"), unit);
    const std::string includes =
        " -I" + name + "/include -I" + name + "/src -I'" + kSource + "' -I'" + kSource + "/include' ";
    done(kCompiler + "-std=gnu++20 -O0 -fno-exceptions -fno-rtti -fvisibility=hidden -c " + name + ".cc" + includes);
    done(kCompiler + "-std=gnu++20 -O0 -Wall -Wextra -Werror " + options + " '" + kSource +
         "/tests/product/peers/peer.cc' " + name + ".o " + includes + ZARN_PRODUCT_OBJECTS " -L'" + kBuild +
         "/platform' -lkvt -Wl,-rpath,'" + kBuild + "/platform' -o peer_" + name);
  }
  static std::string grown(const std::string& schema) {
    const std::map<std::string, std::string> more = {
        {"struct st_inner ", "  wide  u_int64  variant 1  \"Wide\"\n  more  kvt_vstring  variant 2  \"More\"\n"},
        {"struct st_middle ",
         "  second  st_inner  variant 1  \"Second inner\"\n  note  kvt_vstring  variant 1  \"Note\"\n"},
        {"struct st_outer ", "  name  kvt_vstring  variant 1  \"Name\"\n  late  u_int16  variant 2  \"Late\"\n"}};
    std::string out, pending;
    for (const std::string& line : lines_of(schema + "\n")) {
      if (line.empty()) out += std::exchange(pending, "");
      out += line + "\n";
      for (const auto& [head, fields] : more) {
        if (line.rfind(head, 0) == 0) pending = fields;
      }
    }
    return out + pending;
  }
  // What a reader prints: values and states of the writer (seed 1) where it could take them, else its own (seed 2).
  static std::string expected(bool writer_grown, bool writer_tracked, bool reader_grown, bool reader_tracked) {
    const bool both = writer_grown && reader_grown;
    std::string out = std::string("used all but 0\nvariants ") + (both ? "2 1 2" : "0 0 0") + "\n";
    unsigned place = 0;
    auto line = [&](const std::string& path, bool taken) {
      const unsigned value = place * 2 + (taken ? 1 : 2);
      const unsigned state = place * 4 + (taken && writer_tracked ? 1 : 2);
      ++place;
      const bool nested = path[0] == '-', boolean = path[0] == '!';
      out += (nested || boolean ? path.substr(1) : path) + " " +
             (nested ? "-" : std::to_string(boolean ? value & 1 : value)) + " " +
             std::to_string(reader_tracked ? state : 0) + "\n";
    };
    for (const char* path : kOlder) line(path, true);
    for (const char* path : kNewer) {
      if (reader_grown) line(path, both);
    }
    return out;
  }
};

TEST_F(Peers, OfOlderAndNewerSchemasReadEachOther) {
  const std::string schema = slurp(kSource + "/tests/product/peers/old.zs");
  build("old", schema, "");
  build("new", grown(schema), "-DGROWN");
  for (const char* what : {"object", "record"}) {
    for (const bool writer_grown : {false, true}) {
      for (const bool writer_tracked : {false, true}) {
        const std::string bytes =
            std::string(what) + (writer_grown ? "_new" : "_old") + (writer_tracked ? "_on" : "_off");
        done(std::string("./peer_") + (writer_grown ? "new" : "old") + " write " + what +
             (writer_tracked ? " on " : " off ") + bytes);
        for (const bool reader_grown : {false, true}) {
          for (const bool reader_tracked : {false, true}) {
            const std::string command = std::string("./peer_") + (reader_grown ? "new" : "old") + " read " + what +
                                        (reader_tracked ? " on " : " off ") + bytes;
            EXPECT_EQ(done(command), expected(writer_grown, writer_tracked, reader_grown, reader_tracked)) << command;
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace product_test

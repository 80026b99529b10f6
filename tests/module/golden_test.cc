// The binary and the XML form of a filled object of every type and variant, as they were when they were decided on.
// These files are a promise to every peer and every stored document: docs/formats/golden.md.
#include "filled.h"
#include "tests/golden_file.h"
#include "xml_rig.h"

namespace module_test {
namespace {

std::string hex_lines(const std::string& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr std::size_t kBytesALine = 56;
  std::string out;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    out += kDigits[static_cast<unsigned char>(bytes[i]) >> 4];
    out += kDigits[static_cast<unsigned char>(bytes[i]) & 15];
    if (i % kBytesALine == kBytesALine - 1 || i + 1 == bytes.size()) out += '\n';
  }
  return out;
}

// One element a line, so that a review sees which one changed.
std::string element_lines(const std::string& xml) {
  std::string out;
  for (std::size_t i = 0; i < xml.size(); ++i) {
    out += xml[i];
    if (xml[i] == '>' && (i + 1 == xml.size() || xml[i + 1] == '<')) out += '\n';
  }
  return out;
}

std::string marshal(Rig& rig, const std::string& type, const void* object) {
  std::string bytes(1 << 16, '\0');
  bytes.resize(fn<Marshal>(type + "_marshal")(rig.h, rig.txn, reinterpret_cast<std::uint8_t*>(bytes.data()), object,
                                              static_cast<std::int32_t>(bytes.size()), &rig.err));
  EXPECT_EQ(rig.take_err(), 0) << type;
  return bytes;
}

TEST(Golden, StructsOfEveryTypeAndVariant) {
  std::map<std::string, std::string> wire, xml;
  for_every_filled([&](Rig& rig, const Type& type, char* object, const std::string& heading) {
    wire[heading] = "# " + heading + "\n" + hex_lines(marshal(rig, type.name, object));
    xml[heading] = "# " + heading + "\n" + element_lines(to_xml(rig, type, object, type.name.c_str()));
  });
  std::string wire_text, xml_text;
  for (const auto& [heading, text] : wire) wire_text += text;
  for (const auto& [heading, text] : xml) xml_text += text;
  golden::expect_golden("wire_structs.txt", wire_text);
  golden::expect_golden("xml_structs.txt", xml_text);
}

// Each enumerator and each bit, and a number that no enumerator has.
TEST(Golden, EnumeratedAndFlagTypes) {
  Rig rig;
  std::string wire, xml;
  auto add = [&](const std::string& type, char* object, const std::string& value) {
    const std::string heading = "# " + type + " " + value + "\n";
    wire += heading + hex_lines(marshal(rig, type, object));
    xml += heading + to_xml(rig, type, object, type.c_str()) + "\n";
  };
  for (const std::string& type : scalar_types(Kind::kEnum)) {
    auto* object = static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
    bool known = true;
    for (std::uint32_t value = 0; known; ++value) {
      known = fn<std::uint32_t(H, std::int32_t)>(type + "_is_valid_cr")(rig.h, static_cast<std::int32_t>(value));
      std::memcpy(object + 8, &value, sizeof value);
      add(type, object, std::to_string(value));
    }
    fn<Destroy>(type + "_destroy")(rig.h, rig.txn, object);
  }
  for (const std::string& type : scalar_types(Kind::kFlag)) {
    auto* object = static_cast<char*>(fn<Create>(type + "_create")(rig.h, rig.txn));
    for (const int bits : {0x00, 0x01, 0x81}) {
      object[7] = static_cast<char>(bits);
      add(type, object, std::to_string(bits));
    }
    fn<Destroy>(type + "_destroy")(rig.h, rig.txn, object);
  }
  golden::expect_golden("wire_scalars.txt", wire);
  golden::expect_golden("xml_scalars.txt", xml);
}

}  // namespace
}  // namespace module_test

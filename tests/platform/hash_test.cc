// Tests of the public hash and of what it is fed by primitive values.
#include "value_rig.h"

namespace kvt_test {
namespace {

std::uint32_t hash_of(const std::string& bytes, std::uint32_t start) {
  return SuperFastHash(bytes.data(), static_cast<std::uint32_t>(bytes.size()), start);
}

// Known results of the public form, which starts with the length.
TEST(SuperFastHash, GivesThePublishedValues) {
  EXPECT_EQ(hash_of("Hello World!", 12), 1774740540u);
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  struct Case {
    std::size_t length;
    std::uint32_t hash;
  };
  for (const Case& c : {Case{256, 3840866583u}, Case{255, 325350515u}, Case{254, 2920741773u}, Case{253, 3586628615u}})
    EXPECT_EQ(hash_of(bytes.substr(0, c.length), static_cast<std::uint32_t>(c.length)), c.hash) << c.length;
}

// Known results of a form that starts with 0; the lengths leave every remainder.
TEST(SuperFastHash, GivesThePublishedValuesUnderASeed) {
  struct Case {
    const char* text;
    std::uint32_t hash;
  };
  for (const Case& c : {Case{"up", 2777873870u}, Case{"yellow", 2027828987u}, Case{"jack", 979934958u},
                        Case{"lime", 1284445480u}, Case{"zip", 3395453351u}, Case{"apple", 3738850110u},
                        Case{"ick", 409795758u}, Case{"mushrooms", 2265380744u}, Case{"strawberry", 4220749037u}})
    EXPECT_EQ(hash_of(c.text, 0), c.hash) << c.text;
  EXPECT_EQ(hash_of("", 0), 0u);
  EXPECT_NE(hash_of("", 7), 7u) << "an empty link of a chain counts";
}

using Hash = std::uint32_t(const void*, std::uint32_t);

TEST(PrimitiveHash, EqualValuesHashAlike) {
  const std::uint32_t yes[] = {1, 0x100}, no = 0;
  EXPECT_EQ(kvt_boolean_hash(&yes[0], 3), kvt_boolean_hash(&yes[1], 3));
  EXPECT_NE(kvt_boolean_hash(&yes[0], 3), kvt_boolean_hash(&no, 3));
  std::int64_t timer[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const std::uint32_t before = kvtlib_timer_hash(timer, 3);
  for (int word = 0; word < 8; ++word) {
    ++timer[word];
    std::int64_t same[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(kvtlib_timer_hash(timer, 3) == before, kvtlib_timer_compare(timer, same) == 0) << word;
    --timer[word];
  }
}

TEST(PrimitiveHash, OfTextLooksAtItsBytesAndTheirNumber) {
  ValueRig rig;
  struct {
    const Primitive& type;
    Hash* hash;
  } const kinds[] = {
      {kPrimitives[5], kvt_vstring_hash}, {kPrimitives[6], kvt_aes_vstring_hash}, {kPrimitives[7], qep_bytestr_hash}};
  for (const auto& kind : kinds) {
    for (const std::string& text :
         {std::string(), std::string("a"), std::string("secret"), std::string(1000, 'x'), std::string(3, '\0')}) {
      Field one(&rig, kind.type);
      int err = 0;
      kind.type.assign(rig, kTxn, one, text.data(), text.size(), &err);
      ASSERT_EQ(err, 0);
      for (std::uint32_t seed : {0u, 9u}) {
        EXPECT_EQ(kind.hash(one, seed), hash_of(text, seed + static_cast<std::uint32_t>(text.size())))
            << kind.type.name;
      }
    }
  }
}

}  // namespace
}  // namespace kvt_test

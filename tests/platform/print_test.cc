// Tests of the pieces of printed text and of the lines of primitive values.
#include <climits>

#include "value_rig.h"

namespace kvt_test {
namespace {

using Printer = std::uint32_t(kvt_handle*, std::uint32_t, char*, std::uint32_t, const char*, const void*, std::int32_t,
                              int*);

std::string print(ValueRig& rig, Printer* printer, const void* p, std::uint32_t indent = 0) {
  char buffer[512];
  int err = 0;
  const std::uint32_t used = printer(rig, kTxn, buffer, indent, "f", p, sizeof buffer, &err);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(buffer[used], '\0');
  return std::string(buffer, used);
}

TEST(PrintLine, TextIsQuotedAndCannotBreakTheLine) {
  struct Case {
    std::string text, printed;
  };
  const Case cases[] = {{"", ""},
                        {"a\"b\\c", "a\\\"b\\\\c"},
                        {"a\nb\rc\td", "a\\nb\\rc\\td"},
                        {std::string("\0\x1b[2J\x7f", 6), "\\x00\\x1b[2J\\x7f"},
                        {"B\xC3\xBCro \xE2\x82\xAC \xF0\x9F\x93\xB6", "B\xC3\xBCro \xE2\x82\xAC \xF0\x9F\x93\xB6"},
                        {"\xC2\x9B", "\\xc2\\x9b"},
                        {"\xC2\xA0", "\xC2\xA0"},
                        {"\xFF\xC3", "\\xff\\xc3"}};
  ValueRig rig;
  for (const Case& c : cases) {
    Field field(&rig, kPrimitives[5]);
    int err = 0;
    kvt_vstring_assign(rig, kTxn, field, c.text.data(), c.text.size(), &err);
    EXPECT_EQ(print(rig, kvt_vstring_print, field), "f@kvt_vstring:\"" + c.printed + "\"\n");
  }
}

class PrintRoom : public testing::TestWithParam<Primitive> {};
INSTANTIATE_TEST_SUITE_P(Every, PrintRoom, testing::ValuesIn(kPrimitives), primitive_name);

TEST_P(PrintRoom, ALineFitsWithItsNulOrIsNotWritten) {
  ValueRig rig;
  Field field(&rig, GetParam());
  int err = 0;
  GetParam().assign(rig, kTxn, field, "12345678", 8, &err);
  const std::size_t need = print(rig, GetParam().print, field, 3).size() + 1;
  for (std::size_t room = 0; room <= need; ++room) {
    std::string buffer(need, '\xCC');
    const std::uint32_t used =
        GetParam().print(rig, kTxn, buffer.data(), 3, "f", field, static_cast<std::int32_t>(room), &err);
    EXPECT_EQ(err, room < need ? 90 : 0) << room;
    EXPECT_EQ(used, room < need ? 0 : need - 1) << room;
    if (room < need) {
      EXPECT_EQ(buffer, std::string(need, '\xCC')) << room;
    }
    // The slot, now set or not, stops the next.
    std::string untouched(need, '\xCC');
    err = 5;
    EXPECT_EQ(GetParam().print(rig, kTxn, untouched.data(), 3, "f", field, 100, &err), 0u);
    EXPECT_EQ(untouched, std::string(need, '\xCC'));
    err = 0;
  }
  EXPECT_EQ(GetParam().print(rig, kTxn, nullptr, UINT_MAX, "f", field, INT_MAX, &err), 0u) << "a mad indentation";
  EXPECT_EQ(std::exchange(err, 0), 90);
  EXPECT_EQ(GetParam().print(rig, kTxn, nullptr, 0, "f", field, -1, &err), 0u);
  EXPECT_EQ(err, 90);
}

TEST(PrintPiece, EndsWithANulAtAnyRoom) {
  ValueRig rig;
  for (std::int32_t room = -1; room <= 6; ++room) {
    for (bool blanks : {false, true}) {
      char buffer[] = "xxxxxxxx";
      int err = 0;
      const std::uint32_t used = blanks ? kvt_print_space(rig, kTxn, buffer, 5, room, &err)
                                        : kvt_snprintf(rig, kTxn, buffer, room, &err, "%s-%u", "abc", 7u);
      EXPECT_EQ(err, room < 6 ? 90 : 0) << room;
      EXPECT_EQ(static_cast<kvt_handle*>(rig)->last_error, err);
      EXPECT_EQ(used, room < 6 ? 0u : 5u) << room;
      EXPECT_STREQ(buffer, room >= 6 ? (blanks ? "     " : "abc-7") : room >= 1 ? "" : "xxxxxxxx") << room;
      EXPECT_STREQ(buffer + 6, "xx");
      static_cast<kvt_handle*>(rig)->last_error = 0;
      err = 5;
      EXPECT_EQ(kvt_print_space(rig, kTxn, buffer, 1, 6, &err) + kvt_snprintf(rig, kTxn, buffer, 6, &err, "%d", 1), 0u);
      EXPECT_EQ(err, 5);
    }
  }
}

}  // namespace
}  // namespace kvt_test

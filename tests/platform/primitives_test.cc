// Tests of kvt/primitives.h: wire form, content of string fields, the fixed parts of a serial object.
#include "kvt/primitives.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>  // needs gtest.h before it

#include <array>
#include <cerrno>
#include <vector>

#include "platform/wire_inline.h"
#include "tests/platform/value_rig.h"

namespace kvt_test {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes marshalled(ValueRig* rig, const Primitive& type, const void* p) {
  int err = 0;
  Bytes bytes(type.len(*rig, kTxn, p));
  EXPECT_EQ(type.marshal(*rig, kTxn, bytes.data(), p, static_cast<std::int32_t>(bytes.size()), &err), bytes.size());
  EXPECT_EQ(err, 0);
  return bytes;
}

class EachPrimitive : public testing::TestWithParam<Primitive> {
 protected:
  const Primitive& type() const { return GetParam(); }
  void give(Field* field, const std::string& content) {
    int err = 0;
    type().assign(rig_, kTxn, *field, content.data(), content.size(), &err);
    ASSERT_EQ(err, 0);
  }
  ValueRig rig_;
};
INSTANTIATE_TEST_SUITE_P(All, EachPrimitive, testing::ValuesIn(kPrimitives), primitive_name);

// The buffers are exact allocations, so that the address sanitizer sees a byte too many too.
TEST_P(EachPrimitive, EveryRoomBelowTheNeedWritesAndReadsNothing) {
  Field field(&rig_, type()), other(&rig_, type());
  give(&field, "a value of some length");
  give(&other, "another");
  const Bytes wire = marshalled(&rig_, type(), field);
  const std::string before = other.raw();
  for (std::int32_t room = -1; room < static_cast<std::int32_t>(wire.size()); ++room) {
    SCOPED_TRACE(room);
    const std::size_t size = room < 0 ? 0 : static_cast<std::size_t>(room);
    Bytes out(size, 0xA5);
    int err = 0;
    EXPECT_EQ(type().marshal(rig_, kTxn, out.data(), field, room, &err), 0u);
    EXPECT_EQ(err, EMSGSIZE);
    EXPECT_EQ(static_cast<kvt_handle*>(rig_)->last_error, EMSGSIZE);
    EXPECT_EQ(out, Bytes(size, 0xA5));

    const Bytes cut(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(size));
    rig_.announced.clear();
    rig_.fail_after = 0;  // a length that the buffer cannot hold is refused before memory is asked for
    err = 0;
    EXPECT_EQ(type().unmarshal(rig_, kTxn, cut.data(), other, room, 0, &err), 0u);
    EXPECT_EQ(err, EMSGSIZE);
    EXPECT_EQ(other.raw(), before);
    EXPECT_TRUE(rig_.announced.empty());
    rig_.fail_after = -1;
  }
}

TEST_P(EachPrimitive, ReadsBackWhatItWrote) {
  for (const std::string& content :
       {std::string(), std::string("\1"), std::string("\0\xFF\0", 3), std::string(70000, 'x')}) {
    Field from(&rig_, type()), to(&rig_, type());
    give(&from, content);
    give(&to, "old");
    const Bytes wire = marshalled(&rig_, type(), from);
    rig_.announced.clear();
    int err = 0;
    EXPECT_EQ(type().unmarshal(rig_, kTxn, wire.data(), to, static_cast<std::int32_t>(wire.size()), 1, &err),
              wire.size());
    EXPECT_EQ(err, 0);
    EXPECT_EQ(type().compare(from, to), 0);
    EXPECT_EQ(marshalled(&rig_, type(), to), wire);
    ASSERT_FALSE(rig_.announced.empty());
    EXPECT_EQ(rig_.announced[0].at, to.bytes);
    EXPECT_EQ(rig_.announced[0].length, type().size);
    EXPECT_NE(rig_.announced[0].before, std::string(to.bytes, type().size)) << "announced after the store";
  }
  EXPECT_EQ(rig_.live_blocks(), 0u);
}

TEST_P(EachPrimitive, ASetErrorStopsEveryOperation) {
  Field field(&rig_, type()), other(&rig_, type());
  give(&field, "kept");
  give(&other, "untouched");
  const Bytes wire = marshalled(&rig_, type(), field);
  kvt_xml_document* document = kvt_xml_parse("<f>1</f>", 8, nullptr, 0);
  ASSERT_NE(document, nullptr);
  const std::string before = other.raw();
  Bytes out(wire.size(), 0xA5);
  std::array<char, 100> text{};
  rig_.announced.clear();
  int err = EEXIST;
  EXPECT_EQ(type().marshal(rig_, kTxn, out.data(), field, 100, &err), 0u);
  EXPECT_EQ(type().unmarshal(rig_, kTxn, wire.data(), other, 100, 0, &err), 0u);
  EXPECT_EQ(type().to_xml(rig_, kTxn, "f", text.data(), field, 100, 0, &err), 0u);
  type().from_xml(rig_, kTxn, "//f", document, other, &err, text.data(), text.size());
  type().set(rig_, kTxn, other, field, &err);
  EXPECT_EQ(err, EEXIST);
  EXPECT_EQ(other.raw(), before);
  EXPECT_EQ(out, Bytes(wire.size(), 0xA5));
  EXPECT_EQ(text[0], 0);
  EXPECT_TRUE(rig_.announced.empty());
  kvt_xml_free(document);
}

TEST_P(EachPrimitive, HasATypeRecordOfItsOwn) {
  EXPECT_EQ(type().record->magic, KVT_TYPE_MAGIC);
  EXPECT_STREQ(type().record->name, type().name);
  for (const Primitive& other : kPrimitives) {
    if (other.record == type().record) continue;
    EXPECT_STRNE(other.record->luid_text, type().record->luid_text);
    EXPECT_NE(other.record->varinfo, type().record->varinfo);
  }
  const kvt_variant_data* varinfo = kvt_varinfo_of(type().record);
  ASSERT_NE(varinfo, nullptr);
  EXPECT_EQ(kvt_variant_entries(varinfo)->used_length, type().size);
}

class EachString : public EachPrimitive {};
INSTANTIATE_TEST_SUITE_P(All, EachString, testing::Values(kPrimitives[5], kPrimitives[6], kPrimitives[7]),
                         primitive_name);

TEST_P(EachString, HostileLengthsAskForNoMemory) {
  for (const std::uint32_t length : {5u, 0x7FFFFFFBu, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFBu, 0xFFFFFFFFu}) {
    Bytes wire(8);
    int err = 0;
    kvt::wire_put<std::uint32_t>(rig_, wire.data(), length, 8, &err);
    Field field(&rig_, type());
    rig_.fail_after = 0;
    EXPECT_EQ(type().unmarshal(rig_, kTxn, wire.data(), field, 8, 0, &err), 0u);
    EXPECT_EQ(err, EMSGSIZE) << length;
    EXPECT_EQ(rig_.fail_after, 0) << length;
  }
}

TEST_P(EachString, AFailedAllocationLeavesTheField) {
  Field field(&rig_, type()), source(&rig_, type());
  give(&field, "old");
  give(&source, "new");
  const Bytes wire = marshalled(&rig_, type(), source);
  const std::string before = field.raw();
  for (int operation = 0; operation < 4; ++operation) {
    SCOPED_TRACE(operation);
    int err = 0;
    rig_.fail_after = operation == 3 ? -1 : 0;
    if (operation == 0) type().set(rig_, kTxn, field, source, &err);
    if (operation == 1) type().assign(rig_, kTxn, field, "new", 3, &err);
    if (operation == 2)
      type().unmarshal(rig_, kTxn, wire.data(), field, static_cast<std::int32_t>(wire.size()), 0, &err);
    if (operation == 3) type().assign(rig_, kTxn, field, "new", 0x80000000u, &err);
    EXPECT_EQ(err, ENOMEM);
    EXPECT_EQ(field.raw(), before);
  }
  rig_.fail_after = -1;
}

TEST_P(EachString, SetAfterARawCopyDuplicatesOrEmpties) {
  Field original(&rig_, type());
  give(&original, "shared");
  {
    Field copy(&rig_, type());
    std::memcpy(copy.bytes, original.bytes, sizeof copy.bytes);
    int err = 0;
    rig_.fail_after = 0;
    type().set(rig_, kTxn, copy, original, &err);
    EXPECT_EQ(err, ENOMEM);
    EXPECT_EQ(copy.raw(), std::string(sizeof copy.bytes, '\0'));
    rig_.fail_after = -1;

    std::memcpy(copy.bytes, original.bytes, sizeof copy.bytes);
    err = 0;
    type().set(rig_, kTxn, copy, original, &err);
    EXPECT_EQ(err, 0);
    EXPECT_EQ(rig_.live_blocks(), 2u);
    EXPECT_EQ(type().compare(copy, original), 0);
  }
  EXPECT_EQ(rig_.live_blocks(), 1u);
  int err = 0;
  type().set(rig_, kTxn, original, original.bytes, &err);
  EXPECT_EQ(rig_.live_blocks(), 1u);
}

TEST_P(EachString, ReplacingFreesTheOldAndDestroyEmpties) {
  Field field(&rig_, type()), empty(&rig_, type());
  give(&field, "one");
  give(&field, "two");
  EXPECT_EQ(rig_.live_blocks(), 1u);
  int err = 0;
  type().set(rig_, kTxn, field, empty, &err);
  EXPECT_EQ(rig_.live_blocks(), 0u);
  EXPECT_EQ(type().compare(field, empty), 0);
  give(&field, "three");
  rig_.announced.clear();
  type().destroy(rig_, kTxn, field, 0);
  EXPECT_EQ(rig_.live_blocks(), 0u);
  EXPECT_EQ(field.raw(), empty.raw());
  EXPECT_EQ(rig_.announced.at(0).at, field.bytes);
  type().destroy(rig_, kTxn, field, 0);
}

TEST_P(EachString, ComparesBytesAsUnsignedAndPrefixesFirst) {
  const std::string ascending[] = {"",    std::string("\0", 1), "a", std::string("a\0", 2), "ab", "b", "\x7F", "\x80",
                                   "\xFF"};
  for (const std::string& left : ascending)
    for (const std::string& right : ascending) {
      Field a(&rig_, type()), b(&rig_, type());
      give(&a, left);
      give(&b, right);
      EXPECT_EQ(type().compare(a, b), (&left > &right) - (&left < &right)) << left << " against " << right;
    }
}

TEST(Wire, ABooleanIsKeptAsOne) {
  ValueRig rig;
  for (const int byte : {0, 1, 2, 255}) {
    const std::uint8_t wire[] = {static_cast<std::uint8_t>(byte)};
    kvt_boolean value = 99;
    int err = 0;
    EXPECT_EQ(kvt_boolean_unmarshal(rig, kTxn, wire, &value, 1, 0, &err), 1u);
    EXPECT_EQ(value, byte != 0);
  }
}

TEST(Wire, MessageHeaderOfAnotherKindOrLayoutOrCutShortIsRefused) {
  ValueRig rig;
  const kvt_message_header header{0xBC, {255, 255, 255, 255, 255, 255}, 1, 0x01020304, 0x0000ABCD};
  std::uint8_t wire[KVT_MESSAGE_HEADER_BYTES];
  int err = 0;
  _kvt_message_header_marshal(rig, kTxn, wire, &header, sizeof wire, &err);
  kvt_message_header read{};
  EXPECT_EQ(_kvt_message_header_unmarshal(rig, kTxn, wire, &read, sizeof wire, &err), sizeof wire);
  EXPECT_EQ(std::memcmp(&read, &header, sizeof read), 0);
  for (const std::size_t at : {0u, 16u, 17u}) {
    std::uint8_t bent[sizeof wire];
    std::memcpy(bent, wire, sizeof wire);
    bent[at] ^= 0x40;
    err = 0;
    EXPECT_EQ(_kvt_message_header_unmarshal(rig, kTxn, bent, &read, sizeof bent, &err), 0u);
    EXPECT_EQ(err, EPROTO) << at;
  }
  for (std::int32_t room = 0; room < KVT_MESSAGE_HEADER_BYTES; ++room) {
    const Bytes cut(wire, wire + room);
    err = 0;
    EXPECT_EQ(_kvt_message_header_unmarshal(rig, kTxn, cut.data(), &read, room, &err), 0u);
    EXPECT_EQ(err, EMSGSIZE) << room;
  }
}

TEST(OidValue, OrderAndZero) {
  const kvt_oid_value ascending[] = {{9, {0}, {0}}, {1, {0}, {1}}, {0, {1}, {0}}, {1, {1}, {0}}, {0, {0x80}, {0}}};
  for (const auto& a : ascending)
    for (const auto& b : ascending) EXPECT_EQ(kvtlib_oid_compare(&a, &b), (&a > &b) - (&a < &b));
  std::uint8_t id[16] = {};
  EXPECT_TRUE(kvt_oid_id_is_zero(id));
  id[15] = 1;
  EXPECT_FALSE(kvt_oid_id_is_zero(id));
}

TEST(TimerBlock, OrdersByDueTimeThenInterval) {
  using Block = std::array<std::int64_t, 8>;
  const Block ascending[] = {{-1, 9}, {0, 5, 1, 0}, {0, 5, 1, 1}, {0, 6}, {1, 0, 0, 0, 99}};
  for (const Block& a : ascending)
    for (const Block& b : ascending) EXPECT_EQ(kvtlib_timer_compare(a.data(), b.data()), (&a > &b) - (&a < &b));
  const Block same_time = {1, 0, 0, 0, 3};
  EXPECT_EQ(kvtlib_timer_compare(ascending[4].data(), same_time.data()), 0)
      << "owner and links are no part of the order";
}

// Whatever the bytes are, a reader stays inside them, and what it takes it can write again.
RC_GTEST_PROP(Wire, AnyBytesAreReadOrRefused, (const std::vector<std::uint8_t>& wire)) {
  ValueRig rig;
  for (const Primitive& type : kPrimitives) {
    Field field(&rig, type);
    const Bytes exact(wire);
    int err = 0;
    const std::uint32_t used =
        type.unmarshal(rig, kTxn, exact.data(), field, static_cast<std::int32_t>(exact.size()), 0, &err);
    RC_ASSERT(used <= exact.size());
    RC_ASSERT((used == 0) == (err != 0));
    if (used) RC_ASSERT(type.len(rig, kTxn, field) == used);
  }
}

}  // namespace
}  // namespace kvt_test

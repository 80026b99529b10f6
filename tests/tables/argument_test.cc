// Tests of what a call refuses before it looks at a table: an error that is set already, and nothing where there must
// be something.
#include <functional>

#include "tests/tables/rig.h"

namespace table_test {
namespace {

class Arguments : public EveryTable {
 protected:
  const TableOps& type = GetParam();
  const KeyOps& key = type.keys[0];
  Rig rig;
  const std::uint32_t txn = rig.txn();
  int* const err = &rig.err;
  void* table = open_table(rig, type);
  void* in = make_record(rig, type, 1, 0);
  void* out = make_record(rig, type, 1, 1);
  void* holder = type.pkey_create(rig, txn);
  std::uint8_t bytes[16] = {};
  const void* present = key_place(rig, key, record_payload(type, in));

  Arguments() { type.insert(rig, txn, table, in, err); }
  std::string state() const {
    return std::string(static_cast<char*>(table), type.size) + std::string(static_cast<char*>(in), type.record_size) +
           std::string(static_cast<char*>(out), type.record_size);
  }
};

TEST_P(Arguments, ASetErrorStopsEveryCall) {
  fenlog_set_level(7);
  const std::string name = type.name;
  char text[500] = "untouched";
  auto* text_bytes = reinterpret_cast<std::uint8_t*>(text);
  void* slot = nullptr;
  kvt_xml_document* document = kvt_xml_parse("<other/>", 8, text + 100, 100);
  // Whether the call gives what it must, and what it says to the curious.
  const struct {
    const char* name;
    std::function<bool()> call;
    std::string line = {};
  } kCalls[] = {
      {"open", [&] { return !type.open(rig, txn, "t", 0, err); }},
      {"open another", [&] { return !type.open(rig, txn, "other", 0, err); }},
      {"open_by_id", [&] { return !type.open_by_id(rig, txn, 1, 0, err); }},
      {"open_auto_id", [&] { return !type.open_auto_id(rig, txn, 0, err); }},
      {"close", [&] { return type.close(rig, txn, table, err), true; }},
      {"free", [&] { return type.free(rig, txn, table, err), true; }},
      {"request_free", [&] { return type.request_free(rig, txn, table, err), true; }},
      {"close_cr, kept", [&] { return type.close_cr(rig, table, 0), true; }},
      {"close_cr, freed", [&] { return type.close_cr(rig, table, 1), true; }},
      {"close_cr, freed later", [&] { return type.close_cr(rig, table, 2), true; }},
      {"insert", [&] { return type.insert(rig, txn, table, out, err), true; }},
      {"pkey_insert", [&] { return type.pkey_insert(rig, txn, table, out, err), true; }},
      {"delete", [&] { return type.remove(rig, txn, table, in, err), true; }},
      {"pkey_delete", [&] { return type.pkey_remove(rig, txn, table, in, err), true; }},
      {"destroy_record", [&] { return type.destroy(rig, txn, in, err) == 0; }},
      {"request_record_destroy", [&] { return type.request_destroy(rig, txn, table, in, err), true; }},
      {"search", [&] { return !key.search(rig, txn, table, present, err); }},
      {"get_first", [&] { return !key.first(rig, txn, table, err); }},
      {"get_next", [&] { return !key.next(rig, txn, table, in, err); }},
      {"get_sub_next", [&] { return !key.sub_next(rig, txn, table, in, err); }},
      {"record_len_cr", [&] { return type.len_cr(rig, in) == 0; }},
      {"record_marshal_cr", [&] { return type.marshal_cr(rig, in, text_bytes, 500) == -1; },
       std::string("Error present in call to table marshal: ") + strerror(44)},
      {"record_toxml_cr", [&] { return type.to_xml_cr(rig, in, text, 500) == -1; }},
      {"record_print_cr", [&] { return type.print_cr(rig, in, text, 500) == -1; }},
      {"pkey_print", [&] { return type.pkey_print(rig, txn, table, in, text, 500, err) == 0; }},
      {"from_xml", [&] { return !type.from_xml(rig, txn, document, err, text, 500); }},
      {"record_marshal", [&] { return type.marshal(rig, txn, text_bytes, in, 500, err) == 0; },
       std::string("Error present in call to table marshal: ") + strerror(5)},
      {"pkey_marshal", [&] { return type.pkey_marshal(rig, txn, text_bytes, in, 500, err) == 0; },
       std::string("Error present in call to table marshal: ") + strerror(5)},
      {"record_unmarshal", [&] { return type.unmarshal(rig, txn, &slot, bytes, 8, 0, err) == 0; },
       "Error present in call to " + name + " unmarshal: " + strerror(5)},
      {"pkey_unmarshal", [&] { return type.pkey_unmarshal(rig, txn, &slot, bytes, 8, err) == 0; },
       "Error present in call to " + name + " pkey unmarshal: " + strerror(5)},
  };
  const std::string before = state();
  const std::size_t blocks = rig.live_blocks();
  rig.err = 5;
  rig->last_error = 44;
  for (const auto& c : kCalls) {
    SCOPED_TRACE(c.name);
    rig.lines.clear();
    EXPECT_TRUE(c.call());
    ASSERT_EQ(rig.err, 5);
    ASSERT_EQ(rig->last_error, 44);
    EXPECT_EQ(rig.take_line(), c.line);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(slot, nullptr);
    ASSERT_EQ(rig.live_blocks(), blocks);
    ASSERT_EQ(state(), before);
  }
  rig.err = rig->last_error = 0;
  kvt_xml_free(document);
  EXPECT_EQ(type.open(rig, txn, "t", 1, err), table);
  fenlog_set_level(6);
}

TEST_P(Arguments, NothingIsRefused) {
  char text[200];
  void* slot = nullptr;
  const struct {
    const char* name;
    std::function<void()> call;
    int code;
  } kCalls[] = {
      {"search, no table", [&] { key.search(rig, txn, nullptr, present, err); }, 2},
      {"search, no key", [&] { key.search(rig, txn, table, nullptr, err); }, 2},
      {"search, no holder", [&] { type.search(rig, txn, table, nullptr, 0, err); }, 2},
      {"search_nearest, no table", [&] { key.search_nearest(rig, txn, nullptr, present, err); }, 2},
      {"search_nearest, no key", [&] { key.search_nearest(rig, txn, table, nullptr, err); }, 2},
      {"next_by_key, no table", [&] { key.next_by_key(rig, txn, nullptr, present, err); }, 2},
      {"next_by_key, no key", [&] { key.next_by_key(rig, txn, table, nullptr, err); }, 2},
      {"prev_by_key, no table", [&] { key.prev_by_key(rig, txn, nullptr, present, err); }, 2},
      {"prev_by_key, no key", [&] { key.prev_by_key(rig, txn, table, nullptr, err); }, 2},
      {"add_ref", [&] { type.add_ref(rig, txn, nullptr, err); }, 2},
      {"destroy_record", [&] { type.destroy(rig, txn, nullptr, err); }, 2},
      {"table_free", [&] { type.free(rig, txn, nullptr, err); }, 2},
      {"unmarshal, no record to update", [&] { type.unmarshal(rig, txn, &slot, bytes, 8, 1, err); }, 2},
      {"pkey_unmarshal, no slot", [&] { type.pkey_unmarshal(rig, txn, nullptr, bytes, 8, err); }, 14},
      {"insert", [&] { type.insert(rig, txn, table, nullptr, err); }, 17},
      {"insert over an error", [&] { rig.err = 5, type.insert(rig, txn, table, nullptr, err); }, 17},
      {"pkey_insert over an error", [&] { rig.err = 5, type.pkey_insert(rig, txn, table, nullptr, err); }, 17},
      {"request_record_destroy, no table", [&] { type.request_destroy(rig, txn, nullptr, in, err); }, 22},
      {"request_record_destroy, no record", [&] { type.request_destroy(rig, txn, table, nullptr, err); }, 22},
      {"pkey_print, no table", [&] { type.pkey_print(rig, txn, nullptr, in, text, 200, err); }, 22},
      {"pkey_print, no record", [&] { type.pkey_print(rig, txn, table, nullptr, text, 200, err); }, 22},
      {"get_count", [&] { EXPECT_EQ(type.count(rig, txn, nullptr), 0u); }, 0},
      {"get_count_by_src", [&] { EXPECT_EQ(type.count_by_src(rig, txn, nullptr, 1), 0u); }, 0},
  };
  const std::string before = state();
  const std::size_t blocks = rig.live_blocks();
  for (const auto& c : kCalls) {
    SCOPED_TRACE(c.name);
    rig->last_error = 0;
    c.call();
    EXPECT_EQ(rig.take_error(), c.code);
    EXPECT_EQ(rig->last_error, c.code);
    EXPECT_EQ(rig.live_blocks(), blocks);
    EXPECT_EQ(state(), before);
  }
  char node[12];
  EXPECT_EQ(key.compare(nullptr, nullptr), 1);
  EXPECT_EQ(key.compare(nullptr, node), 0);
  EXPECT_EQ(key.compare(node, nullptr), 2);
}

INSTANTIATE_TEST_SUITE_P(Tables, Arguments, testing::ValuesIn(kTables), table_name);

}  // namespace
}  // namespace table_test

// Tests of records as bytes and as XML: the frame around the payload, and what happens when there is no room or no
// sense.
#include <algorithm>
#include <functional>

#include "tests/tables/rig.h"

namespace table_test {
namespace {

constexpr std::size_t kHead = 27, kFrame = 43;
constexpr char kUntouched = '\x5A';

class Serial : public EveryTable {
 protected:
  const TableOps& type = GetParam();
  Rig rig{Kind::kPrivate, KVT_STTR_ON};

  void* filled() { return make_record(rig, type, 2, {1, 4, 7}); }
  std::uint8_t* bytes_of(std::string& buffer) { return reinterpret_cast<std::uint8_t*>(buffer.data()); }
  std::uint32_t marshal(void* record, std::string& buffer, std::size_t room) {
    return type.marshal(rig, rig.txn(), bytes_of(buffer), record, static_cast<std::int32_t>(room), &rig.err);
  }
  std::string marshalled(void* record) {
    std::string buffer(16 * 1024, kUntouched);
    const std::uint32_t written = marshal(record, buffer, buffer.size());
    EXPECT_EQ(rig.err, 0);
    EXPECT_EQ(buffer.find_first_not_of(kUntouched, written), std::string::npos);
    return buffer.substr(0, written);
  }
  std::uint32_t unmarshal(void** record, std::string bytes, std::uint32_t update = 0) {
    const std::string whole = bytes;
    const std::uint32_t read = type.unmarshal(rig, rig.txn(), record, bytes_of(bytes),
                                              static_cast<std::int32_t>(bytes.size()), update, &rig.err);
    EXPECT_EQ(bytes, whole);
    return read;
  }
  std::string xml_of(void* record) {
    std::string buffer(256 * 1024, kUntouched);
    const std::uint32_t written =
        type.to_xml(rig, rig.txn(), buffer.data(), record, static_cast<std::int32_t>(buffer.size()), &rig.err);
    EXPECT_EQ(rig.err, 0);
    return buffer.substr(0, written);
  }
  void* read_xml(const std::string& text) {
    char message[200] = "";
    kvt_xml_document* document = kvt_xml_parse(text.data(), text.size(), message, sizeof message);
    EXPECT_NE(document, nullptr) << message;
    void* record = type.from_xml(rig, rig.txn(), document, &rig.err, message, sizeof message);
    kvt_xml_free(document);
    return record;
  }
  bool same_payload(void* a, void* b) {
    return type.payload_compare(record_payload(type, a), record_payload(type, b)) == 0;
  }
  // In every room that is too small: error 90, and not a byte behind the room. A long text is tried at its ends and in
  // steps between. @return what is written with the room that is needed
  std::string in_every_room(std::size_t need, const std::function<std::uint32_t(char*, std::int32_t)>& call,
                            const std::function<void(const std::string&, std::size_t, std::size_t)>& check_short = {}) {
    for (std::size_t room = 0;; room += room < 100 || room + 100 > need ? 1 : 53) {
      SCOPED_TRACE("room " + std::to_string(room));
      std::string buffer(need + 8, kUntouched);
      const std::uint32_t written = call(buffer.data(), static_cast<std::int32_t>(room));
      EXPECT_EQ(rig.take_error(), room < need ? 90 : 0);
      EXPECT_LE(written, room);
      EXPECT_EQ(buffer.find_first_not_of(kUntouched, room), std::string::npos);
      if (room >= need || HasFailure()) return buffer.substr(0, written);
      if (check_short) check_short(buffer, written, room);
    }
  }
  void destroy(void* record) {
    int err = 0;
    type.destroy(rig, rig.txn(), record, &err);
    EXPECT_EQ(err, 0);
  }
};

TEST_P(Serial, FrameOfARecord) {
  rig->message_word = 0x01020304;
  void* record = filled();
  const std::string bytes = marshalled(record);
  ASSERT_GT(bytes.size(), kFrame);
  EXPECT_EQ(bytes[0], '\xBC');
  EXPECT_EQ(bytes.substr(1, 6), std::string(6, '\xFF'));
  EXPECT_EQ(bytes[7], 1) << "the payload carries state bytes";
  EXPECT_EQ(bytes.substr(8, 4), std::string("\1\2\3\4"));
  const auto size = static_cast<std::uint32_t>(bytes.size());
  const char big_endian[] = {static_cast<char>(size >> 24), static_cast<char>(size >> 16), static_cast<char>(size >> 8),
                             static_cast<char>(size)};
  EXPECT_EQ(bytes.substr(12, 4), std::string(big_endian, 4));
  EXPECT_EQ(bytes.substr(27, 16), std::string(reinterpret_cast<const char*>(type.luid), 16));

  std::string payload(bytes.size() - kFrame, kUntouched);
  EXPECT_EQ(type.payload_marshal(rig, rig.txn(), bytes_of(payload), record_payload(type, record),
                                 static_cast<std::int32_t>(payload.size()), &rig.err),
            payload.size());
  EXPECT_EQ(bytes.substr(kFrame), payload);

  // The profile's length counts one byte that is never written.
  const std::size_t spare = std::string(type.payload) == "st_wlan" ? 1 : 0;
  EXPECT_EQ(type.len(rig, rig.txn(), record), bytes.size() + spare);
  EXPECT_EQ(type.len_cr(rig, record), bytes.size() + spare);
  std::string again(bytes.size(), kUntouched);
  EXPECT_EQ(type.marshal_cr(rig, record, bytes_of(again), static_cast<std::int32_t>(again.size())),
            static_cast<std::int32_t>(bytes.size()));
  EXPECT_EQ(again, bytes);

  Rig plain;
  void* untracked = make_record(plain, type);
  std::string buffer(16 * 1024, kUntouched);
  type.marshal(plain, plain.txn(), bytes_of(buffer), untracked, static_cast<std::int32_t>(buffer.size()), &plain.err);
  EXPECT_EQ(plain.err, 0);
  EXPECT_EQ(buffer[7], 0) << "no state bytes without tracking";
}

// The frame's head is written last: there is none over half a record. Only the state byte at the very end may stay
// away.
TEST_P(Serial, BytesInEveryRoom) {
  void* record = filled();
  const std::string whole = marshalled(record);
  auto call = [&](void* of, char* buffer, std::int32_t room) {
    const std::uint32_t written =
        type.marshal(rig, rig.txn(), reinterpret_cast<std::uint8_t*>(buffer), of, room, &rig.err);
    EXPECT_EQ(rig->last_error, rig.err);
    return written;
  };
  auto no_head = [&](const std::string& buffer, std::size_t written, std::size_t room) {
    EXPECT_EQ(written, room < kHead ? 0 : room < kFrame ? kHead : std::max(written, kFrame));
    if (room >= kHead) {
      EXPECT_EQ(buffer.substr(0, kHead), std::string(kHead, '\0'));
    }
  };
  auto of_record = [&](char* buffer, std::int32_t room) { return call(record, buffer, room); };
  const unsigned allocations = rig.allocations;
  EXPECT_EQ(in_every_room(whole.size() - 1, of_record, no_head).size(), whole.size() - 1);
  EXPECT_EQ(rig.allocations, allocations);

  void* empty = type.create(rig, rig.txn(), &rig.err);
  for (const std::size_t room : {0, 26, 27, 42, 43, 500}) {
    std::string buffer(512, kUntouched);
    rig.lines.clear();
    const std::uint32_t written = call(empty, buffer.data(), static_cast<std::int32_t>(room));
    EXPECT_LE(written, kFrame);
    EXPECT_EQ(rig.take_error(), 2);
    EXPECT_EQ(rig.take_line(),
              std::string("Failed to marshal ") + type.name + " record: Field " + type.payload + " is empty");
    no_head(buffer, written, room);
  }
}

TEST_P(Serial, DomainMayForbidTheTable) {
  void* record = filled();
  const std::string bytes = marshalled(record);
  std::snprintf(rig->domain_name, sizeof rig->domain_name, "guests");
  ASSERT_EQ(kvt_domain_allow_table(rig, type.record, 0), 0);
  std::string buffer(bytes.size(), kUntouched);
  rig.lines.clear();
  EXPECT_EQ(marshal(record, buffer, buffer.size()), 0u);
  EXPECT_EQ(rig.take_error(), 52);
  EXPECT_EQ(rig->last_error, 52);
  EXPECT_EQ(buffer, std::string(bytes.size(), kUntouched));
  EXPECT_EQ(rig.take_line(), std::string("domainfail: Table ") + type.name + " (" + type.luid_text +
                                 ") is not allowed for the current domain (guests)");
  void* read = nullptr;
  EXPECT_EQ(unmarshal(&read, bytes), bytes.size()) << "reading is not refused";
  EXPECT_EQ(rig.err, 0);
  ASSERT_EQ(kvt_domain_allow_table(rig, type.record, 1), 0);
  EXPECT_EQ(marshal(record, buffer, buffer.size()), bytes.size());
}

TEST_P(Serial, ReadsBackIntoNewAndOldRecords) {
  void* record = filled();
  const std::string bytes = marshalled(record);
  void* read = nullptr;
  EXPECT_EQ(unmarshal(&read, bytes), bytes.size());
  ASSERT_EQ(rig.err, 0);
  EXPECT_TRUE(same_payload(record, read));
  EXPECT_EQ(record_source(read), 1) << "a record's source does not travel";
  EXPECT_EQ(record_table(read), 0u);
  EXPECT_EQ(marshalled(read), bytes);

  void* other = make_record(rig, type, 1, {2, 9, 3});
  EXPECT_FALSE(same_payload(record, other));
  void* kept = record_payload(type, other);
  void* slot = other;
  EXPECT_EQ(unmarshal(&slot, bytes, 1), bytes.size());
  EXPECT_EQ(rig.err, 0);
  EXPECT_EQ(slot, other);
  EXPECT_EQ(record_payload(type, other), kept);
  EXPECT_TRUE(same_payload(record, other));

  // The identity of the frame is passed over, whatever it is.
  std::string foreign = bytes;
  foreign[27] = static_cast<char>(~foreign[27]);
  void* from_foreign = nullptr;
  EXPECT_EQ(unmarshal(&from_foreign, foreign), bytes.size());
  EXPECT_EQ(rig.err, 0);
  EXPECT_TRUE(same_payload(record, from_foreign));
}

TEST_P(Serial, EveryCutIsToldAndGivenBack) {
  const std::string bytes = marshalled(filled());
  void* slot = type.create(rig, rig.txn(), &rig.err);
  EXPECT_EQ(unmarshal(&slot, bytes, 1), 0u);
  EXPECT_EQ(rig.take_error(), 2) << "a record without payload cannot be updated";
  std::string no_header = bytes;
  no_header[0] = 0;
  slot = nullptr;
  EXPECT_EQ(unmarshal(&slot, no_header), 16u);
  EXPECT_EQ(rig->last_error, 71) << "the payload that is made after it must not hide it";
  EXPECT_EQ(rig.take_error(), 71);
  ASSERT_NE(slot, nullptr) << "the record is handed over for the caller to give back";
  destroy(slot);
  const std::size_t blocks = rig.live_blocks();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    void* read = nullptr;
    unmarshal(&read, bytes.substr(0, length));
    ASSERT_EQ(rig.take_error(), 90) << "length " << length;
    ASSERT_NE(read, nullptr);
    destroy(read);
    ASSERT_EQ(rig.live_blocks(), blocks) << "length " << length;
  }
}

TEST_P(Serial, EveryFailingAllocationIsToldAndGivenBack) {
  void* record = filled();
  const std::string bytes = marshalled(record);
  const std::string xml = xml_of(record);
  std::string key(type.pkey_len(rig, rig.txn(), record, &rig.err), kUntouched);
  type.pkey_marshal(rig, rig.txn(), bytes_of(key), record, static_cast<std::int32_t>(key.size()), &rig.err);
  for (const char* form : {"bytes", "XML", "key"}) {
    const std::size_t blocks = rig.live_blocks();
    bool failed = true;
    for (int n = 0; failed; ++n) {
      SCOPED_TRACE(form + (", allocation " + std::to_string(n)));
      ASSERT_LT(n, 100);
      rig.fail_after = n;
      void* read = nullptr;
      if (*form == 'X') {
        read = read_xml(xml);
      } else if (*form == 'b') {
        unmarshal(&read, bytes);
      } else {
        type.pkey_unmarshal(rig, rig.txn(), &read, bytes_of(key), static_cast<std::int32_t>(key.size()), &rig.err);
      }
      failed = rig.fail_after < 0;
      rig.fail_after = -1;
      ASSERT_TRUE(failed || n > 0) << "it takes no memory";
      ASSERT_EQ(rig.take_error(), failed ? 12 : 0);
      if (read && *form == 'k') {
        type.pkey_destroy(rig, rig.txn(), read);
      } else if (read) {
        destroy(read);
      }
      ASSERT_EQ(rig.live_blocks(), blocks);
    }
  }
}

TEST_P(Serial, XmlThereAndBack) {
  void* record = filled();
  const std::string xml = xml_of(record);
  const std::string open = std::string("<") + type.name + "><" + type.payload + ">";
  const std::string close = std::string("</") + type.payload + "></" + type.name + ">";
  auto without_blanks = [](std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\n'; }), text.end());
    return text;
  };
  const std::string dense = without_blanks(xml);
  EXPECT_EQ(dense.substr(0, open.size()), open);
  ASSERT_GE(dense.size(), close.size());
  EXPECT_EQ(dense.substr(dense.size() - close.size()), close);
  void* read = read_xml(xml);
  ASSERT_EQ(rig.err, 0);
  EXPECT_TRUE(same_payload(record, read));
  EXPECT_EQ(xml_of(read), xml);

  std::string again(xml.size(), kUntouched);
  EXPECT_EQ(type.to_xml_cr(rig, record, again.data(), static_cast<std::int32_t>(again.size())),
            static_cast<std::int32_t>(xml.size()));
  EXPECT_EQ(again, xml);
  auto to_xml = [&](char* buffer, std::int32_t room) {
    return type.to_xml(rig, rig.txn(), buffer, record, room, &rig.err);
  };
  EXPECT_EQ(in_every_room(xml.size(), to_xml), xml);
}

TEST_P(Serial, XmlWithoutTheElementGivesAFreshRecord) {
  void* read = read_xml("<other><thing>1</thing></other>");
  EXPECT_EQ(rig.err, 0);
  ASSERT_NE(read, nullptr);
  void* fresh = type.create_cr(rig, 1);
  EXPECT_TRUE(same_payload(read, fresh));
  EXPECT_EQ(record_refs(read), 1u);
}

TEST_P(Serial, TextsInEveryRoom) {
  void* record = filled();
  void* payload = record_payload(type, record);
  std::string inner(256 * 1024, kUntouched);
  inner.resize(type.payload_print(rig, rig.txn(), inner.data(), 2, type.payload, payload,
                                  static_cast<std::int32_t>(inner.size()), &rig.err));
  const std::string text = std::string("record@") + type.name + ": {\n" + inner + "}\n";
  std::string out(256 * 1024, kUntouched);
  EXPECT_EQ(type.print_cr(rig, record, out.data(), static_cast<std::int32_t>(out.size())),
            static_cast<std::int32_t>(text.size()));
  EXPECT_EQ(out.substr(0, text.size()), text);
  // The payload wants room for its binary form even where its text is shorter.
  const std::size_t before = text.find('\n') + 1;
  const std::size_t need = std::max(text.size() + 1, before + type.payload_len(rig, rig.txn(), payload));
  auto print = [&](char* buffer, std::int32_t room) {
    return type.print(rig, rig.txn(), buffer, record, room, &rig.err);
  };
  EXPECT_EQ(in_every_room(need, print), text);

  void* table = open_table(rig, type);
  const std::uint32_t bytes = type.pkey_len(rig, rig.txn(), record, &rig.err);
  auto print_key = [&](char* buffer, std::int32_t room) {
    return type.pkey_print(rig, rig.txn(), table, record, buffer, room, &rig.err);
  };
  std::size_t key_need = 0;
  while (print_key(out.data(), static_cast<std::int32_t>(key_need)), rig.take_error()) ASSERT_LT(++key_need, 200u);
  ASSERT_GE(key_need, bytes);
  auto untouched = [&](const std::string& buffer, std::size_t, std::size_t room) {
    if (room < bytes) {
      EXPECT_EQ(buffer, std::string(buffer.size(), kUntouched));
    }
  };
  EXPECT_EQ(in_every_room(key_need, print_key, untouched).find(type.keys[0].name), 0u) << "without an indent";
}

// The key alone: as long as it says, in the bytes of its type, refused where the room is short, and a holder that finds
// its record when it is read.
TEST_P(Serial, KeysThereAndBack) {
  void* table = open_table(rig, type);
  for (unsigned n = 0; n < key_values(type.keys[0].kind); ++n) {
    SCOPED_TRACE("key " + std::to_string(n));
    void* record = make_record(rig, type, 1, n);
    type.insert(rig, rig.txn(), table, record, &rig.err);
    const std::uint32_t need = type.pkey_len(rig, rig.txn(), record, &rig.err);
    auto write = [&](char* buffer, std::int32_t room) {
      return type.pkey_marshal(rig, rig.txn(), reinterpret_cast<std::uint8_t*>(buffer), record, room, &rig.err);
    };
    auto untouched = [&](const std::string& buffer, std::size_t, std::size_t) {
      EXPECT_EQ(buffer, std::string(buffer.size(), kUntouched));
    };
    std::string bytes = in_every_room(need, write, untouched);
    ASSERT_EQ(bytes.size(), need);
    if (type.keys[0].kind == KeyKind::kWord || type.keys[0].kind == KeyKind::kByte) {
      const std::string order = key_order(type.keys[0].kind, n);
      EXPECT_EQ(bytes, order.substr(order.size() - need)) << "no frame, and the highest byte first";
    }
    for (std::uint32_t length = 0; length <= need; ++length) {
      const std::size_t blocks = rig.live_blocks();
      void* holder = nullptr;
      const std::uint32_t read =
          type.pkey_unmarshal(rig, rig.txn(), &holder, bytes_of(bytes), static_cast<std::int32_t>(length), &rig.err);
      ASSERT_EQ(rig.take_error() == 0, length == need) << "length " << length;
      ASSERT_NE(holder, nullptr);
      if (length == need) {
        EXPECT_EQ(read, need);
        EXPECT_EQ(type.search(rig, rig.txn(), table, holder, 0, &rig.err), record);
      }
      type.pkey_destroy(rig, rig.txn(), holder);
      EXPECT_EQ(rig.live_blocks(), blocks);
    }
    rig->last_error = 0;
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, Serial, testing::ValuesIn(kTables), table_name);

TEST(SerialXml, ABadValueGivesNoRecordAndNoLeak) {
  Rig rig;
  const TableOps& type = table_named("tbl_wlan");
  const std::string text = "<tbl_wlan><st_wlan><ssid>Library</ssid><wlan_id>many</wlan_id></st_wlan></tbl_wlan>";
  char message[200] = "";
  kvt_xml_document* document = kvt_xml_parse(text.data(), text.size(), message, sizeof message);
  const std::size_t blocks = rig.live_blocks();
  EXPECT_EQ(type.from_xml(rig, rig.txn(), document, &rig.err, message, sizeof message), nullptr);
  EXPECT_NE(rig.take_error(), 0);
  EXPECT_NE(std::string(message).find("wlan_id"), std::string::npos) << message;
  EXPECT_EQ(rig.live_blocks(), blocks);
  kvt_xml_free(document);
}

}  // namespace
}  // namespace table_test

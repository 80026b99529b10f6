// Tests of the binary form of all types: every writer variant with every reader variant, tracked or not, short room,
// cut and damaged bytes.
#include <random>

#include "guarded_buffer.h"
#include "rig.h"

namespace module_test {
namespace {

constexpr int kMaxVariant = 7;
constexpr char kOldState = '\x5A';

std::string marshal(Rig& rig, const Type& type, const void* object, std::int32_t slack = 16) {
  const std::uint32_t need = fn<Len>(type.name + "_len")(rig.h, rig.txn, object);
  std::string bytes(need + static_cast<std::uint32_t>(slack), '\xCC');
  const std::uint32_t written =
      fn<Marshal>(type.name + "_marshal")(rig.h, rig.txn, reinterpret_cast<std::uint8_t*>(bytes.data()), object,
                                          static_cast<std::int32_t>(bytes.size()), &rig.err);
  EXPECT_EQ(bytes.find_first_not_of('\xCC', written), std::string::npos) << type.name << ": written behind the end";
  bytes.resize(written);
  return bytes;
}

std::uint32_t unmarshal(Rig& rig, const Type& type, const std::string& bytes, void* object) {
  // In memory of its own, so that a read beyond the end is seen under a sanitizer.
  std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
  return fn<Unmarshal>(type.name + "_unmarshal")(rig.h, rig.txn, exact.data(), object,
                                                 static_cast<std::int32_t>(exact.size()), 0, &rig.err);
}

// Makes an object and all that is nested in it one that a library of older variants built.
void age(Rig& rig, const Type& type, char* object, int built) {
  auto cut = [built](char* at, const Type& type) { at[4] = at[5] = static_cast<char>(std::min(built, type.top())); };
  cut(object, type);
  for (const Slot& slot : slots_of(type, object)) {
    if (kind_of(*slot.field) == Kind::kStruct) cut(slot.at(), type_of(slot.field->kind));
  }
  const auto size = type.size[static_cast<std::size_t>(object[5])];
  if (rig.tracked()) fn<OffsetUpdate>(type.name + "_offset_update")(rig.h, rig.txn, object, object + size);
}

int highest_variant(const Type& type) {
  int highest = 0;
  for (const Slot& slot : slots_of(type, nullptr)) highest = std::max(highest, slot.variant);
  return highest;
}

struct Reading {
  Tracking tracking;
  Watch watch;
};

void expect_skewed_trip(const Type& type, Tracking writing, Reading reading, int writer, int reader) {
  Rig from(writing);
  if (writer < highest_variant(type)) limit_domain(from, writer);
  char* source = from.make(type);
  fill(from, type, source, 1, writer);
  if (from.tracked()) {
    for (std::uint32_t i = 0; i < type.block.back(); ++i) source[type.size.back() + i] = static_cast<char>(1 + i % 89);
  }
  const std::string bytes = marshal(from, type, source);
  EXPECT_EQ(from.take_err(), 0);
  const bool timer_counted = type.name == "st_wlan" && from.tracked() && writer >= 3;
  EXPECT_EQ(fn<Len>(type.name + "_len")(from.h, from.txn, source), bytes.size() + timer_counted);

  Rig to(reading.tracking, Place::kPrivate, reading.watch);
  char* object = to.make(type);
  age(to, type, object, reader);
  fill(to, type, object, 2, reader);
  const auto built = static_cast<std::size_t>(object[5]);
  char* states = object + type.size[built];
  if (to.tracked()) std::memset(states, kOldState, type.block[built]);
  Contents expected = contents_of(type, object, reader);
  std::string expected_states(to.tracked() ? type.block[built] : 0, kOldState);
  const int common = std::min(writer, reader);
  for (const Slot& slot : slots_of(type, source)) {
    if (slot.variant > common || kind_of(*slot.field) == Kind::kTimer) continue;
    expected[slot.path] = content_of(slot);
    if (to.tracked() && from.tracked()) expected_states[slot.state] = source[type.size.back() + slot.state];
  }
  auto read = [&] { EXPECT_EQ(unmarshal(to, type, bytes + "tail", object), bytes.size()); };
  if (reading.watch == Watch::kAll) {
    EXPECT_TRUE(announces_all(to, read));
  } else {
    read();
  }
  EXPECT_EQ(to.take_err(), 0);
  EXPECT_EQ(contents_of(type, object, reader), expected);
  EXPECT_EQ(std::string(states, expected_states.size()), expected_states);
  EXPECT_EQ(object[4], std::min({common, type.top()}));
  EXPECT_EQ(object[6], to.tracked() ? KVT_OBJ_STATE_TRACKED : 0);
}

TEST(Binary, EveryReaderTakesWhatEveryWriterGives) {
  for (const Type& type : all_types()) {
    const int highest = highest_variant(type);
    for (int writer = 0; writer <= highest; ++writer) {
      for (int reader = 0; reader <= highest; ++reader) {
        for (Tracking writing : {Tracking::kAbsent, Tracking::kOn}) {
          for (Reading reading : {Reading{Tracking::kOff, Watch::kAll}, Reading{Tracking::kOn, Watch::kAll},
                                  Reading{Tracking::kAbsent, Watch::kNot}, Reading{Tracking::kOn, Watch::kNot}}) {
            SCOPED_TRACE(type.name + ": variant " + std::to_string(writer) + " tracking " + name_of(writing) +
                         " to variant " + std::to_string(reader) + " tracking " + name_of(reading.tracking) +
                         (reading.watch == Watch::kAll ? ", watched" : ""));
            expect_skewed_trip(type, writing, reading, writer, reader);
            if (testing::Test::HasFailure()) return;
          }
        }
      }
    }
  }
}

std::string hex(const std::string& bytes) {
  std::string text;
  for (unsigned char byte : bytes) {
    char two[4];
    std::snprintf(two, sizeof two, "%02x ", byte);
    text += two;
  }
  return text;
}

// The dump of docs/formats/wire.md that is explained byte by byte: lines of a position, bytes and words.
std::string documented_dump() {
  std::ifstream file(ZARN_SOURCE_DIR "/docs/formats/wire.md");
  std::string bytes, line;
  while (std::getline(file, line) && line.find("Dump: a `st_wlan_timeout_settings`") == std::string::npos) {
  }
  while (std::getline(file, line)) {
    if (line.empty()) continue;
    if (line[0] != ' ') break;
    std::istringstream words(line);
    std::string word;
    words >> word;
    EXPECT_EQ(word, std::to_string(bytes.size() / 3)) << "position of: " << line;
    while (words >> word && word.size() == 2 && word.find_first_not_of("0123456789abcdef") == std::string::npos) {
      bytes += word + " ";
    }
  }
  return bytes;
}

TEST(Binary, TheDocumentedDumpIsWhatIsWritten) {
  Rig rig(Tracking::kOn);
  const Type& type = type_of("st_wlan_timeout_settings");
  char* object = rig.make(type);
  st_wlan_timeout_settings_session_timeout_set_value(rig.h, rig.txn, object, 86400, &rig.err);
  void* dtim = st_wlan_timeout_settings_dtim_get(rig.h, rig.txn, object, &rig.err);
  st_dtim_dot11a_dtim_set_value(rig.h, rig.txn, dtim, 2, &rig.err);
  st_dtim_set_all(rig.h, rig.txn, dtim, 2, 3, &rig.err);
  st_wlan_timeout_settings_dtim_state_flag_set(rig.h, rig.txn, object, 7, &rig.err);
  EXPECT_EQ(hex(marshal(rig, type, object)), documented_dump());
  rig.destroy(type, object);
}

TEST(Binary, OnlyTrackingAndRemoteAccessFlagsTravel) {
  Rig rig(Tracking::kOff);
  char* object = rig.make(type_of("st_dtim"));
  object[6] = static_cast<char>(0x5F & ~KVT_OBJ_OID_MAPPED);
  EXPECT_EQ(hex(marshal(rig, type_of("st_dtim"), object)), "00 00 00 00 00 06 00 00 ");
  object[6] = KVT_OBJ_RA_DATA;
  const std::string bytes = marshal(rig, type_of("st_dtim"), object);
  EXPECT_EQ(hex(bytes), "00 20 00 00 00 00 00 00 00 00 00 00 00 00 06 00 00 ");
  char* reader = rig.make(type_of("st_dtim"));
  EXPECT_EQ(unmarshal(rig, type_of("st_dtim"), bytes, reader), bytes.size());
  EXPECT_EQ(reader[6], KVT_OBJ_RA_DATA);
  object[6] = reader[6] = 0;
}

TEST(Binary, AnUntrackedObjectOnATrackingHandleIsWrittenWithZeroStates) {
  Rig rig(Tracking::kOn);
  char* object = rig.make(type_of("st_dtim"));
  st_dtim_dot11a_dtim_set_value(rig.h, rig.txn, object, 1, &rig.err);
  object[6] = 0;
  EXPECT_EQ(hex(marshal(rig, type_of("st_dtim"), object)), "00 08 00 00 00 08 01 00 00 00 ");
}

// A jump is a peer's word: positions wrap in 32 bits, and only one that is higher than the reader's own is followed.
TEST(Jump, LeadsOverWhatAnUnknownVariantAddedAndNeverBack) {
  struct Case {
    const char* what;
    std::uint8_t variant;
    std::uint32_t jump;
    std::size_t tail;
    std::uint32_t used;
  };
  for (const Case& c : {Case{"more fields", 5, 9, 3, 11}, Case{"as long as known", 0, 6, 3, 8},
                        Case{"too short", 0, 5, 3, 8}, Case{"zero", 0, 0, 0, 8}, Case{"beyond the bytes", 5, 9, 2, 11},
                        Case{"the highest position", 0, 0x7FFFFFFD, 0, 0x7FFFFFFF},
                        Case{"the lowest position", 0, 0x7FFFFFFE, 0, 8}, Case{"below zero", 0, 0xFFFFFFFF, 4, 8}}) {
    Rig rig;
    char* object = rig.make(type_of("st_dtim"));
    std::string bytes = {static_cast<char>(c.variant), 0};
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(c.jump >> shift);
    bytes += "\2\3" + std::string(c.tail, '\x77');
    EXPECT_EQ(unmarshal(rig, type_of("st_dtim"), bytes, object), c.used) << c.what;
    EXPECT_EQ(rig.take_err(), 0) << c.what;
    EXPECT_EQ(object[4], 0) << c.what;
    EXPECT_EQ(object[7], 2) << c.what;
    EXPECT_EQ(object[8], 3) << c.what;
  }
}

TEST(Jump, OfANestedObjectTakesTheFieldsBehindItTheirRoomButNoByteBeyond) {
  const Type& type = type_of("st_l2_auth_type");  // its last fields: a nested struct and an integer of one byte
  const Type& nested = type_of("st_wpa_pmf_params");
  for (Watch watch : {Watch::kAll, Watch::kNot}) {
    Rig rig(Tracking::kAbsent, Place::kPrivate, watch);
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    const std::string whole = marshal(rig, type, object);
    const auto size = static_cast<std::uint32_t>(whole.size());
    const std::uint32_t nested_size = fn<Len>(nested.name + "_len")(rig.h, rig.txn, object + type.fields[5].offset);
    ASSERT_EQ(type.fields[5].kind, nested.name);
    const std::uint32_t jump_at = size - 1 - nested_size + 2;
    struct Case {
      const char* what;
      std::uint32_t jump, used;
      int err;
    };
    for (const Case& c :
         {Case{"as written", nested_size - 2, size, 0}, Case{"to the end", nested_size - 1, size, 90},
          Case{"beyond the end", nested_size, size + 1, 90}, Case{"the highest position", 0x7FFFFFFD, 0x7FFFFFFF, 90},
          Case{"wrapped", 0x7FFFFFFE, size, 0}, Case{"back", 0xFFFFFFFF, size, 0}}) {
      std::string bytes = whole;
      for (unsigned i = 0; i < 4; ++i) bytes[jump_at + i] = static_cast<char>(c.jump >> (24 - 8 * i));
      char* reader = rig.make(type);
      fill(rig, type, reader, 2);
      const char before = reader[type.fields.back().offset];
      EXPECT_EQ(unmarshal(rig, type, bytes, reader), c.used) << c.what;
      EXPECT_EQ(rig.take_err(), c.err) << c.what;
      EXPECT_EQ(reader[type.fields.back().offset], c.err ? before : object[type.fields.back().offset]) << c.what;
    }
  }
}

// The last field of a nested object jumps as far as can be, and the object around it back to before the bytes.
TEST(Jump, BringsNobodyBackWhoWentTooFar) {
  const Type& type = type_of("st_wlan");
  const Type& around = type_of("st_wlan_timeout_settings");
  ASSERT_EQ(around.fields.back().kind, "st_dtim");
  for (Watch watch : {Watch::kAll, Watch::kNot}) {
    Rig rig(Tracking::kAbsent, Place::kPrivate, watch);
    char* object = rig.make(type);
    fill(rig, type, object, 1);
    const std::string whole = marshal(rig, type, object);
    const auto field =
        std::find_if(type.fields.begin(), type.fields.end(), [&](const Field& one) { return one.kind == around.name; });
    ASSERT_LT(field, type.fields.end() - 1) << "others are read after it";
    const std::size_t at = whole.find(marshal(rig, around, object + field->offset));
    for (std::uint32_t back : {1u, 11u, 1000u, 100000u, 0x40000000u}) {
      std::string bytes = whole;
      const auto put = [&](std::size_t place, std::uint32_t jump) {
        for (unsigned i = 0; i < 4; ++i) bytes[place + i] = static_cast<char>(jump >> (24 - 8 * i));
      };
      put(at + 2, 0u - back - 2);
      put(at + 10 + 2, 0x7FFFFFFD);
      char* reader = rig.make(type);
      EXPECT_EQ(unmarshal(rig, type, bytes, reader), 0x7FFFFFFFu) << back;
      EXPECT_EQ(rig.take_err(), 90) << back;
    }
  }
}

// What an object of a variant ends with: the state bytes behind its last value, one a level of nesting.
struct Ending {
  std::size_t states;
  bool reference;  // the last value is one
};
Ending ending_of(const Type& type, int variant) {
  const Field* last = nullptr;
  for (const Field& f : type.fields) {
    if (f.variant <= variant && kind_of(f) != Kind::kTimer) last = &f;
  }
  if (kind_of(*last) != Kind::kStruct) return {1, kind_of(*last) == Kind::kReference};
  const Ending inner = ending_of(type_of(last->kind), variant);
  return {inner.states + 1, inner.reference};
}

// Writer and reader at every room from none to more than enough, for one object.
void expect_bounded(Rig& rig, const Type& type, char* object, char* reader, int variant, GuardedBuffer& guarded) {
  const std::string whole = marshal(rig, type, object);
  // State bytes at the end may be dropped for lack of room without an error; a reference's wants two bytes.
  const Ending ending = ending_of(type, variant);
  const std::size_t enough = whole.size() - (rig.tracked() ? ending.states : 0);
  const bool wants_two = rig.tracked() && ending.reference && ending.states == 1;
  for (std::size_t room = 0; room <= whole.size() + 1; ++room) {
    SCOPED_TRACE("room " + std::to_string(room));
    const auto length = static_cast<std::int32_t>(room);
    std::uint8_t* buffer = guarded.with_room(room);
    const auto written = fn<Marshal>(type.name + "_marshal")(rig.h, rig.txn, buffer, object, length, &rig.err);
    EXPECT_EQ(rig.h->last_error, rig.err);
    EXPECT_EQ(rig.take_err(), room < enough ? 90 : 0);
    EXPECT_LE(written, room);
    EXPECT_TRUE(guarded.untouched_before(room));
    if (room >= enough) {
      EXPECT_EQ(written, wants_two ? (room > whole.size() ? whole.size() : enough) : std::min(room, whole.size()));
      EXPECT_TRUE(written < whole.size() || !std::memcmp(buffer, whole.data(), whole.size()));
    }
    buffer = guarded.with_room(room);
    std::memcpy(buffer, whole.data(), std::min(room, whole.size()));
    const auto read = fn<Unmarshal>(type.name + "_unmarshal")(rig.h, rig.txn, buffer, reader, length, 0, &rig.err);
    EXPECT_EQ(rig.h->last_error, rig.err);
    EXPECT_EQ(rig.take_err(), room < enough ? 90 : 0);
    // Once the jump is there it tells where the object ends, whatever is missing of it.
    if (room >= 6) {
      EXPECT_EQ(read, whole.size());
    } else {
      EXPECT_LE(read, room);
    }
    if (testing::Test::HasFailure()) return;
  }
  EXPECT_EQ(contents_of(type, reader, variant), contents_of(type, object, variant));
}

TEST(ShortRoom, AtAnyLengthWriterAndReaderStayInsideAndSaySo) {
  GuardedBuffer guarded;
  for (const Type& type : all_types()) {
    for (int variant = highest_variant(type); variant >= 0; --variant) {
      for (Tracking tracking : {Tracking::kAbsent, Tracking::kOn}) {
        for (Watch watch : {Watch::kAll, Watch::kNot}) {
          SCOPED_TRACE(type.name + " variant " + std::to_string(variant) + " tracking " + name_of(tracking) +
                       (watch == Watch::kAll ? ", watched" : ""));
          Rig rig(tracking, Place::kPrivate, watch);
          if (variant < highest_variant(type)) limit_domain(rig, variant);
          char* object = rig.make(type);
          fill(rig, type, object, 1, variant);
          char* reader = rig.make(type);
          expect_bounded(rig, type, object, reader, variant, guarded);
          if (testing::Test::HasFailure()) return;
          rig.destroy(type, object);
          rig.destroy(type, reader);
          EXPECT_TRUE(rig.blocks.empty()) << "what the short reads stored is owned once";
        }
      }
    }
  }
}

// A rule of a domain, even one that limits nothing, makes the writer look at every field.
TEST(Binary, ADomainsRulesChangeNoByteOfWhatTheyAllow) {
  for (Tracking tracking : kTrackings) {
    for (const Type& type : all_types()) {
      for (int variant = -1; variant <= type.top(); ++variant) {
        Rig rig(tracking);
        char* object = rig.make(type);
        fill(rig, type, object, 3);
        object[4] = static_cast<char>(variant);
        const std::string without = marshal(rig, type, object);
        kvt_domain_set_variant(rig.h, record_of(type.name), kMaxVariant);
        EXPECT_EQ(hex(marshal(rig, type, object)), hex(without)) << type.name << " variant " << variant;
        object[4] = static_cast<char>(type.top());
        rig.destroy(type, object);
      }
    }
  }
}

// Takes back what damaged bytes did to the headers: lowered variants hide strings from destroy.
void restore_headers(const Type& type, char* object) {
  auto restore = [](char* at) {
    at[4] = at[5];
    at[6] &= ~KVT_OBJ_RA_DATA;
  };
  restore(object);
  for (const Slot& slot : slots_of(type, object)) {
    if (kind_of(*slot.field) == Kind::kStruct) restore(slot.at());
  }
}

TEST(Damage, FlippedBitsGiveAnErrorOrAWholeObject) {
  constexpr int kRounds = 60;
  constexpr std::int32_t kRemoteAccessRoom = 1024;  // lengths do not count it
  const unsigned seed = 20240611;
  std::mt19937 random(seed);
  for (Tracking tracking : {Tracking::kAbsent, Tracking::kOn}) {
    for (const Type& type : all_types()) {
      Rig rig(tracking, Place::kPrivate, random() % 2 ? Watch::kAll : Watch::kNot);
      char* object = rig.make(type);
      fill(rig, type, object, 1);
      const std::string whole = marshal(rig, type, object);
      char* reader = rig.make(type);
      for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE(type.name + " round " + std::to_string(round) + " seed " + std::to_string(seed));
        std::string bytes = whole;
        for (unsigned flips = 1 + random() % 4; flips > 0; --flips) {
          bytes[random() % bytes.size()] ^= static_cast<char>(1u << random() % 8);
        }
        restore_headers(type, reader);
        unmarshal(rig, type, bytes, reader);
        if (rig.take_err() != 0) continue;
        // What was read is an object: written again and read again it is the same.
        const std::string again = marshal(rig, type, reader, kRemoteAccessRoom);
        EXPECT_EQ(rig.take_err(), 0);
        char* second = rig.make(type);
        EXPECT_EQ(unmarshal(rig, type, again + "tail", second), again.size());
        EXPECT_EQ(rig.take_err(), 0);
        EXPECT_EQ(marshal(rig, type, second, kRemoteAccessRoom), again);
        restore_headers(type, second);
        rig.destroy(type, second);
      }
      restore_headers(type, reader);
      rig.destroy(type, object);
      rig.destroy(type, reader);
      EXPECT_TRUE(rig.blocks.empty()) << type.name;
    }
  }
}

}  // namespace
}  // namespace module_test

// Records from bytes, and what a receiver does with them: insert, find, compare, send on, destroy. Input: the table,
// the options, then the bytes of the record.
#include <cerrno>

#include "fuzz/rig.h"
#include "tests/tables/rig.h"

namespace fuzz {
namespace {

using table_test::kTables;
using table_test::TableOps;

constexpr std::size_t kHead = 2;

void* table_for(Rig& rig, const TableOps& type) {
  static std::map<std::pair<const Rig*, const TableOps*>, void*> tables;
  void*& table = tables[{&rig, &type}];
  if (!table) table = type.open(rig.h, rig.txn, "fuzz", 0, &rig.err);
  FUZZ_CHECK(table && !rig.err, std::string(type.name) + ": not opened");
  return table;
}

class Round {
 public:
  Round(Rig& rig, const TableOps& type, const Options& options)
      : rig_(rig), type_(type), options_(options), payload_(subject_named(type.payload)) {}

  void run(const Exact& bytes) {
    void* record = options_.update ? made() : nullptr;
    const bool sound = read(bytes, &record, options_.update);
    if (!record) return;
    check_whole(rig_, payload_, payload_of(record));
    check_round_trip(rig_, payload_, payload_of(record));
    check_frame(record);
    if (sound) keep(bytes, record);
    if (options_.extra) take_xml_road(record);
    drop(record);
  }

 private:
  void* payload_of(void* record) { return table_test::record_payload(type_, record); }
  std::string name() { return type_.name; }

  void* made() {
    void* record = type_.create(rig_.h, rig_.txn, &rig_.err);
    type_.set_field(rig_.h, rig_.txn, record, make_object(rig_, payload_, options_));
    return record;
  }

  bool read(const Exact& bytes, void** record, bool update) {
    const Spending spending;
    void* const before = *record;
    int err = 0;
    type_.unmarshal(rig_.h, rig_.txn, record, bytes.bytes(), bytes.room(), update, &err);
    FUZZ_CHECK(err == 0 || err == EMSGSIZE || err == EINVAL || err == EPROTO,
               name() + ": error " + std::to_string(err));
    FUZZ_CHECK(rig_.h->last_error == err, name() + ": the handle's error is another one");
    FUZZ_CHECK(!update || *record == before, name() + ": another record");
    FUZZ_CHECK(err || *record, name() + ": neither a record nor an error");
    const std::uint64_t own =
        update ? 0 : type_.record_size + module_test::fn<module_test::Sizeof>(payload_.name + "_sizeof")(rig_.h);
    FUZZ_CHECK(spending.bytes() <= bytes.size() + own,
               name() + ": " + std::to_string(spending.bytes()) + " bytes asked for");
    return err == 0;
  }

  void check_frame(void* record) {
    int err = 0;
    const Exact room(type_.len(rig_.h, rig_.txn, record) + 4096);
    const std::uint32_t written = type_.marshal(rig_.h, rig_.txn, room.bytes(), record, room.room(), &err);
    FUZZ_CHECK(err == 0 || err == EIDRM, name() + ": not written: error " + std::to_string(err));
    if (err) return;
    const Exact bytes(room.bytes(), written);
    void* other = nullptr;
    const std::uint32_t used = type_.unmarshal(rig_.h, rig_.txn, &other, bytes.bytes(), bytes.room(), 0, &err);
    FUZZ_CHECK(err == 0 && used == written, name() + ": what was written is not read");
    drop(other);
  }

  // In a table beside a record with other keys; its twin is refused.
  void keep(const Exact& bytes, void* record) {
    void* table = table_for(rig_, type_);
    void* neighbour = type_.create(rig_.h, rig_.txn, &rig_.err);
    type_.set_field(rig_.h, rig_.txn, neighbour, type_.payload_create(rig_.h, rig_.txn));
    void* twin = options_.update ? made() : nullptr;
    read(bytes, &twin, options_.update);
    FUZZ_CHECK(type_.payload_compare(payload_of(record), payload_of(twin)) == 0, name() + ": differs from its twin");

    int err = 0;
    type_.insert(rig_.h, rig_.txn, table, neighbour, &err);
    FUZZ_CHECK(err == 0, name() + ": an empty table refuses a record");
    type_.insert(rig_.h, rig_.txn, table, record, &err);
    const bool entered = err == 0;
    FUZZ_CHECK(entered || err == EEXIST, name() + ": insert: error " + std::to_string(err));
    err = 0;
    type_.insert(rig_.h, rig_.txn, table, twin, &err);
    FUZZ_CHECK(err == EEXIST, name() + ": a twin is inserted: error " + std::to_string(err));
    err = 0;
    for (std::size_t key = 0; key < type_.keys.size(); ++key) {
      FUZZ_CHECK(table_test::check_index(type_, table, key) == 0, name() + ": an index is out of order");
      const void* const place = key_place(type_.keys[key], payload_of(record));
      if (!entered || !place) continue;
      FUZZ_CHECK(type_.keys[key].search(rig_.h, rig_.txn, table, place, &err) == record, name() + ": not found");
    }
    FUZZ_CHECK(table_test::record_count(table) == 1u + entered, name() + ": counted wrongly");
    if (entered) type_.remove(rig_.h, rig_.txn, table, record, &err);
    FUZZ_CHECK(err == 0, name() + ": remove: error " + std::to_string(err));
    type_.remove(rig_.h, rig_.txn, table, neighbour, &err);
    drop(neighbour);
    drop(twin);
  }

  void take_xml_road(void* record) {
    constexpr std::int32_t kRoom = 2 << 20;
    static const Exact room(kRoom);
    int err = 0;
    const std::uint32_t written = type_.to_xml(rig_.h, rig_.txn, room.text(), record, kRoom, &err);
    FUZZ_CHECK(err == 0, name() + ": no XML: error " + std::to_string(err));
    kvt_xml_document* document = kvt_xml_parse(room.text(), written, nullptr, 0);
    FUZZ_CHECK(document || has_nameless_value(payload_, payload_of(record)), name() + ": its XML is not read");
    if (!document) return;
    char message[200];
    void* other = type_.from_xml(rig_.h, rig_.txn, document, &err, message, sizeof message);
    FUZZ_CHECK(err == 0 && other, name() + ": no record from its XML: " + message);
    kvt_xml_free(document);
    drop(other);
  }

  // In the form that a search takes; null when the payload has no fields.
  const void* key_place(const table_test::KeyOps& key, void* payload) {
    constexpr std::size_t kValueOffset = 8;
    int err = 0;
    const char* field = static_cast<const char*>(key.field(rig_.h, rig_.txn, payload, &err));
    return err ? nullptr : field + (key.kind == table_test::KeyKind::kBand ? kValueOffset : 0);
  }

  void drop(void* record) {
    int err = 0;
    if (void* payload = payload_of(record)) release_above_variant(rig_, *payload_.shape, payload);
    type_.destroy(rig_.h, rig_.txn, record, &err);
    FUZZ_CHECK(err == 0, name() + ": destroy: error " + std::to_string(err));
  }

  Rig& rig_;
  const TableOps& type_;
  const Options& options_;
  const Subject& payload_;
};

void run(const std::uint8_t* data, std::size_t size) {
  if (size < kHead) return;
  const TableOps& type = kTables[data[0] % kTables.size()];
  const Options options(data[1]);
  Rig& rig = rig_for(options);
  rig.h->quiet_duplicates = 1;
  table_for(rig, type);
  const Balance balance(rig);
  const Exact bytes(data + kHead, size - kHead);
  Round(rig, type, options).run(bytes);
}

void seeds(const Sow& sow) {
  for (std::size_t i = 0; i < kTables.size(); ++i) {
    const TableOps& type = kTables[i];
    const Subject& payload = subject_named(type.payload);
    for (Tracking tracking : {Tracking::kOff, Tracking::kOn}) {
      for (bool filled : {false, true}) {
        const Options options(Options::byte(tracking, kNoLimit, filled, false, false));
        Rig& rig = rig_for(options);
        void* record = type.create(rig.h, rig.txn, &rig.err);
        type.set_field(rig.h, rig.txn, record, make_object(rig, payload, options));
        const Exact room(type.len(rig.h, rig.txn, record));
        const std::uint32_t written = type.marshal(rig.h, rig.txn, room.bytes(), record, room.room(), &rig.err);
        type.destroy(rig.h, rig.txn, record, &rig.err);
        for (bool update : {false, true}) {
          const std::uint8_t head[kHead] = {static_cast<std::uint8_t>(i),
                                            Options::byte(tracking, kNoLimit, !filled, update, filled)};
          sow(std::string(type.name) + "_" + module_test::name_of(tracking) + (filled ? "_filled" : "_fresh") +
                  (update ? "_update" : "_new"),
              std::string(head, head + kHead) + std::string(room.text(), written));
        }
      }
    }
  }
}

}  // namespace

const Target kRecord{"record", run, seeds, nullptr};

}  // namespace fuzz

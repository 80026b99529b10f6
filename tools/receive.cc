// receive: records that another wlanctl sends, all or none, and the proof that what is stored is what was sent.
#include <map>

#include "tools/commands.h"
#include "tools/document.h"
#include "tools/frames.h"
#include "tools/references.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

std::string frame_name(std::size_t index) { return "frame " + std::to_string(index + 1); }

// The table whose identity the frame carries. The library passes over it: what a frame is for is the receiver's
// business.
const Table& table_of(const std::vector<Frame>& frames, std::size_t index) {
  const Table* table = table_with_luid(frames[index].data() + kFrameLuid);
  if (table == nullptr) throw Failure(frame_name(index) + " belongs to no table that is known here");
  return *table;
}

// The record of a frame, referring to nothing: whatever it referred to was its own database's.
Record unmarshal(const Frame& frame, const Table& table, const std::string& name, const Store& store,
                 std::uint32_t txn) {
  void* made = nullptr;
  int err = 0;
  const std::uint32_t used =
      table.unmarshal(store.handle(), txn, &made, frame.data(), static_cast<std::int32_t>(frame.size()), 0, &err);
  Record record(table, store.handle(), txn, made);
  if (err != 0 || made == nullptr) {
    throw Failure(name + " is no record of " + table.name + reason(err));
  }
  if (used != frame.size()) {
    throw Failure(name + " is no record of " + table.name + " (" + std::to_string(used) + " of " +
                  std::to_string(frame.size()) + " bytes are used)");
  }
  untie(table, store.handle(), txn, record.payload());
  return record;
}

Record unmarshal(const std::vector<Frame>& frames, std::size_t index, const Store& store, std::uint32_t txn) {
  return unmarshal(frames[index], table_of(frames, index), frame_name(index), store, txn);
}

// Tried out in a store of our own first: whatever is wrong with a frame, the database is neither made nor locked for
// it.
enum class Purpose { kRehearsal, kReceive };

void enter_all(const std::vector<Frame>& frames, const Store& store, std::uint32_t txn, Purpose purpose) {
  std::map<const Table*, void*> opened;
  for (const Table& table : tables()) opened[&table] = table_for_writing(store, table, txn);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    Record record = unmarshal(frames, i, store, txn);
    const Table& table = record.table();
    // The binary form takes any number for an enumerator; such a record could be kept, but neither shown nor exported.
    if (purpose == Purpose::kRehearsal) XmlDocument(frame_name(i), record_xml(store, table, record.get()));
    const std::string keys = describe(store.handle(), table, record.payload());
    const int err = record.insert_into(opened[&table]);
    if (err != 0) throw Failure(frame_name(i) + ": " + table.name + " does not take " + keys + reason(err));
  }
  tie_records(store, txn);
}

// Fails unless the database holds a record with the key of `payload` and equal to it in every field but for what the
// record refers to, which has an identity in its own database only. `payload` refers to nothing.
void expect_stored(const Store& store, const Table& table, const Store& owner, void* payload) {
  const std::string what = std::string(table.name) + ", " + describe(owner.handle(), table, payload);
  void* record = find_same_key(store, table, owner.handle(), payload);
  if (record == nullptr) throw Failure(what + ": not in the database");
  const Record stored = unmarshal(record_bytes(store, table, record), table, what, owner, KVT_NO_TXN);
  if (table.compare(payload, stored.payload()) != 0) {
    throw Failure(what + ": differs from what the database holds");
  }
}

std::size_t verify_against(const std::string& path, const Store& store) {
  const ImportFile file(path);
  const Store beside = Store::open_private();
  const bool states_group = file.has(group_profiles());
  std::map<const Table*, std::uint32_t> expected;
  for (std::size_t i = 0; i < file.size(); ++i) {
    const Record record = file.read(i, file.table(i), beside, KVT_NO_TXN);
    expect_stored(store, record.table(), beside, record.payload());
    ++expected[&record.table()];
    if (&record.table() == &profiles() && !states_group) {
      expect_stored(store, group_profiles(), beside, record.payload());
      ++expected[&group_profiles()];
    }
  }
  std::size_t total = 0;
  for (const Table& table : tables()) {
    if (count_records(store, table) != expected[&table]) {
      throw Failure(std::string(table.name) + " holds " + std::to_string(count_records(store, table)) +
                    " records, where " + path + " has " + std::to_string(expected[&table]));
    }
    total += expected[&table];
  }
  return total;
}

}  // namespace

void run_receive(const Options& options) {
  Stream stream =
      options.socket.empty() ? Stream::standard_input() : Stream::accept_at(options.socket, options.wait_sec);
  // All of it is read before the database is locked: a slow sender holds up nobody but us.
  const std::vector<Frame> frames = stream.read_frames();
  const Store beside = Store::open_private(options.sender_key);
  enter_all(frames, beside, KVT_NO_TXN, Purpose::kRehearsal);

  const Store store = Store::open_database(options, Open::kCreate);
  Transaction transaction(store);
  enter_all(frames, store, transaction.txn(), Purpose::kReceive);
  // The proof comes before the commit: a difference leaves the database as it was.
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const Record sent = unmarshal(frames, i, beside, KVT_NO_TXN);
    expect_stored(store, sent.table(), beside, sent.payload());
  }
  std::string text = "received " + std::to_string(frames.size()) + " records; each is equal to what was sent\n";
  if (!options.verify.empty()) {
    text += "verified " + std::to_string(verify_against(options.verify, store)) + " records against " + options.verify +
            "; all are equal\n";
  }
  transaction.commit();
  if (!options.socket.empty()) stream.write_count(static_cast<std::uint32_t>(frames.size()));
  write_output(text);
}

}  // namespace wlanctl

// import: all records of an XML file into the database, in one transaction.
#include <unistd.h>

#include <array>
#include <map>

#include "tools/commands.h"
#include "tools/document.h"
#include "tools/references.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

// A store of our own finds out what a file's own faults are, wrong elements and keys that stand twice: the database is
// neither made nor locked for a file that it could never take.
enum class Purpose { kRehearsal, kImport };

void enter(const ImportFile& file, std::size_t index, const Table& table, const Store& store, std::uint32_t txn,
           void* in, Purpose purpose) {
  Record record = file.read(index, table, store, txn);
  if (purpose == Purpose::kRehearsal) file.check_elements(index, record_xml(store, table, record.get()));
  const std::string keys = describe(store.handle(), table, record.payload());
  const int err = record.insert_into(in);
  if (err != 0) {
    throw Failure(file.position(index) + ": " + table.name + " does not take " + keys + reason(err));
  }
}

// Enters every record in its table, and each profile among the group's profiles too, unless the file states those
// itself.
void enter_all(const ImportFile& file, const Store& store, std::uint32_t txn, Purpose purpose) {
  const bool states_group = file.has(group_profiles());
  std::map<const Table*, void*> opened;
  for (const Table& table : tables()) opened[&table] = table_for_writing(store, table, txn);
  for (std::size_t i = 0; i < file.size(); ++i) {
    const Table& table = file.table(i);
    enter(file, i, table, store, txn, opened[&table], purpose);
    if (&table == &profiles() && !states_group) {
      enter(file, i, group_profiles(), store, txn, opened[&group_profiles()], purpose);
    }
  }
  tie_records(store, txn);
}

void wait_for_end_of_input() {
  std::array<char, 256> ignored;
  while (read(STDIN_FILENO, ignored.data(), ignored.size()) > 0) {
  }
}

}  // namespace

void run_import(const Options& options) {
  const ImportFile file(options.file);
  const Store beside = Store::open_private(options.sender_key);
  enter_all(file, beside, KVT_NO_TXN, Purpose::kRehearsal);
  const Store store = Store::open_database(options, Open::kCreate);
  Transaction transaction(store);
  enter_all(file, store, transaction.txn(), Purpose::kImport);
  transaction.commit();
  std::string text = "imported " + std::to_string(file.size()) + " records of " + options.file + ":";
  for (const Table& table : tables()) {
    text += " " + std::string(table.name) + " " + std::to_string(count_records(store, table));
  }
  write_output(text + "\n");
  if (options.hold) wait_for_end_of_input();
}

}  // namespace wlanctl

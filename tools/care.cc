// db: looks after the database file. Everything works while others use it.
#include <kvt/care.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "tools/commands.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

void add_line(void* text, const char* line) { *static_cast<std::string*>(text) += one_line(line) + "\n"; }

[[noreturn]] void fail(const Options& options, int err, const char* message = "") {
  throw Failure(options.database + ": " + (message[0] != '\0' ? message : std::strerror(err)));
}

void create(const Options& options) {
  if (access(options.database.c_str(), F_OK) == 0) throw Failure(options.database + ": exists already");
  Store::open_database(options, Open::kCreate);
}

void set_durability(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  int err = 0;
  kvtdb_set_durability(store.handle(), durability_of(options), &err);
  if (err != 0) fail(options, err);
}

void info(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  kvtdb_info info;
  int err = 0;
  kvtdb_get_info(store.handle(), &info, &err);
  if (err != 0) fail(options, err);
  char key[24];
  std::snprintf(key, sizeof key, "%016" PRIx64, info.key_id);
  const struct {
    const char *name, *label;
    std::uint64_t value;
    const char* unit;
  } rows[] = {{"format", "format version", info.format, ""},
              {"slot", "slot", info.slot, ""},
              {"file_bytes", "file", info.file, "bytes"},
              {"limit_bytes", "may grow to", info.limit, "bytes"},
              {"heap_used_bytes", "in use", info.heap_used, "bytes"},
              {"heap_free_bytes", "free in between", info.heap_free, "bytes"},
              {"log_bytes", "undo log", info.log, "bytes"},
              {"permanent_bytes", "permanent memory", info.permanent, "bytes"},
              {"blocks", "blocks in use", info.blocks, ""},
              {"tables", "tables", info.tables, ""},
              {"records", "records", info.records, ""},
              {"transactions", "last transaction", info.transactions, ""}};
  std::string text = options.json ? "{" : "";
  for (const auto& row : rows) {
    if (options.json) {
      text += json_string(row.name) + ": " + std::to_string(row.value) + ", ";
    } else {
      char line[80];
      std::snprintf(line, sizeof line, "%-18s %12" PRIu64 "%s%s\n", row.label, row.value, *row.unit ? " " : "",
                    row.unit);
      text += line;
    }
  }
  const char* durability = info.durability == KVT_DURABILITY_MACHINE ? "machine" : "process";
  if (options.json) {
    text += "\"durability\": " + json_string(durability);
    text += ", \"key\": " + json_string(info.key_id ? key : "") + "}\n";
  } else {
    text += std::string("durability         ") + durability + "\n";
    text += std::string("key of secrets     ") + (info.key_id ? key : "none yet") + "\n";
  }
  write_output(text);
}

void tell_faults(const Options& options, const std::string& lines, std::uint32_t faults, const char* what) {
  write_output(lines);
  if (faults == 0) return;
  throw Failure(options.database + ": " + std::to_string(faults) + (faults == 1 ? " fault" : " faults") + what);
}

void check(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  int err = 0;
  std::string lines;
  const std::uint32_t faults = kvtdb_check(store.handle(), add_line, &lines, &err);
  if (err != 0) fail(options, err);
  tell_faults(options, lines, faults, "");
}

void repair(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  int err = 0;
  std::string lines;
  const std::uint32_t left = kvtdb_repair(store.handle(), add_line, &lines, &err);
  if (err != 0) fail(options, err);
  tell_faults(options, lines, left, " cannot be mended; a backup brings them back");
}

void backup(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  int err = 0;
  kvtdb_backup(store.handle(), options.file.c_str(), &err);
  if (err != 0) throw Failure(options.file + ": " + std::strerror(err));
}

void restore(const Options& options) {
  int err = 0;
  if (access(options.database.c_str(), F_OK) != 0) {
    // The database is lost: the backup's own state becomes a new file.
    Options from = options;
    from.database = options.file;
    if (from.key_file.empty()) from.key_file = options.database + ".key";
    const Store store = Store::open_database(from, Open::kExisting);
    kvtdb_backup(store.handle(), options.database.c_str(), &err);
    if (err != 0) fail(options, err);
    return;
  }
  const Store store = Store::open_database(options, Open::kExisting);
  char message[256] = "";
  kvtdb_restore(store.handle(), options.file.c_str(), message, sizeof message, &err);
  if (err != 0) throw Failure(options.file + ": " + (message[0] != '\0' ? message : std::strerror(err)));
}

void compact(const Options& options) {
  const Store store = Store::open_database(options, Open::kExisting);
  int err = 0;
  const std::uint64_t bytes = kvtdb_compact(store.handle(), &err);
  if (err != 0) fail(options, err);
  write_output(std::to_string(bytes) + " bytes given back\n");
}

}  // namespace

void run_care(const Options& options) {
  switch (options.care) {
    case Care::kCreate:
      return create(options);
    case Care::kInfo:
      return info(options);
    case Care::kCheck:
      return check(options);
    case Care::kRepair:
      return repair(options);
    case Care::kBackup:
      return backup(options);
    case Care::kRestore:
      return restore(options);
    case Care::kCompact:
      return compact(options);
    case Care::kDurability:
      return set_durability(options);
  }
}

}  // namespace wlanctl

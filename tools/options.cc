// The spelling of the command line.
#include "tools/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <iostream>
#include <string_view>

#include "tools/tables.h"

namespace wlanctl {
namespace {

constexpr int kUsage = 2;

// CLI11 may break a message into several lines; a console line stays one line.
std::string flattened(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

CLI::App* add_command(CLI::App& app, Options& options, Command command, const char* name, const char* help) {
  CLI::App* sub = app.add_subcommand(name, help);
  sub->fallthrough();
  sub->callback([&options, command] { options.command = command; });
  return sub;
}

std::vector<std::string> table_names() {
  std::vector<std::string> names;
  for (const Table& table : tables()) names.emplace_back(table.name);
  return names;
}

void add_table(CLI::App* sub, Options& options) {
  sub->add_option("--table", options.table, "the table; tbl_wlan unless given")->check(CLI::IsMember(table_names()));
}

void add_key(CLI::App* sub, Options& options) {
  sub->add_option("KEY", options.key, "a profile's number or name; in another table its key")->required();
}

void add_sender_key(CLI::App* sub, Options& options) {
  sub->add_option("--sender-key", options.sender_key,
                  "key file of who sealed the secrets; they are sealed anew under the database's own key");
}

// Arguments can be read by every user of the machine for as long as the program runs.
void hide_argument(int argc, char** argv, std::string_view value) {
  for (int i = 1; i < argc; ++i)
    if (argv[i] == value) std::memset(argv[i], '*', value.size());
}

void add_stream(CLI::App* sub, Options& options, const char* without) {
  sub->add_option("--socket", options.socket, std::string("Unix socket instead of ") + without);
  sub->add_option("--wait", options.wait_sec, "seconds to wait for the other side")
      ->check(CLI::Range(1, 3600))
      ->capture_default_str();
}

}  // namespace

std::optional<int> parse_options(int argc, char** argv, Options& options) {
  CLI::App app("Imports, shows, changes and passes on the WLAN profiles of a database.", "wlanctl");
  app.add_option("--db", options.database, "the database file")->envname("ZARN_WLAN_DB");
  app.add_option("--key", options.key_file, "key file for secrets; the database's own unless given");
  app.add_flag("--replace-key", options.replace_key,
               "take the key file's key in place of the database's, if that is lost");
  app.add_flag("--trace", options.trace, "tell every trace line of the library on standard error");
  app.add_option("--trace-file", options.trace_file, "keep the command's trace in a file, for `wlanctl trace --ring`");
  app.require_subcommand(1);

  CLI::App* import = add_command(app, options, Command::kImport, "import", "Take all records of an XML file, or none");
  import->add_option("FILE", options.file, "the XML file")->required();
  add_sender_key(import, options);
  import->add_flag("--hold", options.hold, "keep the database open afterwards, until standard input ends");

  CLI::App* list = add_command(app, options, Command::kList, "list", "List the records of a table");
  add_table(list, options);
  list->add_flag("--json", options.json, "as JSON");

  CLI::App* show = add_command(app, options, Command::kShow, "show", "Show every field of a record, as XML");
  add_key(show, options);
  add_table(show, options);

  CLI::App* find = add_command(app, options, Command::kFind, "find", "Find a profile by one of its keys");
  CLI::Option_group* by = find->add_option_group("by", "the key");
  by->add_option("--id", options.id, "WLAN identifier");
  by->add_option("--name", options.name, "profile name");
  by->add_option("--ssid", options.ssid, "network name");
  by->require_option(1);
  find->add_flag("--json", options.json, "as JSON");

  CLI::App* exporting = add_command(app, options, Command::kExport, "export", "Write all records as XML");
  exporting->add_option("FILE", options.file, "file to write; standard output unless given");

  add_stream(add_command(app, options, Command::kSend, "send", "Send all records in binary form"), options,
             "standard output");

  CLI::App* receive =
      add_command(app, options, Command::kReceive, "receive", "Take all records that are sent, or none");
  add_stream(receive, options, "standard input");
  add_sender_key(receive, options);
  receive->add_option("--verify", options.verify, "XML file to compare with, beside what was sent");

  CLI::App* set = add_command(app, options, Command::kSet, "set", "Change one field");
  add_key(set, options);
  set->add_option("PATH", options.path, "the field, such as wlan_timeout/session_timeout")->required();
  set->add_option("VALUE", options.value,
                  "number, true or false, text, or the name of an enumerator; without it, it is read from standard "
                  "input, as secrets should be");
  add_table(set, options);

  CLI::App* erase = add_command(app, options, Command::kDelete, "delete", "Delete one record");
  add_key(erase, options);
  add_table(erase, options);

  CLI::App* watch = add_command(app, options, Command::kWatch, "watch",
                                "Show records as they are created, modified and deleted, by whatever process");
  watch->add_option("DB", options.database, "the database file, if --db does not name it");
  watch->add_option("--from", options.from, "number of the first change to show, or `oldest`; new ones unless given")
      ->check([](const std::string& text) {
        const bool number = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        return number || text == "oldest" ? std::string() : "must be a number or `oldest`";
      });
  watch->add_option("--count", options.count, "end after that many lines")->check(CLI::Range(1, 1000000000));
  watch->add_option("--table", options.tables, "show this table alone; may be given more than once")
      ->check(CLI::IsMember(table_names()));
  watch->add_flag("--json", options.json, "as JSON, one object a line");

  CLI::App* timers = add_command(app, options, Command::kTimers, "timers", "Show the armed timers");
  timers->add_option("DB", options.database, "the database file, in place of --db");
  timers->add_flag("--run", options.run, "take each one when it is due, until none is armed any more");

  CLI::App* trace = add_command(app, options, Command::kTrace, "trace", "Show trace messages of built files");
  trace->add_option("FILE", options.files, "libraries whose messages are listed, or that a ring's lines come from");
  trace->add_option("--ring", options.ring, "the trace that a process left, to be told in words");

  CLI::App* manifest = add_command(app, options, Command::kManifest, "manifest", "Show a built file's types and stamp");
  manifest->add_option("FILE", options.file, "the library")->required();

  CLI::App* db = add_command(app, options, Command::kCare, "db", "Care for the database; others may go on using it");
  db->require_subcommand(1);
  const struct {
    const char* name;
    Care care;
    const char* help;
    const char* file;  // nullptr: takes none
  } cares[] = {
      {"create", Care::kCreate, "Make an empty database", nullptr},
      {"info", Care::kInfo, "Tell size, room and contents", nullptr},
      {"check", Care::kCheck, "Hold every structure against the others; status 1 when something is wrong", nullptr},
      {"repair", Care::kRepair, "Mend what can be told from what is whole", nullptr},
      {"backup", Care::kBackup, "Copy the last committed state into a new file", "the file to make"},
      {"restore", Care::kRestore, "Bring back the state of a backup", "a backup of the database"},
      {"compact", Care::kCompact, "Give unused space at the end back to the file system", nullptr},
      {"durability", Care::kDurability, "Change what commits survive from now on", nullptr},
  };
  for (const auto& care : cares) {
    CLI::App* sub = db->add_subcommand(care.name, care.help);
    sub->fallthrough();
    sub->callback([&options, which = care.care] { options.care = which; });
    if (care.file) sub->add_option("FILE", options.file, care.file)->required();
    if (care.care == Care::kInfo) sub->add_flag("--json", options.json, "as JSON");
    CLI::Option* durability = nullptr;
    if (care.care == Care::kCreate) {
      durability = sub->add_option("--durability", options.durability,
                                   "what commits survive: the death of processes, or the loss of power too");
    } else if (care.care == Care::kDurability) {
      durability = sub->add_option("WORD", options.durability, "process or machine")->required();
    }
    if (durability) durability->check(CLI::IsMember({"process", "machine"}));
  }

  try {
    app.parse(argc, argv);
    if (options.command == Command::kTrace && options.files.empty() && options.ring.empty())
      throw CLI::RequiredError("a FILE or --ring");
    if (options.command == Command::kTrace || options.command == Command::kManifest) return std::nullopt;
    if (options.database.empty()) throw CLI::RequiredError("--db PATH, or ZARN_WLAN_DB in the environment,");
  } catch (const CLI::Success& done) {
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    // What was typed instead of a command is the better message.
    if (const auto extras = app.remaining(); app.get_subcommands().empty() && !extras.empty()) {
      std::cerr << "wlanctl: there is no command '" << flattened(extras.front()) << "' (wlanctl --help tells more)\n";
      return kUsage;
    }
    std::cerr << "wlanctl: " << flattened(error.what()) << " (wlanctl --help tells more)\n";
    return kUsage;
  }
  if (options.value) hide_argument(argc, argv, *options.value);
  return std::nullopt;
}

}  // namespace wlanctl

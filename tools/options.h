// The command line as data. Only options.cc knows how it is spelled.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace wlanctl {

enum class Command {
  kImport,
  kList,
  kShow,
  kFind,
  kExport,
  kSend,
  kReceive,
  kSet,
  kDelete,
  kWatch,
  kTimers,
  kTrace,
  kManifest,
  kCare
};

/// What `wlanctl db` does.
enum class Care { kCreate, kInfo, kCheck, kRepair, kBackup, kRestore, kCompact, kDurability };

struct Options {
  Command command = Command::kList;
  std::string database;
  std::string key_file;  // empty: the database's own
  bool replace_key = false;
  bool trace = false;
  std::string trace_file;
  bool json = false;
  bool hold = false;
  bool run = false;                  // timers
  std::string file;                  // import, export; empty: standard output; manifest, db
  std::string table;                 // list, show, set, delete
  std::string key;                   // show, set, delete
  std::string path;                  // set
  std::optional<std::string> value;  // set; else it is read from standard input
  std::string sender_key;            // import, receive: who sealed the secrets
  std::optional<std::uint32_t> id;
  std::optional<std::string> name;
  std::optional<std::string> ssid;
  std::string socket;  // send, receive; empty: standard output, standard input
  unsigned wait_sec = 30;
  std::string verify;               // receive
  std::string from;                 // watch; empty: from now on
  std::uint64_t count = 0;          // watch; 0: until it is stopped
  std::vector<std::string> tables;  // watch; empty: all
  std::string ring;                 // trace
  std::vector<std::string> files;   // trace
  Care care = Care::kInfo;          // db
  std::string durability;           // db create, db durability
};

/// Reads the command line into `options`. A value that stands in it is overwritten there, where every user of the
/// machine can read it.
/// @return nothing to go on with the command; else the exit status (0 after --help, 2 after a wrong command line, which
///         has been told on standard error)
std::optional<int> parse_options(int argc, char** argv, Options& options);

}  // namespace wlanctl

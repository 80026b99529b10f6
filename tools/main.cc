// wlanctl: WLAN profiles for the person at the console. Exit status: 0 done, 1 failed, 2 wrong command line.
#include <csignal>
#include <exception>
#include <iostream>

#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/options.h"
#include "tools/store.h"
#include "tools/text.h"

namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

void run(const wlanctl::Options& options) {
  switch (options.command) {
    case wlanctl::Command::kImport:
      return wlanctl::run_import(options);
    case wlanctl::Command::kList:
      return wlanctl::run_list(options);
    case wlanctl::Command::kShow:
      return wlanctl::run_show(options);
    case wlanctl::Command::kFind:
      return wlanctl::run_find(options);
    case wlanctl::Command::kExport:
      return wlanctl::run_export(options);
    case wlanctl::Command::kSend:
      return wlanctl::run_send(options);
    case wlanctl::Command::kReceive:
      return wlanctl::run_receive(options);
    case wlanctl::Command::kSet:
      return wlanctl::run_set(options);
    case wlanctl::Command::kDelete:
      return wlanctl::run_delete(options);
    case wlanctl::Command::kWatch:
      return wlanctl::run_watch(options);
    case wlanctl::Command::kTrace:
      return wlanctl::run_trace(options);
    case wlanctl::Command::kManifest:
      return wlanctl::run_manifest(options);
    case wlanctl::Command::kTimers:
      return wlanctl::run_timers(options);
    case wlanctl::Command::kCare:
      return wlanctl::run_care(options);
  }
}

// A failure ends as one line on standard error.
template <class Step>
int attempt(Step step) {
  try {
    return step();
  } catch (const wlanctl::OutputClosed&) {
    return kFailed;
  } catch (const std::exception& failure) {
    std::cerr << "wlanctl: " << wlanctl::one_line(failure.what()) << "\n";
    return kFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away shall be an error like others: being killed would leave a transaction for the next opener.
  std::signal(SIGPIPE, SIG_IGN);
  wlanctl::Options options;
  const int status = attempt([&] {
    if (const auto early = wlanctl::parse_options(argc, argv, options)) return *early;
    wlanctl::start_trace(options.trace, options.trace_file);
    run(options);
    return kDone;
  });
  if (options.trace_file.empty() || status == kUsage) return status;
  const int saved = attempt([&] {
    wlanctl::save_trace(options.trace_file);  // of a command that failed too: then it is wanted most
    return kDone;
  });
  return saved == kDone ? status : saved;
}

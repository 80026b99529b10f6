// The schema compiler as one call: arguments, the stages in their order, and the form of messages.
#include "schema/compiler/driver.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "schema/compiler/listing.h"
#include "schema/compiler/model.h"
#include "schema/compiler/published.h"

namespace zarnc {

namespace {

constexpr int kDone = 0, kFault = 1, kUsage = 2;

constexpr char kUsageText[] =
    "usage: zarnc --out DIR --module NAME... [--library NAME] [--runtime] [--stamp NAME=VALUE...] [--published DIR] "
    "FILE...\n"
    "       zarnc --list [--module NAME...] [--published DIR] FILE...\n";

struct Options {
  std::string out, published, library;
  std::vector<std::string> modules, files;
  std::map<std::string, std::string> stamp;
  bool list = false, runtime = false;
};

// @return false, with a message, for what no line of a build stamp can hold
bool read_stamp(const std::string& text, std::map<std::string, std::string>& stamp, std::string& message) {
  const std::size_t equals = std::min(text.find('='), text.size());
  const std::string name = text.substr(0, equals);
  const std::vector<std::string> names = stamp_names();
  if (equals == text.size() || std::find(names.begin(), names.end(), name) == names.end()) {
    message = "--stamp knows no '" + name + "=':";
    for (const std::string& one : names) message += (&one == &names.front() ? " " : ", ") + one;
  } else if (std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; })) {
    message = "a control character in --stamp " + name;
  } else {
    stamp[name] = text.substr(equals + 1);
  }
  return message.empty();
}

// The date of a build that wants to be repeated is a convention among build tools: seconds since 1970.
bool read_source_date(std::map<std::string, std::string>& stamp, std::string& message) {
  const char* const text = std::getenv("SOURCE_DATE_EPOCH");
  if (!text || stamp.count("at")) return true;
  const char* const end = text + std::strlen(text);
  std::int64_t seconds = 0;
  const auto [stop, fault] = std::from_chars(text, end, seconds);
  const std::time_t when = seconds;
  std::tm utc{};
  char date[64];
  if (fault != std::errc() || stop != end || seconds < 0 || !gmtime_r(&when, &utc) ||
      !std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", &utc)) {
    message = std::string("SOURCE_DATE_EPOCH is no number of seconds: '") + text + "'";
    return false;
  }
  stamp["at"] = date;
  return true;
}

// @return false, with a message, for arguments that make no sense
bool read_options(const std::vector<std::string>& arguments, Options& options, std::string& message) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    std::string value;
    if (argument == "--out" || argument == "--module" || argument == "--published" || argument == "--library" ||
        argument == "--stamp") {
      if (++i == arguments.size()) {
        message = argument + " needs a value";
        return false;
      }
      value = arguments[i];
    }
    if (argument == "--out") {
      options.out = value;
    } else if (argument == "--module") {
      options.modules.push_back(value);
    } else if (argument == "--published") {
      options.published = value;
    } else if (argument == "--library") {
      options.library = value;
    } else if (argument == "--stamp") {
      if (!read_stamp(value, options.stamp, message)) return false;
    } else if (argument == "--runtime") {
      options.runtime = true;
    } else if (argument == "--list") {
      options.list = true;
    } else if (argument.rfind("-", 0) == 0) {
      message = "unknown option " + argument;
      return false;
    } else {
      options.files.push_back(argument);
    }
  }
  if (options.files.empty()) message = "no schema file given";
  if (!options.list && options.out.empty()) message = "neither --out nor --list given";
  if (!options.out.empty() && options.modules.empty()) message = "--out needs a --module";
  if (options.modules.size() == 1 && options.library.empty()) options.library = options.modules.front();
  if (!options.out.empty() && options.library.empty() && !options.modules.empty())
    message = "several modules need a --library";
  return message.empty() && read_source_date(options.stamp, message);
}

class Compilation {
 public:
  Compilation(const Options& options, std::ostream& messages) : options_(options), messages_(messages) {}

  bool front() {
    for (const std::string& file : options_.files) {
      if (!read(file)) return false;
    }
    if (!report()) return false;
    check(schema_, errors_);
    if (!report()) return false;
    layout(schema_, errors_);
    if (!report()) return false;
    if (!options_.published.empty()) check_published(schema_, options_.published, errors_);
    return report();
  }

  const Schema& schema() const { return schema_; }

  // The modules asked for, or all when none is named.
  bool wanted(std::vector<const Module*>& modules) {
    for (const std::string& name : options_.modules) {
      const auto found = std::find_if(schema_.modules.begin(), schema_.modules.end(),
                                      [&](const auto& module) { return module->name == name; });
      if (found == schema_.modules.end()) {
        messages_ << "zarnc: error: there is no module '" << name << "'\n";
        return false;
      }
      modules.push_back(found->get());
    }
    if (!options_.modules.empty()) return true;
    for (const auto& module : schema_.modules) modules.push_back(module.get());
    return true;
  }

 private:
  bool read(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (in.peek() != std::ifstream::traits_type::eof()) text << in.rdbuf();
    if (in.bad() || !in.is_open()) {
      messages_ << "zarnc: error: cannot read " << file << '\n';
      return false;
    }
    parse(file, text.str(), schema_, errors_);
    return true;
  }

  std::size_t rank(const Position& at) const {
    return static_cast<std::size_t>(std::find(options_.files.begin(), options_.files.end(), at.file) -
                                    options_.files.begin());
  }

  // Tells the errors of a stage in the order of the files. @return true if there are none
  bool report() {
    std::stable_sort(errors_.begin(), errors_.end(), [this](const Diagnostic& a, const Diagnostic& b) {
      if (rank(a.at) != rank(b.at)) return rank(a.at) < rank(b.at);
      if (a.at.file != b.at.file) return a.at.file < b.at.file;
      if (a.at.line != b.at.line) return a.at.line < b.at.line;
      return a.at.column < b.at.column;
    });
    for (const Diagnostic& error : errors_) {
      messages_ << error.at.file << ':' << error.at.line << ':' << error.at.column << ": error: " << error.text << '\n';
    }
    return errors_.empty();
  }

  const Options& options_;
  std::ostream& messages_;
  Schema schema_;
  std::vector<Diagnostic> errors_;
};

}  // namespace

int run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& messages) {
  Options options;
  std::string message;
  if (!read_options(arguments, options, message)) {
    messages << "zarnc: error: " << message << '\n' << kUsageText;
    return kUsage;
  }
  Compilation compilation(options, messages);
  std::vector<const Module*> modules;
  if (!compilation.front() || !compilation.wanted(modules)) return kFault;
  for (const Module* module : modules) {
    if (options.list) list_module(*module, out);
    if (options.out.empty()) continue;
    if (!emit(compilation.schema(), *module, options.out, message)) {
      messages << "zarnc: error: " << message << '\n';
      return kFault;
    }
  }
  const BuiltFile file{options.library, modules, options.runtime, options.stamp};
  if (!options.out.empty() && !emit_built_file(file, options.out, message)) {
    messages << "zarnc: error: " << message << '\n';
    return kFault;
  }
  return kDone;
}

}  // namespace zarnc

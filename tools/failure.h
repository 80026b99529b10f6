// How a command gives up: one line of text for the person at the console, carried to main.cc, which prints it.
#pragma once

#include <stdexcept>
#include <string>

namespace wlanctl {

class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text) : std::runtime_error(text) {}
};

/// The reader of our standard output went away. Not worth a message: it is how `wlanctl list | head -1` ends.
class OutputClosed : public std::exception {};

}  // namespace wlanctl

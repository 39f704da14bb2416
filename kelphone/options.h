// The command line.
#pragma once

#include <optional>
#include <string>

namespace kelphone {

struct Options {
  bool log = false;
  bool json = false;
  bool service = false;
  std::optional<unsigned> wait;  // seconds
  std::string file;
  int (*run)(const Options& options) = nullptr;  // what the command does; returns the exit code
  bool needs_phone = true;
};

// Throws Error, naming what is wrong.
Options parse_options(int argc, char** argv);

}  // namespace kelphone

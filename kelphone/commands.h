// The commands and their options.
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
  int (*run)(const Options& options) = nullptr;  // the command
  bool needs_phone = true;
};

// Throws Error, naming what is wrong.
Options parse_options(int argc, char** argv);

// Each returns the exit code.
int check(const Options& options);
int security(const Options& options);
int efuse(const Options& options);
int authorize(const Options& options);
int serve_session(const Options& options);  // "line": answers a factory host's requests until they end
int show_version(const Options& options);
int show_help(const Options& options);

// "check --service", where nobody reads what a program prints: waits until it can decide, logs one line and sets the
// verdict property.
int check_at_boot(const Options& options);

}  // namespace kelphone

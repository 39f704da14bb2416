// The commands and their options.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kelphone {

struct Options {
  bool log = false;
  bool json = false;
  std::optional<unsigned> wait;  // seconds
  std::string file;
};

// Each returns the exit code.
int check(const Options& options);
int check_at_boot(const Options& options);  // "check --service"
int security(const Options& options);
int efuse(const Options& options);
int authorize(const Options& options);
int serve_session(const Options& options);  // "line"

// The whole of |text| as a number of at most |max|.
std::optional<unsigned> parse_number(std::string_view text, unsigned max);

}  // namespace kelphone

// The commands, as the command line asks for them. Each returns the exit code.
#pragma once

#include <optional>
#include <string>

namespace kelctl {

// What the command line says. A command reads only its own part of it.
struct Options {
  std::string phone;
  bool log = false;
  bool json = false;
  std::string path, root, root_key, key, certificate, kind;
  std::optional<std::string> name, text;
  bool as_record = false;
  std::string signer_command, line_command, feature_code, imei;
  std::optional<std::string> message;
};

int run_check(const Options& options);
int run_security(const Options& options);
int run_efuse(const Options& options);
int run_authorize(const Options& options);
int run_line(const Options& options);
int run_provision(const Options& options);
int run_explain(const Options& options);
int run_root(const Options& options);
int run_signer(const Options& options);
int run_sign(const Options& options);

}  // namespace kelctl

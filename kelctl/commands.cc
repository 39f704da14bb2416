#include "kelctl/commands.h"

#include <fmt/core.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "kelctl/certificates.h"
#include "kelctl/explain.h"
#include "kelctl/files.h"
#include "kelctl/outcome.h"
#include "kelctl/phone_commands.h"
#include "kelctl/platform.h"
#include "kelctl/process.h"
#include "kelctl/provision.h"
#include "kelctl/session.h"
#include "kelctl/signing.h"
#include "kelctl/text.h"

namespace kelctl {
namespace {

// A command that drives the phone: here, or on the simulated phone that is named, as |inside|.
int on_phone(const Options& options, std::vector<std::string> inside, const std::function<int()>& here) {
  if (!options.phone.empty()) {
    if (options.log) inside.push_back("--log");
    return run_on_phone(options.phone, inside);
  }
  require_phone();
  return here();
}

// A phone is talked to line by line, wherever it is.
Ask ask_by_lines(std::vector<std::string> command) {
  const auto session = std::make_shared<Process>(command);
  return [session](const std::string& line) {
    session->write(line + "\n");
    if (auto answer = session->read_line()) return *answer;
    throw Error("the line session ended before it answered");
  };
}

Ask ask_phone(const Options& options) {
  if (!options.line_command.empty()) {
    if (options.phone.empty() && !options.log) return ask_by_lines({"sh", "-c", options.line_command});
    throw Error("--line-command: give --phone and --log to the kelctl that it starts");
  }
  if (options.phone.empty()) {
    require_phone();
    return answer_to;
  }
  std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe"), "--phone", options.phone,
                                      "line"};
  if (options.log) command.push_back("--log");
  return ask_by_lines(command);
}

Kind kind_of(const std::string& word) {
  if (word == "challenge") return Kind::kChallenge;
  return word == "record" ? Kind::kRecord : Kind::kChipId;
}

std::string text_on_standard_input() {
  std::string text = read_file("-");
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace

int run_check(const Options& options) {
  return on_phone(options, {"check"}, check);
}

int run_security(const Options& options) {
  std::vector<std::string> inside = {"security"};
  if (options.json) inside.push_back("--json");
  return on_phone(options, inside, [&] { return security(options.json); });
}

int run_efuse(const Options& options) {
  return on_phone(options, {"efuse"}, efuse);
}

// The file is this machine's, so the phone gets its content.
int run_authorize(const Options& options) {
  const std::string content = read_authorization(options.path);
  if (!options.phone.empty()) become_standard_input(content);
  return on_phone(options, {"authorize", "-"}, [&] { return authorize(content); });
}

int run_line(const Options& options) {
  return on_phone(options, {"line"}, [] {
    serve(stdin, stdout);
    return kYes;
  });
}

int run_provision(const Options& options) {
  const auto certificate = load_certificate(options.certificate);
  Provisioning provisioning;
  provisioning.certificate = signer_certificate_text(certificate.get(), options.certificate);
  provisioning.feature_code = options.feature_code;
  provisioning.imei = options.imei;
  if (options.key.empty()) {
    provisioning.signer = command_signer(options.signer_command);
  } else {
    auto key = load_key(options.key);
    require_pair(key.get(), certificate.get(), options.certificate);
    provisioning.signer = key_signer(std::move(key));
  }
  const Ask ask = ask_phone(options);
  bool done = false;
  try {
    done = provision(provisioning, ask);
  } catch (const Refusal& refusal) {
    fmt::print("The signer does not sign.\n");
    std::fflush(stdout);
    fmt::print(stderr, "  {}\n", refusal.what());
  }
  fmt::print("{}\n", done ? good("provisioned") : bad("not provisioned"));
  return done ? kYes : kNo;
}

int run_explain(const Options& options) {
  return explain({options.path, options.root, options.message, options.json});
}

int run_root(const Options& options) {
  make_root(options.path, options.name.value_or("Provisioning root"));
  return kYes;
}

int run_signer(const Options& options) {
  make_signer(options.path, options.name.value_or("Provisioning signer"), options.root, options.root_key);
  return kYes;
}

int run_sign(const Options& options) {
  const auto key = load_key(options.key);
  std::string certificate;
  if (!options.certificate.empty()) {
    const auto loaded = load_certificate(options.certificate);
    require_pair(key.get(), loaded.get(), options.certificate);
    certificate = signer_certificate_text(loaded.get(), options.certificate);
  }
  const std::string text = options.text ? *options.text : text_on_standard_input();
  const std::string signature = sign(key.get(), checked_message(kind_of(options.kind), text));
  // A signed record is what a phone imports, and a line break would become part of its signature.
  fmt::print("{}", options.as_record ? signed_record(certificate, signature) : signature + "\n");
  return kYes;
}

}  // namespace kelctl

// kelsign: roots, signers and signatures for phones whose records libkelchk guards. This file is the command line.
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/file.h"
#include "common/journal.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "common/output.h"
#include "kelchk.h"
#include "kelsign/certificates.h"
#include "kelsign/keys.h"
#include "kelsign/line_session.h"
#include "kelsign/signer.h"

namespace kelsign {
namespace {

constexpr char kFooter[] = R"(
A KEY is a PEM file or a URI such as "pkcs11:token=line;object=signer?pin-source=/etc/pin". Without a
pin-source the PIN is taken from KELSIGN_PIN, or asked for.

Exit codes: 0 done; 1 refused to sign; 2 wrong usage, or something unreadable or not writable.)";

constexpr char kSignHelp[] = R"(
A challenge has 1 to 250 characters of 0-9 and A-F. A record has its twelve keys, each once and in
order, with values that a phone can have; what is signed is its twelve values, run together. A chip id
is "mt" or "sp" and 1 to 254 characters more, without capitals. All are printable ASCII; cpuID, phoneMac,
imei and chip id may have line breaks.
)";

constexpr char kLineHelp[] = R"(
  challenge TEXT    a phone's challenge
  record TEXT       a device parameter record; its feature code must be one of those given
  chip-id TEXT      a chip id, with --allow chip-id

Each is answered by "ok factoryCert=...&sign=..." or by "failed: " and the reason. A line break inside
a text is written \n, a carriage return \r and a backslash \\. A line has at most 16384 bytes.
)";

struct Options {
  NewCertificate wanted;
  std::string key, certificate, kind, journal, allowed;
  std::optional<std::string> text;
  bool as_record = false;
  SessionLimits limits;
};

std::string check_feature_code(const std::string& code) {
  const bool usable = !code.empty() && code.size() <= KELCHK_FEATURE_CODE_MAX && code.find('&') == std::string::npos;
  return usable ? "" : fmt::format("1 to {} characters without \"&\" were expected", KELCHK_FEATURE_CODE_MAX);
}

void sign(const Options& options) {
  const Signer signer(options.key, options.certificate);
  std::string text = options.text ? *options.text : common::read_file("-", common::kMaxLineLen);
  if (!options.text && text.ends_with('\n')) text.pop_back();
  const std::string message = common::message_to_sign(kind_of(options.kind), text);
  // A signed record is what a phone imports, and a line break would become part of its signature.
  common::print(options.as_record ? signer.signed_record(message) : signer.sign(message) + "\n");
}

void serve(const Options& options) {
  const Signer signer(options.key, options.certificate);
  const LineSession session(signer, options.limits, common::Journal(options.journal));
  common::serve_lines(STDIN_FILENO, STDOUT_FILENO,
                      [&](const common::Request& request) { return session.answer(request); });
}

class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(0, 1);
    app_.footer(kFooter);
    app_.set_version_flag("--version", "kelsign " KELSIGN_VERSION);
    add_root();
    add_signer();
    add_sign();
    add_line();
  }

  void run(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
      return common::print(help());
    } catch (const CLI::CallForVersion&) {
      return common::print(app_.version() + "\n");
    } catch (const CLI::ParseError& error) {
      throw common::Error(without_pins(error.what()));
    }
    if (!run_chosen_) throw common::Error("a command was expected; kelsign --help shows them");
    run_chosen_();
  }

 private:
  template <typename Run>
  CLI::App& add(const char* name, const char* description, Run run_command, const std::string& help = "") {
    CLI::App& command = *app_.add_subcommand(name, description);
    command.footer(help + kFooter);
    command.callback([this, run_command] { run_chosen_ = run_command; });
    return command;
  }

  // An argument or option; |type| is what stands for its value in the help.
  template <typename Value>
  static CLI::Option* add(CLI::App& command, const char* name, Value& value, const char* type,
                          const std::string& description) {
    return command.add_option(name, value, description)->type_name(type);
  }

  static CLI::Option* add_key(CLI::App& command, const char* name, std::string& key, const std::string& description) {
    return add(command, name, key, "KEY", description)->check(key_name_fault);
  }

  void add_wanted(CLI::App& command, const char* names) {
    add(command, "DIR", options_.wanted.folder, "", "Made when missing; nothing in it is overwritten")->required();
    add(command, "--name", options_.wanted.name, "NAME", fmt::format("Common name ({})", names));
    add(command, "--days", options_.wanted.days, "DAYS", "Valid for so many days")->check(CLI::Range(1, 36500));
  }

  void add_root() {
    CLI::App& root = add("root", "Make a root: DIR/root.key and DIR/root.pem", [this] { make_root(options_.wanted); });
    add_wanted(root, "Provisioning root");
    add_key(root, "--key", options_.wanted.key, "Use this private key; no key file is written");
  }

  void add_signer() {
    CLI::App& signer =
        add("signer", "Make a signer: DIR/signer.key and DIR/signer.pem", [this] { make_signer(options_.wanted); });
    add_wanted(signer, "Provisioning signer");
    add(signer, "--root", options_.wanted.root, "ROOT", "The root certificate, PEM")->required();
    add_key(signer, "--root-key", options_.wanted.root_key, "The root's private key")->required();
    CLI::Option* const key =
        add_key(signer, "--key", options_.wanted.key, "Use this private key; no key file is written");
    add(signer, "--csr", options_.wanted.request, "FILE", "Use the key and the name of this certificate request, PEM")
        ->excludes(key);
  }

  void add_sign() {
    CLI::App& command = add(
        "sign", "Sign a challenge, a record or a chip id, and nothing else", [this] { sign(options_); }, kSignHelp);
    add(command, "KIND", options_.kind, "", "What TEXT is")
        ->required()
        ->check(CLI::IsMember({"challenge", "record", "chip-id"}));
    add(command, "TEXT", options_.text, "", "Without it, standard input, less one line break at its end");
    add_key(command, "--key", options_.key, "The signer's private key")->required();
    CLI::Option* const certificate =
        add(command, "--cert", options_.certificate, "CERT", "The signer's certificate, PEM");
    command
        .add_flag("--signed-record", options_.as_record, "Print \"factoryCert=...&sign=...\", not the bare signature")
        ->needs(certificate);
  }

  void add_line() {
    CLI::App& line = add(
        "line", "Answer requests for signatures, one a line on standard input", [this] { serve(options_); }, kLineHelp);
    add_key(line, "--key", options_.key, "The signer's private key")->required();
    add(line, "--cert", options_.certificate, "CERT", "The signer's certificate, PEM")->required();
    add(line, "--feature-code", options_.limits.feature_codes, "CODE...", "Sign records with these feature codes alone")
        ->required()
        ->check(check_feature_code);
    CLI::Option* const allow = add(line, "--allow", options_.allowed, "chip-id", "Sign chip ids as well")
                                   ->check(CLI::IsMember({"chip-id"}))
                                   ->each([this](const std::string&) { options_.limits.allows_chip_ids = true; });
    add(line, "--chip-ids", options_.limits.chip_ids_path, "FILE", "Sign only the chip ids in this file, one a line")
        ->needs(allow);
    add(line, "--journal", options_.journal, "FILE",
        "Append a JSON object for each request before it is answered;\nwhat cannot be recorded is not signed");
  }

  // Of the command that the user asked about.
  [[nodiscard]] std::string help() const {
    const auto commands = app_.get_subcommands();
    return commands.empty() ? app_.help() : commands.front()->help("kelsign");
  }

  CLI::App app_{"Makes roots and signers, and signs what phones whose records libkelchk guards accept.", "kelsign"};
  Options options_;
  std::function<void()> run_chosen_;
};

}  // namespace
}  // namespace kelsign

int main(int argc, char** argv) {
  ::umask(077);  // nothing that this program makes is anybody else's, but for a certificate
  return common::run_program("kelsign", [=] {
    kelsign::CommandLine().run(argc, argv);
    return common::kYes;
  });
}

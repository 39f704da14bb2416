// kelctl, the factory host's program. This file is the command line.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string>
#include <vector>

#include "common/file.h"
#include "common/outcome.h"
#include "common/process.h"
#include "kelchk.h"
#include "kelctl/explain.h"
#include "kelctl/provision.h"

namespace kelctl {
namespace {

constexpr char kFooter[] = R"(
Exit codes: 0 yes or done; 1 no, or refused by the phone or the policy; 2 wrong usage, or
something unreadable or not writable; 3 "explain" found nothing wrong but was not given enough
for a verdict; 4 a session failed or timed out: nothing is known to be wrong with the phone.)";

// In the folder of each simulated phone.
constexpr char kPhoneMarker[] = ".kelchk-simulated-phone";

// Such as a shell variable that is not set.
std::string check_not_empty(const std::string& value) {
  return value.empty() ? "a value was expected" : "";
}

std::string check_feature_code(const std::string& code) {
  const bool is_usable = code.size() <= KELCHK_FEATURE_CODE_MAX && code.find('&') == std::string::npos &&
                         std::all_of(code.begin(), code.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (is_usable) return "";
  return fmt::format("1 to {} printable ASCII characters without \"&\" were expected", KELCHK_FEATURE_CODE_MAX);
}

std::string check_imei(const std::string& imei) {
  const bool is_usable = imei.size() == KELCHK_IMEI_LEN && imei.find_first_not_of("0123456789") == std::string::npos;
  return is_usable ? "" : fmt::format("{} digits were expected", KELCHK_IMEI_LEN);
}

// Reads nothing: a key may come through a pipe.
void require_readable(const std::string& path) {
  if (::access(path.c_str(), R_OK) != 0) common::throw_errno(path, "cannot be read");
}

class CommandLine {
 public:
  CommandLine() {
    app_.set_version_flag("--version", "kelctl " KELCHK_VERSION);
    app_.require_subcommand(0, 1);  // with at least one required, a misspelled one would not be named
    for (CLI::App* const app : {&app_, &provision_, &explain_}) app->footer(kFooter);
    add_provision();
    add_explain();
  }

  int run(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
      common::print(app_.help());
      return common::kYes;
    } catch (const CLI::CallForVersion&) {
      common::print(app_.version() + "\n");
      return common::kYes;
    } catch (const CLI::ParseError& error) {
      throw common::Error(fmt::format("{} (\"kelctl --help\" shows the usage)", error.what()));
    }
    if (provision_.parsed()) return run_provision();
    if (!explain_.parsed()) throw common::Error("a command was expected (\"kelctl --help\" shows the usage)");
    if (!root_.empty()) question_.root = load_certificate(root_);
    return kelctl::explain(files_, question_, explains_as_json_);
  }

 private:
  // An argument or option; |type| is what stands for its value in the help.
  template <typename Value>
  static CLI::Option* add(CLI::App& command, const char* name, Value& value, const char* type,
                          const std::string& description) {
    return command.add_option(name, value, description)->type_name(type)->check(check_not_empty);
  }

  void add_provision() {
    CLI::App& phone = *provision_.add_option_group("phone", "One of:");
    add(phone, "--phone-command", phone_command_, "CMD",
        "Starts the phone's session, such as \"adb shell kelphone line\"");
    add(phone, "--phone", phone_, "DIR", "The simulated phone DIR, made by \"phone make\"");
    phone.require_option(1);
    CLI::App& signer = *provision_.add_option_group("signer", "One of:");
    add(signer, "--signer-command", signer_command_, "CMD",
        "Starts the signer's session, such as \"ssh signer@server\"");
    CLI::Option* const key = add(signer, "--key", key_, "KEY", "Sign on this machine, with this key and --cert");
    signer.require_option(1);
    CLI::Option* const certificate = add(provision_, "--cert", certificate_, "CERT", "The certificate of --key, PEM");
    certificate->needs(key);
    key->needs(certificate);
    add(provision_, "--feature-code", provisioned_.feature_code, "CODE", "The phone's feature code")
        ->required()
        ->check(check_feature_code);
    add(provision_, "--imei", provisioned_.imei, "IMEI",
        "The phone's IMEI, which its record must hold; Unisoc needs it")
        ->check(check_imei);
    add(provision_, "--timeout", provisioned_.timeout, "SECONDS", "The longest wait for each answer (60)")
        ->check(CLI::Range(1, 24 * 60 * 60));
    add(provision_, "--journal", provisioned_.journal, "FILE", "Append one JSON object on a line for this pass");
    provision_.add_flag("--json", provisioned_.as_json, "Print that object instead of the steps");
  }

  void add_explain() {
    add(explain_, "FILE", files_, "",
        "Stored files, signer records, device parameter records, certificates in PEM,\n"
        "or libkelchk.so; \"-\" is standard input")
        ->required();
    add(explain_, "--root", root_, "ROOT", "The root certificate, PEM");
    CLI::Option* const message =
        add(explain_, "--message", question_.message, "TEXT", "What was signed, such as the challenge");
    add(explain_, "--chip-id", question_.message, "ID", "The chip id that was signed")->excludes(message);
    explain_.add_flag("--json", explains_as_json_, "One JSON object a line, for each file");
  }

  int run_provision() {
    using common::beside_this_program;
    provisioned_.phone_command = {"sh", "-c", phone_command_};
    provisioned_.signer_command = {"sh", "-c", signer_command_};
    if (!phone_.empty()) {
      require_readable(phone_ + "/" + kPhoneMarker);
      provisioned_.phone_command = {beside_this_program("phone"),    "run", phone_, "--",
                                    beside_this_program("kelphone"), "line"};
    }
    if (!key_.empty()) {
      if (!key_.starts_with("pkcs11:")) require_readable(key_);
      static_cast<void>(load_certificate(certificate_));
      provisioned_.signer_command = {
          beside_this_program("kelsign"), "line", "--key", key_, "--cert", certificate_, "--feature-code",
          provisioned_.feature_code};
    }
    return kelctl::provision(provisioned_);
  }

  CLI::App app_{"Provisions phones between a phone's session and a signer's, and explains files.", "kelctl"};
  CLI::App& provision_ = *app_.add_subcommand("provision", "Provision one phone: challenge, login, record and import");
  CLI::App& explain_ = *app_.add_subcommand("explain", "Examine files and show what is wrong with them");
  ProvisionRequest provisioned_;
  Question question_;
  std::vector<std::string> files_;
  bool explains_as_json_ = false;
  std::string phone_command_, phone_, signer_command_, key_, certificate_, root_;
};

}  // namespace
}  // namespace kelctl

int main(int argc, char** argv) {
  return common::run_program("kelctl", [&] { return kelctl::CommandLine().run(argc, argv); });
}

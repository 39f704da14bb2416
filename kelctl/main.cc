// kelctl: provisioning on the command line, the phone's half and the signing server's. This file is the command line.
#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "kelchk.h"
#include "kelctl/commands.h"
#include "kelctl/log.h"
#include "kelctl/outcome.h"
#include "kelctl/platform.h"

namespace kelctl {
namespace {

constexpr char kExitCodes[] = R"(
Exit codes: 0 yes or done; 1 no or refused; 2 wrong usage, unreadable input, or something
needed could not be started; 3 "explain" found nothing wrong but was not given enough for a
verdict; 128+N with --phone, signal N ended the command.)";

constexpr char kLineHelp[] = R"(
  challenge [N]     "ok CHALLENGE", of N characters, 0 to 250 (250)
  respond RECORD    "ok": logged in with a signed record over the challenge
  record REQUEST    "ok RECORD": the device parameter record; REQUEST is featureCode=CODE and,
                    on a Unisoc phone, &IMEI=IMEI
  import RECORD     "ok": stored, with a signed record over the record's twelve values

Anything else, and what does not succeed, is answered by "failed: " and the reasons, separated
by "; ". A line break inside a text is written \n, a carriage return \r and a backslash \\. A line
has at most 16384 characters.
Challenge, login and record live as long as this process.
)";

constexpr char kSignHelp[] = R"(
Refused are a challenge that is not 1 to 250 characters of 0-9 and A-F; a record that has not
its twelve keys, each once and in order, or has a value that no phone can have; and a chip id
that is not "mt" or "sp" and 1 to 254 characters more, without capitals and NULs. Of a record,
TEXT is the whole; signed are its twelve values, run together.
)";

constexpr char kExplainHelp[] = R"(
Judged by the rules of the library. Whether a record describes a phone, only that phone can
tell: "kelctl check".
)";

constexpr char kSignerCommandHelp[] =
    "Run by the shell for each signature: the challenge or the\n"
    "canonical content on its standard input, base64 of the\n"
    "signature on its standard output. KELCTL_KIND is\n"
    "\"challenge\" or \"record\", KELCTL_RECORD the whole record";

std::string check_feature_code(const std::string& code) {
  const bool usable = !code.empty() && code.size() <= 127 && code.find('&') == std::string::npos;
  return usable ? "" : "1 to 127 characters without \"&\" were expected";
}

std::string check_imei(const std::string& imei) {
  const bool usable = imei.size() == KELCHK_IMEI_LEN && imei.find_first_not_of("0123456789") == std::string::npos;
  return usable ? "" : "15 digits were expected";
}

using Run = int (*)(const Options& options);

class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(0, 1);
    app_.fallthrough();
    app_.footer(kExitCodes);
    add_phone_option(app_, options_.phone);
    app_.add_flag("--log", options_.log, "Show the library's messages on standard error as they come");
    add_phone_commands();
    add_provision();
    add_explain();
    add_server_commands();
  }

  int run(int argc, char** argv) {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app_.exit(error) == 0 ? kYes : kUnusable;
    }
    if (chosen_ == nullptr) {
      fmt::print(stderr, "{}", app_.help());
      return kUnusable;
    }
    if (options_.log) show_messages();
    return chosen_(options_);
  }

 private:
  CLI::App& add(const char* name, const char* description, Run command_run, const std::string& help = "") {
    CLI::App& command = *app_.add_subcommand(name, description);
    command.footer(help + kExitCodes);
    command.callback([this, command_run] { chosen_ = command_run; });
    return command;
  }

  // An argument or option; |type| is what stands for its value in the help.
  template <typename Value>
  static CLI::Option* add(CLI::App& command, const char* name, Value& value, const char* type,
                          const std::string& description) {
    return command.add_option(name, value, description)->type_name(type);
  }

  void add_phone_commands() {
    add("check", "Check the stored files and repair a damaged copy: \"valid\" or \"not valid\"", run_check);
    add("security", "Show the security state report", run_security)
        .add_flag("--json", options_.json, "As a JSON object");
    add("efuse", "Tell whether the secure-boot efuse is blown: \"efused\" or \"not efused\"", run_efuse);
    CLI::App& authorize = add("authorize", "Import an authorization file: \"ok\" or \"failed\"", run_authorize);
    add(authorize, "FILE", options_.path, "", "A signed record over the chip id; \"-\" is standard input")->required();
    add("line", "Serve one request a line on standard input, one answer a line", run_line, kLineHelp);
  }

  void add_provision() {
    CLI::App& provision = add("provision", "The whole pass: challenge, login, record and import", run_provision);
    add(provision, "--cert", options_.certificate, "CERT", "The signer's certificate, PEM")->required();
    CLI::App& signer = *provision.add_option_group("signer", "What signs");
    add(signer, "--key", options_.key, "KEY", "The signer's private key, PEM");
    add(signer, "--signer-command", options_.signer_command, "COMMAND", kSignerCommandHelp);
    signer.require_option(1);
    add(provision, "--feature-code", options_.feature_code, "CODE", "The phone's feature code")
        ->required()
        ->check(check_feature_code);
    add(provision, "--imei", options_.imei, "IMEI", "The phone's IMEI; a MediaTek phone knows its own")
        ->check(check_imei);
    add(provision, "--line-command", options_.line_command, "COMMAND",
        "Provision the phone whose line mode this shell command\nreaches, such as \"adb shell kelctl line\"");
  }

  void add_explain() {
    CLI::App& explain =
        add("explain", "Take a file or record apart and say what does not hold", run_explain, kExplainHelp);
    add(explain, "FILE", options_.path, "",
        "A stored file, a signer record or a device parameter record;\n\"-\" is standard input")
        ->required();
    add(explain, "--root", options_.root, "ROOT", "The root certificate, PEM");
    CLI::Option* const message =
        add(explain, "--message", options_.message, "TEXT", "What was signed, such as the challenge");
    add(explain, "--chip-id", options_.message, "ID", "The chip id that was signed")->excludes(message);
    explain.add_flag("--json", options_.json, "As JSON");
  }

  void add_server_commands() {
    CLI::App& root = add("root", "Make a root: DIR/root.key and DIR/root.pem", run_root);
    add(root, "DIR", options_.path, "", "Made when missing; nothing in it is overwritten")->required();
    add(root, "--name", options_.name, "NAME", "Common name (Provisioning root)");

    CLI::App& signer = add("signer", "Make a signer: DIR/signer.key and DIR/signer.pem", run_signer);
    add(signer, "DIR", options_.path, "", "Made when missing; nothing in it is overwritten")->required();
    add(signer, "--root", options_.root, "ROOT", "The root certificate, PEM")->required();
    add(signer, "--root-key", options_.root_key, "KEY", "The root's private key, PEM")->required();
    add(signer, "--name", options_.name, "NAME", "Common name (Provisioning signer)");

    CLI::App& sign = add("sign", "Sign a challenge, a record or a chip id, and nothing else", run_sign, kSignHelp);
    add(sign, "KIND", options_.kind, "", "What TEXT is")
        ->required()
        ->check(CLI::IsMember({"challenge", "record", "chip-id"}));
    add(sign, "TEXT", options_.text, "", "Without it, standard input, less one line break at its end");
    add(sign, "--key", options_.key, "KEY", "The signer's private key, PEM")->required();
    CLI::Option* const certificate = add(sign, "--cert", options_.certificate, "CERT", "The signer's certificate, PEM");
    sign.add_flag("--signed-record", options_.as_record, "Print \"factoryCert=...&sign=...\", not the bare signature")
        ->needs(certificate);
  }

  CLI::App app_{"Provisions phones whose records libkelchk guards: the phone's half and the signing server's.",
                "kelctl"};
  Options options_;
  Run chosen_ = nullptr;
};

}  // namespace
}  // namespace kelctl

int main(int argc, char** argv) {
  try {
    return kelctl::CommandLine().run(argc, argv);
  } catch (const kelctl::Refusal& refusal) {
    fmt::print(stderr, "kelctl: refused: {}\n", refusal.what());
    return kelctl::kNo;
  } catch (const std::exception& error) {
    fmt::print(stderr, "kelctl: {}\n", error.what());
    return kelctl::kUnusable;
  }
}

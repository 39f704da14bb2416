// kelctl: provisioning on the command line, the phone's half and the server's.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "certificates.h"
#include "explain.h"
#include "files.h"
#include "log.h"
#include "outcome.h"
#include "phone_commands.h"
#include "platform.h"
#include "process.h"
#include "provision.h"
#include "session.h"
#include "signing.h"
#include "text.h"

namespace kelctl {
namespace {

constexpr char kExitCodes[] =
    "Exit codes: 0 yes or done; 1 no or refused; 2 wrong usage, unreadable input, or something needed could not be\n"
    "started; 3 \"explain\" found nothing wrong but was not given enough for a verdict.";

// What the command line says. A command reads only its own part of it.
struct Options {
  std::string phone;
  bool log = false;
  bool json = false;
  std::string path, root, root_key, key, certificate, name;
  std::string kind, text;
  bool as_record = false;
  std::string signer_command, line_command, feature_code, imei;
  ExplainRequest explain;
};

using Command = std::function<int()>;

// A command that drives the phone: here, or on the simulated phone that is named, as |inside|.
int on_phone(const Options& options, std::vector<std::string> inside, const Command& here) {
  if (!options.phone.empty()) {
    if (options.log) inside.push_back("--log");
    return run_on_phone(options.phone, inside);
  }
  require_phone();
  return here();
}

// The file is this machine's, so the phone gets its content.
int run_authorize(const Options& options) {
  const std::string content = read_authorization(options.path);
  if (!options.phone.empty()) become_standard_input(content);
  return on_phone(options, {"authorize", "-"}, [&] { return authorize(content); });
}

int run_line() {
  serve(stdin, stdout);
  return kYes;
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
  if (!options.line_command.empty()) return ask_by_lines({"sh", "-c", options.line_command});
  if (options.phone.empty()) {
    require_phone();
    return answer_to;
  }
  std::vector<std::string> command = {std::filesystem::read_symlink("/proc/self/exe"), "--phone", options.phone,
                                      "line"};
  if (options.log) command.push_back("--log");
  return ask_by_lines(command);
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
    require_pair(load_key(options.key).get(), certificate.get(), options.certificate);
    provisioning.signer = key_signer(options.key);
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

int run_sign(const Options& options, bool from_input) {
  const Kind kind = options.kind == "challenge" ? Kind::kChallenge
                    : options.kind == "record"  ? Kind::kRecord
                                                : Kind::kChipId;
  const auto key = load_key(options.key);
  std::string certificate;
  if (!options.certificate.empty()) {
    const auto loaded = load_certificate(options.certificate);
    require_pair(key.get(), loaded.get(), options.certificate);
    certificate = signer_certificate_text(loaded.get(), options.certificate);
  }
  std::string text = from_input ? read_file("-") : options.text;
  if (from_input && text.ends_with('\n')) text.pop_back();
  const std::string signature = sign(key.get(), checked_message(kind, text));
  fmt::print("{}\n", options.as_record ? signed_record(certificate, signature) : signature);
  return kYes;
}

std::string check_feature_code(const std::string& code) {
  const bool usable = !code.empty() && code.size() <= 127 && code.find('&') == std::string::npos;
  return usable ? "" : "1 to 127 characters without \"&\" were expected";
}

std::string check_imei(const std::string& imei) {
  const bool usable = imei.size() == 15 && imei.find_first_not_of("0123456789") == std::string::npos;
  return usable ? "" : "15 digits were expected";
}

void add_phone_commands(CLI::App& app, Options& options, Command& command) {
  app.add_subcommand("check", "Check the stored files and repair a damaged copy: \"valid\" or \"not valid\"")
      ->callback([&] { command = [&] { return on_phone(options, {"check"}, check); }; });

  CLI::App* const security_command = app.add_subcommand("security", "Show the security state report");
  security_command->add_flag("--json", options.json, "As a JSON object");
  security_command->callback([&] {
    command = [&] {
      std::vector<std::string> inside = {"security"};
      if (options.json) inside.push_back("--json");
      return on_phone(options, inside, [&] { return security(options.json); });
    };
  });

  app.add_subcommand("efuse", "Tell whether the secure-boot efuse is blown: \"efused\" or \"not efused\"")
      ->callback([&] { command = [&] { return on_phone(options, {"efuse"}, efuse); }; });

  CLI::App* const authorizing = app.add_subcommand("authorize", "Import an authorization file: \"ok\" or \"failed\"");
  authorizing->add_option("FILE", options.path, "A signed record over the chip id; \"-\" is standard input")
      ->required();
  authorizing->callback([&] { command = [&] { return run_authorize(options); }; });

  CLI::App* const line = app.add_subcommand("line", "Serve one request a line on standard input, one answer a line");
  line->footer(
      "  challenge [N]     \"ok CHALLENGE\" of N characters, 0 to 250 (250)\n"
      "  respond RECORD    \"ok\": logged in with a signed record over the challenge\n"
      "  record REQUEST    \"ok RECORD\": the device parameter record; REQUEST is featureCode=CODE and, on Unisoc, "
      "&IMEI=IMEI\n"
      "  import RECORD     \"ok\": stored, with a signed record over the record's twelve values\n"
      "Anything else, and what does not succeed, is answered by \"failed: \" and the reasons, separated by \"; \". A "
      "line\n"
      "break inside a text is written \\n, a carriage return \\r and a backslash \\\\. Challenge, login and record "
      "live as long\n"
      "as this process.");
  line->callback([&] { command = [&] { return on_phone(options, {"line"}, run_line); }; });
}

void add_provision(CLI::App& app, Options& options, Command& command) {
  CLI::App* const provisioning = app.add_subcommand("provision", "The whole pass: challenge, login, record and import");
  provisioning->add_option("--cert", options.certificate, "The signer's certificate, PEM")
      ->required()
      ->option_text("CERT");
  CLI::Option_group* const signer = provisioning->add_option_group("signer", "One of these signs");
  signer->add_option("--key", options.key, "The signer's private key, PEM")->option_text("KEY");
  signer
      ->add_option(
          "--signer-command", options.signer_command,
          "Run by the shell for each signature: the challenge or the canonical content on its standard input,\n"
          "base64 of the signature on its standard output. KELCTL_KIND says \"challenge\" or \"record\", and\n"
          "KELCTL_RECORD is the whole record.")
      ->option_text("COMMAND");
  signer->require_option(1);
  provisioning->add_option("--feature-code", options.feature_code, "The phone's feature code")
      ->required()
      ->check(check_feature_code)
      ->option_text("CODE");
  provisioning->add_option("--imei", options.imei, "The phone's IMEI; a MediaTek phone knows its own")
      ->check(check_imei)
      ->option_text("IMEI");
  provisioning
      ->add_option("--line-command", options.line_command,
                   "Provision the phone whose line mode this shell command reaches, such as \"adb shell kelctl line\"")
      ->option_text("COMMAND");
  provisioning->callback([&] { command = [&] { return run_provision(options); }; });
}

void add_explain(CLI::App& app, Options& options, Command& command) {
  ExplainRequest& request = options.explain;
  CLI::App* const explaining = app.add_subcommand(
      "explain", "Take a stored file, a signer record or a device parameter record apart and say what does not hold");
  explaining->add_option("FILE", request.path, "\"-\" is standard input")->required();
  explaining->add_option("--root", request.root_path, "The root certificate to hold the signer's against, PEM")
      ->option_text("ROOT");
  CLI::Option* const message =
      explaining->add_option("--message", request.message, "What was signed, such as the challenge")
          ->option_text("TEXT");
  explaining->add_option("--chip-id", request.message, "The chip id that was signed")
      ->excludes(message)
      ->option_text("ID");
  explaining->add_flag("--json", request.as_json, "As a JSON object");
  explaining->footer(
      "Judged by the rules of the library. Whether a record describes a phone, only that phone can tell: check.");
  explaining->callback([&] { command = [&] { return explain(request); }; });
}

void add_server_commands(CLI::App& app, Options& options, Command& command) {
  CLI::App* const root = app.add_subcommand("root", "Make a root: DIR/root.key and DIR/root.pem");
  root->add_option("DIR", options.path)->required();
  root->add_option("--name", options.name, "Common name (Provisioning root)")->option_text("NAME");
  root->callback([&] {
    command = [&] {
      make_root(options.path, options.name.empty() ? "Provisioning root" : options.name);
      return kYes;
    };
  });

  CLI::App* const signer = app.add_subcommand("signer", "Make a signer: DIR/signer.key and DIR/signer.pem");
  signer->add_option("DIR", options.path)->required();
  signer->add_option("--root", options.root, "The root certificate, PEM")->required()->option_text("ROOT");
  signer->add_option("--root-key", options.root_key, "The root's private key, PEM")->required()->option_text("KEY");
  signer->add_option("--name", options.name, "Common name (Provisioning signer)")->option_text("NAME");
  signer->callback([&] {
    command = [&] {
      make_signer(options.path, options.name.empty() ? "Provisioning signer" : options.name, options.root,
                  options.root_key);
      return kYes;
    };
  });

  CLI::App* const signing = app.add_subcommand("sign", "Sign a challenge, a record or a chip id, and nothing else");
  signing->add_option("KIND", options.kind, "challenge, record or chip-id")
      ->required()
      ->check(CLI::IsMember({"challenge", "record", "chip-id"}))
      ->type_name("");
  CLI::Option* const text =
      signing->add_option("TEXT", options.text, "Without it, standard input, less one line break at its end");
  signing->add_option("--key", options.key, "The signer's private key, PEM")->required()->option_text("KEY");
  CLI::Option* const certificate =
      signing->add_option("--cert", options.certificate, "The signer's certificate, PEM")->option_text("CERT");
  signing
      ->add_flag("--signed-record", options.as_record,
                 "Print \"factoryCert=...&sign=...\", not the bare signature in base64")
      ->needs(certificate);
  signing->footer(
      "Refused is a challenge that is not 1 to 250 characters of 0-9 and A-F; a record without its twelve keys, each "
      "once\n"
      "and in order, or with a value that is not well-formed; a chip id that is not \"mt\" or \"sp\" and more. Of a "
      "record,\n"
      "TEXT is the whole; signed are its twelve values, run together.");
  signing->callback([&, text] { command = [&, text] { return run_sign(options, text->count() == 0); }; });
}

int run(int argc, char** argv) {
  CLI::App app("Provisions phones whose records libkelchk guards: the phone's half and the signing server's.",
               "kelctl");
  Options options;
  Command command;
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(kExitCodes);
  add_phone_option(app, options.phone);
  app.add_flag("--log", options.log, "Show the library's messages on standard error as they come");
  add_phone_commands(app, options, command);
  add_provision(app, options, command);
  add_explain(app, options, command);
  add_server_commands(app, options, command);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kYes : kUnusable;
  }
  if (options.log) show_messages();
  return command();
}

}  // namespace
}  // namespace kelctl

int main(int argc, char** argv) {
  try {
    return kelctl::run(argc, argv);
  } catch (const kelctl::Refusal& refusal) {
    fmt::print(stderr, "kelctl: refused: {}\n", refusal.what());
    return kelctl::kNo;
  } catch (const std::exception& error) {
    fmt::print(stderr, "kelctl: {}\n", error.what());
    return kelctl::kUnusable;
  }
}

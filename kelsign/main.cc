// kelsign: roots, signers and signatures for phones whose records libkelchk guards. This file is the command line.
#include <fmt/core.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstring>
#include <optional>
#include <string>

#include "common/file.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "kelsign/certificates.h"
#include "kelsign/signer.h"

namespace kelsign {
namespace {

struct Options {
  NewCertificate wanted;
  std::string key, certificate, kind;
  std::optional<std::string> text;
  bool as_record = false;
  SessionOptions session;
};

void sign(const Options& options) {
  const Signer signer(options.key, options.certificate);
  std::string text = options.text ? *options.text : common::read_file("-", common::kMaxLineLen);
  if (!options.text && text.ends_with('\n')) text.pop_back();
  const std::string message = common::message_to_sign(kind_of(options.kind), text);
  // A signed record is what a phone imports, and a line break would become part of its signature.
  common::print(options.as_record ? signer.signed_record(message) : signer.sign(message) + "\n");
}

// An argument or option; |type| is what stands for its value in the help. An empty one comes from an unset variable and
// must not count as one that was left out, such as the journal.
template <typename Value>
CLI::Option* add(CLI::App& command, const char* name, Value& value, const char* type, const std::string& description) {
  const auto check = [](const std::string& text) { return text.empty() ? "a value was expected" : ""; };
  return command.add_option(name, value, description)->type_name(type)->check(check);
}

CLI::Option* add_wanted(CLI::App& command, NewCertificate& wanted, const char* name) {
  add(command, "DIR", wanted.folder, "", "Made when missing; nothing in it is overwritten")->required();
  add(command, "--name", wanted.name, "NAME", fmt::format("Common name ({})", name));
  add(command, "--days", wanted.days, "DAYS", "Days that the certificate is valid, from now")
      ->check(CLI::Range(1, 36500));
  return add(command, "--key", wanted.key, "KEY", "Use this private key; no key file is written");
}

void add_root(CLI::App& app, NewCertificate& wanted) {
  CLI::App& root = *app.add_subcommand("root", "Make a root: DIR/root.key and DIR/root.pem");
  root.callback([&wanted] { make_root(wanted); });
  add_wanted(root, wanted, "Provisioning root");
}

void add_signer(CLI::App& app, NewCertificate& wanted) {
  CLI::App& signer = *app.add_subcommand("signer", "Make a signer: DIR/signer.key and DIR/signer.pem");
  signer.callback([&wanted] { make_signer(wanted); });
  CLI::Option* const key = add_wanted(signer, wanted, "Provisioning signer");
  add(signer, "--root", wanted.root, "ROOT", "The root certificate, PEM")->required();
  add(signer, "--root-key", wanted.root_key, "KEY", "The root's private key")->required();
  add(signer, "--csr", wanted.request, "FILE", "Use the key and the name of this certificate request, PEM")
      ->excludes(key);
}

CLI::Option* add_pair(CLI::App& command, Options& options) {
  add(command, "--key", options.key, "KEY", "The signer's private key")->required();
  return add(command, "--cert", options.certificate, "CERT", "The signer's certificate, PEM");
}

void add_sign(CLI::App& app, Options& options) {
  CLI::App& command = *app.add_subcommand("sign", "Sign a challenge, a record or a chip id, and nothing else");
  command.callback([&options] { sign(options); });
  add(command, "KIND", options.kind, "", "What TEXT is")
      ->required()
      ->check(CLI::IsMember({"challenge", "record", "chip-id"}));
  add(command, "TEXT", options.text, "", "Without it, standard input, less one line break at its end");
  command.add_flag("--signed-record", options.as_record, "Print \"factoryCert=...&sign=...\", not the bare signature")
      ->needs(add_pair(command, options));
}

void add_line(CLI::App& app, Options& options) {
  SessionOptions& session = options.session;
  CLI::App& line = *app.add_subcommand("line", "Answer requests for signatures, one a line on standard input");
  line.callback([&options] { serve(Signer(options.key, options.certificate), options.session); });
  add_pair(line, options)->required();
  add(line, "--feature-code", session.feature_codes, "CODE...", "Sign records with these feature codes alone")
      ->required();
  CLI::Option* const allow = add(line, "--allow", session.allowed, "", "Sign chip ids as well");
  allow->check(CLI::IsMember({"chip-id"}));
  add(line, "--chip-ids", session.chip_ids_path, "FILE", "Sign only the chip ids in this file, one a line")
      ->needs(allow);
  add(line, "--journal", session.journal_path, "FILE",
      "Append a JSON object for each request before it is answered;\nwhat cannot be recorded is not signed");
}

void run(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (::strcasestr(argv[i], "pin-value=") == nullptr) continue;
    throw common::Error("other users can see a pin-value; name a file by pin-source, or set KELSIGN_PIN");
  }
  Options options;
  CLI::App app("The signing server's program: makes roots and signers, and signs challenges, records and chip ids.",
               "kelsign");
  // Not require_subcommand(), which hides an unknown word.
  app.callback([&app] {
    if (app.get_subcommands().empty()) throw common::Error("a subcommand is required (see kelsign --help)");
  });
  app.footer("A KEY is a PEM file or a pkcs11: URI. See kelsign(1).");
  app.set_version_flag("--version", "kelsign " KELCHK_VERSION);
  add_root(app, options.wanted);
  add_signer(app, options.wanted);
  add_sign(app, options);
  add_line(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    common::print(app.help());
  } catch (const CLI::CallForVersion&) {
    common::print(app.version() + "\n");
  }
}

}  // namespace
}  // namespace kelsign

int main(int argc, char** argv) {
  ::umask(077);  // only certificates get a wider mode
  return common::run_program("kelsign", [=] {
    kelsign::run(argc, argv);
    return common::kYes;
  });
}

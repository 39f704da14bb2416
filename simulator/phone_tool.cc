// The program "phone": makes simulated phones, changes their properties and runs commands inside them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "common/escape.h"
#include "simulator/phone.h"
#include "simulator/sandbox.h"

namespace {

constexpr int kFailed = 2;
constexpr int kNotRun = 125;  // no exit code of a usual command

using OptionalText = std::optional<std::string>;

// What the command line says about a phone.
struct PhoneRequest {
  std::string folder;
  std::string chip;
  int serial = 0;
  OptionalText rid, imei, mac, psn, country;
  std::optional<int> efuse;
  std::vector<std::string> properties;
  std::string vendor_libraries;
};

// The simulator's own vendor libraries, which lie elsewhere in a build folder than where they are installed.
std::string own_vendor_libraries() {
  const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::filesystem::path built = folder / "simulator/vendor";
  return (std::filesystem::exists(built) ? built : folder / PHONE_INSTALLED_VENDOR_LIBRARIES).string();
}

std::pair<std::string, std::string> split_property(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == 0 || equals == std::string::npos) throw std::invalid_argument("\"" + text + "\" is not NAME=VALUE");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

phone::Identity identity_of(const PhoneRequest& request) {
  const bool is_mediatek = request.chip == "mediatek";
  const phone::Chip chip = is_mediatek ? phone::Chip::kMediaTek : phone::Chip::kUnisoc;
  phone::Identity identity = phone::default_identity(chip, request.serial);
  if (request.rid) identity.rid = is_mediatek ? phone::bytes_from_hex(*request.rid) : *request.rid;
  identity.imei = request.imei.value_or(identity.imei);
  identity.mac = request.mac.value_or(identity.mac);
  identity.psn = request.psn.value_or(identity.psn);
  identity.country = request.country.value_or(identity.country);
  identity.efuse = request.efuse.value_or(identity.efuse);
  for (const std::string& property : request.properties) {
    const auto [name, value] = split_property(property);
    identity.properties[name] = value;
  }
  return identity;
}

void add_make(CLI::App& app, PhoneRequest& request) {
  CLI::App* make = app.add_subcommand("make", "Make the folder DIR a phone, of plain files");
  make->add_option("DIR", request.folder, "Missing, empty or made by this command before")->required();
  make->add_option("--chip", request.chip, "Chip family")->required()->check(CLI::IsMember({"mediatek", "unisoc"}));
  make->add_option("--serial", request.serial, "Distinguishes phones of a family")->check(CLI::Range(0, 999999));
  make->add_option("--rid", request.rid, "Chip id: hexadecimal on mediatek, the text itself on unisoc");
  make->add_option("--imei", request.imei, "15 digits");
  make->add_option("--mac", request.mac, "12 hexadecimal digits");
  make->add_option("--psn", request.psn, "Product serial number, 16 characters");
  make->add_option("--country", request.country, "Country configuration");
  make->add_option("--efuse", request.efuse, "What the efuse library of a unisoc phone answers");
  make->add_option("--prop", request.properties, "A property")->allow_extra_args(false)->option_text("NAME=VALUE ...");
  make->add_option("--vendor-libraries", request.vendor_libraries, "Folder of the vendor libraries to install");
  make->callback([&request] {
    const std::string libraries = request.vendor_libraries.empty() ? own_vendor_libraries() : request.vendor_libraries;
    phone::make(request.folder, identity_of(request), libraries);
  });
}

void add_set(CLI::App& app, PhoneRequest& request) {
  CLI::App* set = app.add_subcommand("set", "Change properties of the phone DIR; an empty value removes one");
  set->add_option("DIR", request.folder)->required();
  set->add_option("NAME=VALUE", request.properties)->required();
  set->callback([&request] {
    for (const std::string& property : request.properties) {
      const auto [name, value] = split_property(property);
      phone::set_property(request.folder, name, value);
    }
  });
}

CLI::App* add_running(CLI::App& app, phone::Run& request, const char* name, const char* description) {
  CLI::App* running = app.add_subcommand(name, description);
  running->add_option("--bind", request.binds, "Also show this file or folder inside")->allow_extra_args(false);
  running->add_option("--clock", request.clock,
                      R"(The time inside: "2030-01-01 12:00:00" stands still, "@2030-01-01 12:00:00" runs)");
  running->add_flag_callback(
      "--no-override", [&request] { request.has_override = false; },
      "Drop CAP_DAC_OVERRIDE: the rights of files apply to root too");
  running->footer(
      R"(After "--": the command and its arguments. Shown inside: the command's folder, the "lib" beside it, the current folder.)"
      "\nThe exit code is the command's, 128+N after signal N, or 125 when it could not be started.");
  return running;
}

struct Tool {
  PhoneRequest request;
  phone::Run run;
  std::string root;  // of run
  CLI::App app = CLI::App("Simulated phones, for trying programs that read fixed paths of a phone", "phone");
  CLI::App* running = add_running(app, run, "run", "Run a command with the phone DIR as its root");
  CLI::App* scratch = add_running(app, run, "scratch", "Run a command in an empty phone, removed afterwards");

  Tool() {
    app.require_subcommand(1);
    app.set_version_flag("--version", "phone " KELCHK_VERSION);
    add_make(app, request);
    add_set(app, request);
    running->add_option("DIR", root)->required();
  }

  [[nodiscard]] bool runs_command() const { return running->parsed() || scratch->parsed(); }
};

// Help is a result: it is lost when standard output does not take it.
int show_help(const Tool& tool, const CLI::ParseError& error) {
  tool.app.exit(error);
  if (!std::cout.flush()) throw std::runtime_error("standard output cannot be written");
  return 0;
}

int run_tool(Tool& tool, int argc, char** argv) {
  // What follows "--" is the command's, whatever it looks like.
  char** const arguments_end = argv + argc;
  char** const own_end = std::find(argv, arguments_end, std::string("--"));
  if (own_end != arguments_end) tool.run.command.assign(own_end + 1, arguments_end);
  try {
    tool.app.parse(static_cast<int>(own_end - argv), argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return show_help(tool, error);
    throw std::invalid_argument(std::string(error.what()) + " (see phone --help)");
  }
  if (!tool.runs_command()) return 0;
  if (tool.run.command.empty()) throw std::invalid_argument("no command: give it after \"--\"");
  if (tool.running->parsed()) tool.run.root = tool.root;
  return phone::run(tool.run);
}

}  // namespace

int main(int argc, char** argv) {
  int failed = kFailed;
  try {
    Tool tool;
    try {
      return run_tool(tool, argc, argv);
    } catch (...) {
      if (tool.runs_command()) failed = kNotRun;
      throw;
    }
  } catch (const std::exception& error) {
    std::cerr << "phone: " << common::escape(error.what()) << "\n";
    return failed;
  }
}

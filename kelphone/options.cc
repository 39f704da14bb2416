#include <charconv>
#include <string_view>
#include <vector>

#include "common/outcome.h"
#include "kelphone/commands.h"

namespace kelphone {
namespace {

constexpr unsigned kMaxWait = 3600;
constexpr std::string_view kWait = "--wait=";

enum Takes { kNothing = 0, kJson = 1, kService = 2, kFile = 4, kNoPhone = 8 };

struct Command {
  std::string_view name;
  const char* usage;
  int (*run)(const Options& options);
  unsigned takes;
};

constexpr Command kCommands[] = {
    {"check", "check [--json | --service]", check, kJson | kService},
    {"security", "security [--json]", security, kJson},
    {"efuse", "efuse", efuse, kNothing},
    {"authorize", "authorize FILE|-", authorize, kFile},
    {"line", "line", serve_session, kNothing},
    {"version", "version", show_version, kNoPhone},
    {"--help", "--help", show_help, kNoPhone},
};

unsigned parse_wait(std::string_view number) {
  unsigned seconds = 0;
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, seconds);
  if (error == std::errc() && rest == end && seconds <= kMaxWait) return seconds;
  throw common::Error("--wait takes 0 to " + std::to_string(kMaxWait) + " seconds");
}

const Command& find_command(std::string_view name) {
  for (const Command& command : kCommands) {
    if (command.name == name) return command;
  }
  throw common::Error("unknown command \"" + std::string(name) + "\": see kelphone --help");
}

}  // namespace

Options parse_options(int argc, char** argv) {
  Options options;
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--log") {
      options.log = true;
    } else if (word == "--json") {
      options.json = true;
    } else if (word == "--service") {
      options.service = true;
    } else if (word == kWait.substr(0, kWait.size() - 1)) {
      options.wait = parse_wait(i + 1 < argc ? argv[++i] : "");
    } else if (word.starts_with(kWait)) {
      options.wait = parse_wait(word.substr(kWait.size()));
    } else if (word.size() > 1 && word.starts_with('-') && word != "--help") {
      throw common::Error("unknown option \"" + std::string(word) + "\": see kelphone --help");
    } else {
      words.emplace_back(word);
    }
  }
  if (words.empty()) throw common::Error("no command: see kelphone --help");
  const Command& command = find_command(words.front());
  const bool fits = words.size() == ((command.takes & kFile) != 0 ? 2 : 1) &&
                    (!options.json || (command.takes & kJson) != 0) &&
                    (!options.service || (command.takes & kService) != 0) && !(options.json && options.service);
  if (!fits) throw common::Error(std::string("usage: kelphone [--log] [--wait SECONDS] ") + command.usage);
  options.run = command.run;
  options.needs_phone = (command.takes & kNoPhone) == 0;
  options.file = words.back();
  return options;
}

}  // namespace kelphone

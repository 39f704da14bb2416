// kelphone: the phone's program. It checks what libkelchk checks, and serves a factory host.
#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "common/file.h"
#include "common/outcome.h"
#include "kelphone/commands.h"
#include "kelphone/messages.h"
#include "kelphone/platform.h"

namespace kelphone {
namespace {

constexpr char kHelp[] = R"(usage: kelphone [--log] [--wait SECONDS] COMMAND

  check [--json]      "valid" or "not valid", and why; repairs a damaged copy
  check --service     the same for init: logs one line and sets ro.vendor.kelchk.verdict
  security [--json]   the security state report, 24 properties
  efuse               "efused" or "not efused"
  authorize FILE      import an authorization file; "-" is standard input
  line                serve a factory host, a request and an answer a line
  version

  --log               show the library's messages on standard error as they come
  --wait SECONDS      for another process that uses this phone (10), or for all that
                      "check --service" needs (60)
)";

constexpr unsigned kMaxWait = 3600;

enum class Takes { kNothing, kJson, kService, kFile };

struct Command {
  std::string_view name;
  Takes takes;
  int (*run)(const Options& options);
};

constexpr Command kCommands[] = {
    {"check", Takes::kJson, check},         {"check", Takes::kService, check_at_boot},
    {"security", Takes::kJson, security},   {"efuse", Takes::kNothing, efuse},
    {"authorize", Takes::kFile, authorize}, {"line", Takes::kNothing, serve_session},
};

// Takes the options out of the command line and returns the other words.
Lines take_options(int argc, char** argv, Options& options) {
  Lines words;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--log") {
      options.log = true;
    } else if (word == "--json") {
      options.json = true;
    } else if (word == "--service") {
      options.service = true;
    } else if (word == "--wait") {
      options.wait = parse_number(i + 1 < argc ? argv[++i] : "", kMaxWait);
      if (!options.wait) throw common::Error("--wait takes 0 to " + std::to_string(kMaxWait) + " seconds");
    } else {
      words.emplace_back(word);
    }
  }
  if (words.empty()) throw common::Error("no command: see kelphone --help");
  return words;
}

const Command& find_command(const Lines& words, const Options& options) {
  for (const Command& command : kCommands) {
    const bool fits = command.name == words.front() && words.size() == (command.takes == Takes::kFile ? 2 : 1) &&
                      options.service == (command.takes == Takes::kService) &&
                      (!options.json || command.takes == Takes::kJson);
    if (fits) return command;
  }
  throw common::Error("wrong usage of \"" + joined(words) + "\": see kelphone --help");
}

// A descriptor that is closed from the start would be given to a stored file, and what is printed would go there.
// Printing to what takes its place fails, as it should.
void keep_standard_descriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(fd, F_GETFD) < 0) static_cast<void>(::open("/dev/null", O_RDONLY));
  }
}

// What root makes in the stores, no other caller could repair or lock.
void become_system() {
  if (::geteuid() != 0 || !has_system_user()) return;
  const gid_t group = kSystemUser;
  const bool is_system = ::setgroups(1, &group) == 0 && ::setresgid(group, group, group) == 0 &&
                         ::setresuid(kSystemUser, kSystemUser, kSystemUser) == 0;
  if (!is_system) common::throw_errno("root", "cannot become the user \"system\"");
}

int run(int argc, char** argv) {
  Options options;
  const Lines words = take_options(argc, argv, options);
  if (words.front() == "--help" || words.front() == "version") {
    common::print(words.front() == "version" ? "kelphone " KELCHK_VERSION "\n" : kHelp);
    return common::kYes;
  }
  const Command& command = find_command(words, options);
  options.file = words.back();
  if (!is_phone()) {
    throw common::Error(
        "this machine is no phone, and its own folders are not touched. On a simulated phone: "
        "phone run DIR -- kelphone check");
  }
  become_system();
  if (options.log) show_messages();
  // A simulated phone's log is the terminal, which is for results. On a phone this does nothing.
  if (!options.service) ::setenv("KELCHK_LOG", "none", 0);
  return command.run(options);
}

}  // namespace

std::optional<unsigned> parse_number(std::string_view text, unsigned max) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number > max) return {};
  return number;
}

}  // namespace kelphone

int main(int argc, char** argv) {
  kelphone::keep_standard_descriptors();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // so that lost output is an error like any other
  return common::run_program("kelphone", [=] { return kelphone::run(argc, argv); });
}

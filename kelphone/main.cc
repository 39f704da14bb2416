// kelphone: the phone's program. It checks what libkelchk checks, and serves a factory host.
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include "common/file.h"
#include "common/outcome.h"
#include "kelphone/check.h"
#include "kelphone/commands.h"
#include "kelphone/lock.h"
#include "kelphone/messages.h"

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

#ifdef __ANDROID__
constexpr bool kIsAndroid = true;
#else
constexpr bool kIsAndroid = false;
#endif

constexpr unsigned kMaxWait = 3600;
constexpr uid_t kSystemUser = 1000;  // and its group, by the same number

struct Command {
  std::string_view form;
  int (*run)(const Options& options);
};

constexpr Command kCommands[] = {
    {"check", check}, {"check --json", check},       {"check --service", check_at_boot}, {"security", security},
    {"efuse", efuse}, {"security --json", security}, {"authorize", authorize},           {"line", serve_session},
};

// Takes the options for every command and the FILE out of the command line and returns the rest.
std::string take_options(int argc, char** argv, Options& options) {
  std::string form;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--log") {
      options.log = true;
    } else if (word == "--wait") {
      options.wait = parse_number(i + 1 < argc ? argv[++i] : "", kMaxWait);
      if (!options.wait) throw common::Error("--wait takes 0 to " + std::to_string(kMaxWait) + " seconds");
    } else if (form == "authorize" && options.file.empty()) {
      options.file = word;
    } else {
      form += (form.empty() ? "" : " ") + word;
    }
  }
  options.json = form.ends_with(" --json");
  return form;
}

// A simulated phone mostly has none: its folders belong to whoever made it, who is root inside.
bool has_system_user() {
  struct stat status = {};
  return !is_simulated_phone() || (::stat(kLockFolder, &status) == 0 && status.st_uid == kSystemUser);
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
  const std::string form = take_options(argc, argv, options);
  if (form == "--help" || form == "-h" || form == "version") {
    common::print(form == "version" ? "kelphone " KELCHK_VERSION "\n" : kHelp);
    return common::kYes;
  }
  const auto* const command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                           [&](const Command& known) { return known.form == form; });
  if (command == std::end(kCommands) || (command->run == authorize) == options.file.empty()) {
    throw common::Error("wrong usage of \"" + form + "\": see kelphone --help");
  }
  if (!kIsAndroid && !is_simulated_phone()) {
    throw common::Error(
        "this machine is no phone, and its own folders are not touched. On a simulated phone: "
        "phone run DIR -- kelphone check");
  }
  become_system();
  if (options.log) show_messages();
  // A simulated phone's log is the terminal, which is for results. On a phone this does nothing.
  if (command->run != check_at_boot) ::setenv("KELCHK_LOG", "none", 0);
  return command->run(options);
}

}  // namespace
}  // namespace kelphone

int main(int argc, char** argv) {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // so that lost output is an error like any other
  return common::run_program("kelphone", [=] { return kelphone::run(argc, argv); });
}

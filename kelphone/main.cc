// kelphone: the phone's program. It checks what libkelchk checks, and serves a factory host.
#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "common/file.h"
#include "common/outcome.h"
#include "kelphone/commands.h"
#include "kelphone/messages.h"
#include "kelphone/platform.h"

namespace kelphone {
namespace {

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
  const Options options = parse_options(argc, argv);
  if (!options.needs_phone) return options.run(options);
  if (!is_phone()) {
    throw common::Error(
        "this machine is no phone, and its own folders are not touched. On a simulated phone: "
        "phone run DIR -- kelphone check");
  }
  become_system();
  if (options.log) show_messages();
  // A simulated phone's log is the terminal, which is for results. On a phone this does nothing.
  if (!options.service) ::setenv("KELCHK_LOG", "none", 0);
  return options.run(options);
}

}  // namespace
}  // namespace kelphone

int main(int argc, char** argv) {
  kelphone::keep_standard_descriptors();
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));  // so that lost output is an error like any other
  return common::run_program("kelphone", [=] { return kelphone::run(argc, argv); });
}

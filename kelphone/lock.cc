#include "kelphone/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "common/file.h"
#include "common/outcome.h"

namespace kelphone {
namespace {

std::string complaint;

void give_up(int /*signal*/) {
  static_cast<void>(!::write(STDERR_FILENO, complaint.data(), complaint.size()));
  ::_exit(common::kSessionFailed);
}

}  // namespace

common::Fd lock_phone(unsigned wait) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wait);
  common::Fd folder(::open(kLockFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  while (folder && ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) common::throw_errno(kLockFolder, "cannot be locked");
    if (std::chrono::steady_clock::now() >= end) {
      throw common::SessionError("another process uses this phone: /kelofs was locked for " + std::to_string(wait) +
                                 " seconds");
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return folder;
}

void expect(const char* what, unsigned limit) {
  ::alarm(0);
  complaint = "kelphone: no ";
  complaint.append(what).append(" within ").append(std::to_string(limit)).append(" seconds\n");
  static_cast<void>(std::signal(SIGALRM, give_up));
  ::alarm(limit);
}

}  // namespace kelphone

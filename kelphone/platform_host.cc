// A simulated phone, on a machine that is none.
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "kelphone/lock.h"
#include "kelphone/platform.h"

namespace kelphone {

// The simulated phone keeps the kernel's /proc in /run and has links to it in its own. No other machine does that.
bool is_phone() {
  char target[64];
  const ssize_t len = ::readlink("/proc/self", target, sizeof target);
  return len > 0 && std::string_view(target, static_cast<size_t>(len)) == "/run/proc/self";
}

// Mostly not: its folders belong to whoever made it, who is root inside.
bool has_system_user() {
  struct stat status = {};
  return ::stat(kLockFolder, &status) == 0 && status.st_uid == kSystemUser;
}

// A simulated phone is one file system.
bool is_mounted(const std::string& /*path*/) {
  return true;
}

}  // namespace kelphone

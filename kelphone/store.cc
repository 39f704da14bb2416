#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "common/fd.h"
#include "kelchk.h"
#include "kelphone/check.h"

namespace kelphone {
namespace {

// With its trailing "/".
std::string store_folder(Copy copy) {
  static const char* const primary = is_mt_chip() == 1 ? KELCHK_STORE_MEDIATEK : KELCHK_STORE_UNISOC;
  return copy == kPrimary ? primary : KELCHK_STORE_BACKUP;
}

// A simulated phone is one file system.
bool is_mounted(const std::string& path) {
  struct stat inside = {};
  struct stat outside = {};
  return is_simulated_phone() || (::stat(path.c_str(), &inside) == 0 && ::stat((path + "/..").c_str(), &outside) == 0 &&
                                  inside.st_dev != outside.st_dev);
}

}  // namespace

bool is_simulated_phone() {
  char target[64];
  const ssize_t len = ::readlink("/proc/self", target, sizeof target);
  return len > 0 && std::string_view(target, static_cast<size_t>(len)) == "/run/proc/self";
}

std::string store_trouble(Copy copy) {
  const std::string folder = store_folder(copy);
  const std::string partition = folder.substr(0, folder.rfind('/', folder.size() - 2));
  if (::access(partition.c_str(), X_OK) != 0) return partition + ": " + std::strerror(errno);
  if (!is_mounted(partition)) return partition + ": not mounted";
  if (::access(folder.c_str(), R_OK | X_OK) == 0 || errno == ENOENT) return "";
  return folder + ": " + std::strerror(errno);
}

void make_store_folders() {
  constexpr mode_t kMode = 0770;
  for (const Copy copy : kCopies) static_cast<void>(::mkdir(store_folder(copy).c_str(), kMode));
}

Look look_at(File file, Copy copy) {
  const char* const name = file == kAuthorization ? KELCHK_AUTHORIZATION_FILE : KELCHK_PARAMETER_FILE;
  const common::Fd fd(::open((store_folder(copy) + name).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd && errno == ENOENT) return {.is_missing = true};
  char content[KELCHK_SIGNED_FILE_MAX + 1];
  const ssize_t len = fd ? ::read(fd.get(), content, sizeof content) : -1;
  if (len < 0) return {.error = std::strerror(errno)};
  struct stat status = {};
  if (::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {.error = "not a regular file"};
  return {.content = std::string(content, static_cast<size_t>(len))};
}

}  // namespace kelphone

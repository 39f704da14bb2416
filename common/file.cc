#include "common/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/fd.h"
#include "common/outcome.h"

namespace common {
namespace {

std::string read_up_to(int fd, const std::string& name, size_t max) {
  std::string content;
  char buffer[4096];
  while (content.size() < max) {
    const ssize_t count = ::read(fd, buffer, std::min(sizeof buffer, max - content.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw_errno(name, "cannot be read");
    if (count == 0) break;
    content.append(buffer, static_cast<size_t>(count));
  }
  return content;
}

const std::string& shown_name(const std::string& path) {
  static const std::string kStandardInput = "standard input";
  return path == "-" ? kStandardInput : path;
}

}  // namespace

bool write_all(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = ::write(fd, content.data(), content.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    content.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

void throw_errno(const std::string& path, const char* what) {
  const int error = errno;
  throw Error(path + ": " + what + ": " + std::strerror(error));
}

std::string read_file(const std::string& path, size_t max) {
  std::string content = read_start(path, max + 1);
  if (content.size() <= max) return content;
  throw Error(shown_name(path) + ": holds more than the " + std::to_string(max) + " bytes that are accepted");
}

std::string read_start(const std::string& path, size_t max) {
  if (path == "-") return read_up_to(STDIN_FILENO, shown_name(path), max);
  const Fd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) throw_errno(path, "cannot be opened");
  return read_up_to(file.get(), path, max);
}

void write_new_file(const std::string& path, std::string_view content, mode_t mode) {
  const Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!file) throw_errno(path, "cannot be created");
  if (::fchmod(file.get(), mode) == 0 && write_all(file.get(), content) && ::fsync(file.get()) == 0) return;
  const int error = errno;
  ::unlink(path.c_str());
  errno = error;
  throw_errno(path, "cannot be written");
}

}  // namespace common

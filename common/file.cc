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

using Clock = std::chrono::steady_clock;

std::string read_file(const std::string& path, size_t max, std::chrono::seconds limit) {
  const bool is_input = path == "-";
  const std::string name = is_input ? "standard input" : path;
  const Fd file(is_input ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) throw_errno(name, "cannot be opened");
  const auto deadline = Clock::now() + limit;
  pollfd wanted[] = {{file.get(), POLLIN, 0}};
  std::string content;
  std::string bytes;
  do {
    if (!wait_for(wanted, deadline)) {
      throw Error(name + ": does not end within " + std::to_string(limit.count()) + " seconds");
    }
    if (!read_some(file.get(), bytes)) throw_errno(name, "cannot be read");
    content += bytes;
  } while (!bytes.empty() && content.size() <= max);
  if (content.size() <= max) return content;
  throw Error(name + ": holds more than the " + std::to_string(max) + " bytes that are accepted");
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

bool read_some(int fd, std::string& bytes) {
  ssize_t count = -1;
  bytes.resize(4096);
  do count = ::read(fd, bytes.data(), bytes.size());
  while (count < 0 && errno == EINTR);
  bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return count >= 0;
}

bool wait_for(std::span<pollfd> wanted, Clock::time_point deadline) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    if (::poll(wanted.data(), wanted.size(), static_cast<int>(left)) > 0) return true;
  }
}

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

}  // namespace common

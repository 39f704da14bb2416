#include "kelctl/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/file.h"
#include "kelctl/outcome.h"

namespace kelctl {
namespace {

[[noreturn]] void fail(const std::string& path, const char* what) {
  const int error = errno;
  throw Error(path + ": " + what + ": " + std::strerror(error));
}

std::string read_all(int fd, const std::string& name, size_t limit) {
  std::string content;
  char buffer[4096];
  while (content.size() < limit) {
    const ssize_t count = ::read(fd, buffer, std::min(sizeof buffer, limit - content.size()));
    if (count < 0) fail(name, "cannot be read");
    if (count == 0) break;
    content.append(buffer, static_cast<size_t>(count));
  }
  return content;
}

bool write_all(int fd, const std::string& content) {
  size_t written = 0;
  while (written < content.size()) {
    const ssize_t count = ::write(fd, content.data() + written, content.size() - written);
    if (count < 0) return false;
    written += static_cast<size_t>(count);
  }
  return true;
}

}  // namespace

std::string read_file(const std::string& path, size_t limit) {
  if (path == "-") return read_all(STDIN_FILENO, "standard input", limit);
  const kelchk::Fd file(kelchk::open_to_read(path.c_str()));
  if (!file) fail(path, "cannot be opened");
  return read_all(file.get(), path, limit);
}

void write_new_file(const std::string& path, const std::string& content, mode_t mode) {
  const kelchk::Fd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file) fail(path, "cannot be made");
  if (!write_all(file.get(), content)) fail(path, "cannot be written");
}

void become_standard_input(const std::string& content) {
  std::FILE* const file = std::tmpfile();  // lives as long as this process
  if (file == nullptr || !write_all(::fileno(file), content) || ::lseek(::fileno(file), 0, SEEK_SET) != 0 ||
      ::dup2(::fileno(file), STDIN_FILENO) < 0) {
    fail("a temporary file", "cannot be made");
  }
}

}  // namespace kelctl

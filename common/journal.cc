#include "common/journal.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>

#include "common/fd.h"
#include "common/file.h"
#include "common/outcome.h"

namespace common {

void add_to_journal(const std::string& path, const Members& members) {
  if (path.empty()) return;
  const Fd file(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  struct stat status = {};
  if (!file || ::fstat(file.get(), &status) != 0) throw_errno(path, "cannot be opened");
  if (!S_ISREG(status.st_mode)) throw Error(path + ": a regular file was expected for a journal");

  char last = '\n';  // stays so when the file is empty
  static_cast<void>(::pread(file.get(), &last, 1, status.st_size - 1) < 0);
  const std::string line = (last == '\n' ? "" : "\n") + json_line(members);
  errno = ENOSPC;  // what a write that stops half-way leaves unsaid
  if (::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw_errno(path, "cannot be written");
  }
  if (::fdatasync(file.get()) != 0) throw_errno(path, "cannot be flushed to storage");
  if (status.st_size > 0) return;
  // A new file is not in storage before its folder is.
  const std::string folder = std::filesystem::path(path).parent_path() / ".";
  const Fd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened || ::fsync(opened.get()) != 0) throw_errno(folder, "cannot be flushed to storage");
}

std::string journal_time() {
  const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  const auto ms = now.time_since_epoch().count() % 1000;
  return fmt::format("{:%FT%T}.{:03}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(now)), ms);
}

}  // namespace common

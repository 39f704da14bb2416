#include "common/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "common/escape.h"
#include "common/fd.h"
#include "common/file.h"
#include "common/outcome.h"

namespace common {

std::string Journal::object_of(const std::vector<Field>& fields) {
  std::string object;
  for (const auto& [name, value] : fields) object += (object.empty() ? "{" : ", ") + json_string(name) + ": " + value;
  return object + "}";
}

void Journal::add(const std::vector<Field>& fields) const {
  if (path_.empty()) return;
  const Fd file(::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  struct stat status = {};
  if (!file || ::fstat(file.get(), &status) != 0) throw_errno(path_, "cannot be opened");
  if (!S_ISREG(status.st_mode)) throw Error(path_ + ": a regular file was expected for a journal");

  char last = '\n';  // stays so when the file is empty
  static_cast<void>(::pread(file.get(), &last, 1, status.st_size - 1) < 0);
  const std::string line = (last == '\n' ? "" : "\n") + object_of(fields) + "\n";
  errno = ENOSPC;  // what a write that stops half-way leaves unsaid
  if (::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw_errno(path_, "cannot be written");
  }
  if (::fdatasync(file.get()) != 0) throw_errno(path_, "cannot be flushed to storage");
  if (status.st_size > 0) return;
  // A new file is not in storage before its folder is.
  const std::string folder = std::filesystem::path(path_).parent_path() / ".";
  const Fd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened || ::fsync(opened.get()) != 0) throw_errno(folder, "cannot be flushed to storage");
}

std::string journal_time() {
  timespec now = {};
  tm utc = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  ::gmtime_r(&now.tv_sec, &utc);
  char seconds[32];
  const size_t len = ::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S.", &utc);
  return std::string(seconds, len) + std::to_string(1000 + now.tv_nsec / 1000000).substr(1) + "Z";
}

}  // namespace common

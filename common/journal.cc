#include "common/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "common/escape.h"
#include "common/fd.h"
#include "common/file.h"
#include "common/outcome.h"

namespace common {
namespace {

bool ends_unfinished(int fd, off_t size) {
  char last = '\n';
  return size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

// A new file is not in storage before its folder is.
void flush_folder_of(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Fd fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd || ::fsync(fd.get()) != 0) throw_errno(folder, "cannot be flushed to storage");
}

}  // namespace

std::string Journal::object_of(const std::vector<Field>& fields) {
  std::string object;
  for (const auto& [name, value] : fields) object += (object.empty() ? "{" : ", ") + json_string(name) + ": " + value;
  return object + "}";
}

void Journal::add(const std::vector<Field>& fields) const {
  if (path_.empty()) return;
  const Fd file(::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!file) throw_errno(path_, "cannot be opened");
  struct stat status = {};
  if (::fstat(file.get(), &status) != 0) throw_errno(path_, "cannot be examined");
  if (!S_ISREG(status.st_mode)) throw Error(path_ + ": a regular file was expected for a journal");

  const std::string line = (ends_unfinished(file.get(), status.st_size) ? "\n" : "") + object_of(fields) + "\n";
  errno = ENOSPC;  // what a write that stops half-way leaves unsaid
  if (::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    throw_errno(path_, "cannot be written");
  }
  if (::fdatasync(file.get()) != 0) throw_errno(path_, "cannot be flushed to storage");
  if (status.st_size == 0) flush_folder_of(path_);
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

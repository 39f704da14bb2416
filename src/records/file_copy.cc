#include "records/file_copy.h"

#include <errno.h>

#include "core/file.h"
#include "core/log.h"

namespace kelchk {

int copy_file_sync(const char* source, const char* destination) noexcept {
  char buffer[4096] = {};
  const Fd in(open_stored_to_read(source));
  if (!in) return log_failure("cannot open source file");
  const Fd out(open_stored_to_replace(destination));
  if (!out) {
    log_error("cannot open destination file=%d ,dest= %s", errno, destination);
    return -1;
  }
  for (;;) {
    const ssize_t count = ::read(in.get(), buffer, sizeof buffer);
    if (count <= 0) break;
    if (::write(out.get(), buffer, static_cast<size_t>(count)) != count) return log_failure("write error");
  }
  ::sync();
  return 0;
}

}  // namespace kelchk

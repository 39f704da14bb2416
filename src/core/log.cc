#include "core/log.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "core/file.h"
#include "kelchk.h"

namespace kelchk {

int log_failure(const char* text) noexcept {
  log_error("%s", text);
  return -1;
}

void logToFile(const char* line) noexcept {
  // Whoever can write to the store directory can put a FIFO here. Opening it for reading as well never waits and needs
  // no reader; the line is lost.
  const Fd file(::open(KELCHK_LOG_FILE, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666));
  if (!file) {
    log_error("Unable to open the log file\n");
    return;
  }
  // O_APPEND writes at the end, so an emptied file needs no seek back. A full file that cannot be emptied loses the
  // line, because the limit matters more.
  const bool full = ::lseek(file.get(), 0, SEEK_END) >= kLogFileLimit;
  if (full && ::ftruncate(file.get(), 0) != 0) return;
  dprintf(file.get(), "%s\n", line);
}

void log_file_line(const char* format, ...) noexcept {
  memset(g_log_buf, 0, sizeof g_log_buf);
  va_list arguments;
  va_start(arguments, format);
  static_cast<void>(vsnprintf(g_log_buf, sizeof g_log_buf, format, arguments));
  va_end(arguments);
  logToFile(g_log_buf);
}

}  // namespace kelchk

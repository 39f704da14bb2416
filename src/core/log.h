// The two logs: the Android log, and a small log file for certificate, signature and record trouble.
#pragma once

#include <android/log.h>

namespace kelchk {

// log_error() and its like write one line to the Android log, printf-style. They are macros because
// the system's log takes its arguments only directly, which is also where the compiler checks the format.
#define log_at(priority, ...) static_cast<void>(__android_log_print(priority, "kelchk", __VA_ARGS__))
#define log_debug(...) log_at(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define log_info(...) log_at(ANDROID_LOG_INFO, __VA_ARGS__)
#define log_error(...) log_at(ANDROID_LOG_ERROR, __VA_ARGS__)

// Logs |text| as an error and returns -1: the step that fails, in one line.
int fail(const char* text) noexcept;

// Appends |line| and a line break to the log file, which it empties first once it has reached 102400 bytes. A log file
// that cannot be opened costs only the line.
void logToFile(const char* line) noexcept;

// Formats one line into g_log_buf, cut where it does not fit, and appends it to the log file.
[[gnu::format(printf, 1, 2)]] void log_file_line(const char* format, ...) noexcept;

}  // namespace kelchk

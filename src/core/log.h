// The two logs: the Android log, and a small log file for certificate, signature and record failures.
#pragma once

#include <android/log.h>

namespace kelchk {

// Each writes one printf-style line to the Android log. They are macros because the system's log function takes its
// arguments only directly, and because the compiler can then check the format at the call.
#define log_at(priority, ...) static_cast<void>(__android_log_print(priority, "kelchk", __VA_ARGS__))
#define log_debug(...) log_at(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define log_info(...) log_at(ANDROID_LOG_INFO, __VA_ARGS__)
#define log_error(...) log_at(ANDROID_LOG_ERROR, __VA_ARGS__)

// Logs |text| as an error and returns -1, so that a step fails in one line.
int log_failure(const char* text) noexcept;

// A log file of this many bytes or more is emptied before the next line.
inline constexpr long kLogFileLimit = 102400;

// Appends |line| and a line break to the log file. Failures are not reported to the caller; only the line is lost.
void logToFile(const char* line) noexcept;

// Formats one line into g_log_buf, cut to its capacity, and appends it to the log file.
[[gnu::format(printf, 1, 2)]] void log_file_line(const char* format, ...) noexcept;

}  // namespace kelchk

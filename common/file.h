// Files and standard input, within a limit.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <span>
#include <string>
#include <string_view>

namespace common {

// Reads the file |path|, "-" for standard input. Throws Error, naming it, when it cannot be read, holds more than |max|
// bytes or, as a FIFO may, does not end within |limit|.
std::string read_file(const std::string& path, size_t max, std::chrono::seconds limit = std::chrono::seconds(60));

// Writes a file that does not exist yet, with exactly |mode| whatever the umask, and flushes it to storage. Throws
// Error, naming it, when it exists or when a step fails; a file that was begun is then removed.
void write_new_file(const std::string& path, std::string_view content, mode_t mode);

// Replaces |bytes| by what one read returns: a few KiB at most, nothing at the end. Returns false with errno when it
// fails.
bool read_some(int fd, std::string& bytes);

// Waits until one of |wanted| is ready. Returns false when |deadline| passes first.
bool wait_for(std::span<pollfd> wanted, std::chrono::steady_clock::time_point deadline);

// Writes everything, or returns false with errno.
bool write_all(int fd, std::string_view content);

// Throws Error with |path|, |what| failed and the text of errno.
[[noreturn]] void throw_errno(const std::string& path, const char* what);

}  // namespace common

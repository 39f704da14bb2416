#include "common/outcome.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "common/escape.h"
#include "common/file.h"

namespace common {
namespace {

// The next file opened would take the number of a standard stream that was closed, and receive this program's output.
// The replacements fail every use, as a closed stream does.
void replace_closed_streams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) < 0) ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  throw_errno("standard output", "cannot be written");
}

void complain(std::string_view name, std::string_view message) {
  std::fputs((escape(name) + ": " + escape(message) + "\n").c_str(), stderr);
}

std::string painted(std::string_view words, bool are_good) {
  if (::isatty(STDOUT_FILENO) != 1) return std::string(words);
  return (are_good ? "\x1b[32m" : "\x1b[31m") + std::string(words) + "\x1b[0m";
}

int run_program(const char* program, const std::function<int()>& body) {
  replace_closed_streams();
  try {
    const int code = body();
    if (std::fclose(stdout) != 0) throw_errno("standard output", "cannot be written");
    return code;
  } catch (const Refusal& refusal) {
    complain(program, std::string("refused: ") + refusal.what());
    return kNo;
  } catch (const SessionError& error) {
    complain(program, error.what());
    return kSessionFailed;
  } catch (const std::exception& error) {
    complain(program, error.what());
    return kUnusable;
  }
}

}  // namespace common

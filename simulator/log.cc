// liblog.so of the simulated phone. The environment variable KELCHK_LOG says where messages go:
//   unset or empty   to stderr, for people: "E kelchk: text"
//   "none"           nowhere
//   a file's path    appended to that file, for programs: "6 kelchk text"
// In both forms a message is one line and "\" is written as "\\". For people, every byte outside printable ASCII is
// written as \xHH, and the line break that ends most messages is omitted. For programs, a line break is written as "\n"
// and every other byte as it is.
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/escape.h"
#include "common/fd.h"

namespace {

__attribute__((format(printf, 1, 0))) std::string format(const char* fmt, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int len = std::vsnprintf(nullptr, 0, fmt, args);
  std::string text(len > 0 ? static_cast<size_t>(len) : 0, '\0');
  const int written = std::vsnprintf(text.data(), text.size() + 1, fmt, copy);
  va_end(copy);
  return written == len ? text : "";
}

std::string one_line(std::string_view text) {
  std::string line;
  for (const char c : text) {
    if (c == '\\')
      line += "\\\\";
    else if (c == '\n')
      line += "\\n";
    else
      line += c;
  }
  return line;
}

std::string line_for_people(int prio, const char* tag, std::string_view text, bool colour) {
  constexpr std::string_view kLetters = "??VDIWEF";
  constexpr const char* kColours[] = {"", "", "", "36", "32", "33", "31", "31"};
  const size_t known = prio > 0 && prio < static_cast<int>(kLetters.size()) ? static_cast<size_t>(prio) : 0;
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::string letter(1, kLetters[known]);
  if (colour) letter = std::string("\033[") + kColours[known] + "m" + letter + "\033[0m";
  return letter + " " + common::escape(tag) + ": " + common::escape(text) + "\n";
}

// One write per line, so that the lines of several processes do not mix.
bool write_line(int fd, const std::string& line) {
  return ::write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

bool append_line(const char* path, const std::string& line) {
  const common::Fd file(::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
  return file && write_line(file.get(), line);
}

bool deliver(int prio, const char* tag, const std::string& text) {
  const char* chosen = std::getenv("KELCHK_LOG");
  const std::string_view destination = chosen ? chosen : "";
  if (destination == "none") return true;
  if (!destination.empty() && append_line(chosen, std::to_string(prio) + " " + tag + " " + one_line(text) + "\n")) {
    return true;
  }
  // A message that could not be appended to its file is better shown than lost.
  return write_line(STDERR_FILENO, line_for_people(prio, tag, text, ::isatty(STDERR_FILENO) == 1));
}

// Callers report errno after they have logged something else.
struct KeepErrno {
  KeepErrno() = default;
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;
  ~KeepErrno() { errno = saved; }

  int saved = errno;
};

}  // namespace

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const KeepErrno keep_errno;
  va_list args;
  va_start(args, fmt);
  const std::string text = format(fmt, args);
  va_end(args);
  return deliver(prio, tag ? tag : "", text) ? 1 : -1;
}

// Does not call __android_log_print, which a program may have replaced by one that calls this.
int __android_log_write(int prio, const char* tag, const char* text) {
  const KeepErrno keep_errno;
  return deliver(prio, tag ? tag : "", text ? text : "") ? 1 : -1;
}

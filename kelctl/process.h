// A program that this one talks to over its standard input and output.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace kelctl {

class Process {
 public:
  // Starts |command|, looked for in PATH. Its standard error stays this program's. Throws Error when it cannot start.
  explicit Process(const std::vector<std::string>& command);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();  // closes what is open and waits for its end

  // A program that does not read loses what is written, and a later answer tells.
  void write(const std::string& text);
  void end_input();

  // The next line without its line break; none after the last.
  std::optional<std::string> read_line();
  std::string read_rest();

  // Its exit code, 128 plus the signal when one ended it.
  int wait();

 private:
  pid_t id_ = -1;
  std::FILE* in_ = nullptr;
  std::FILE* out_ = nullptr;
};

}  // namespace kelctl

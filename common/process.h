// A program that this one talks to over its standard input and output, line by line.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "common/fd.h"
#include "common/line_protocol.h"

namespace common {

class Process {
 public:
  // Starts |command|, looked for in PATH unless it holds a "/", in a process group of its own, which ends when this
  // object or this process does, however that ends. What it writes to standard error, also why it cannot start, is
  // shown after |name| and escaped, while ask() waits and when this object ends; of more than 1 MiB the rest is
  // dropped. Throws SessionError when there is no process or pipe. From then on this process ignores SIGPIPE.
  Process(std::string name, std::vector<std::string> command);
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();  // ends the group: by the end of its input, after a grace period by SIGTERM, then SIGKILL

  [[nodiscard]] const std::string& name() const { return name_; }

  // Sends |line| and returns the next line of at most kMaxLineLen bytes, without its line break. Throws SessionError,
  // naming the program and the limit, when it takes longer than |timeout|, ends, or answers with a longer line.
  std::string ask(std::string_view line, std::chrono::seconds timeout);

 private:
  void show_errors();

  std::string name_;
  pid_t guard_ = -1;  // the first process of the group, which ends the others
  Fd alive_;          // the guard sees its end when this process is gone
  Fd in_;
  Fd out_;
  Fd errors_;
  LineBuffer lines_;
  LineBuffer error_lines_;
  size_t errors_room_ = size_t{1} << 20;
};

// |program| in this program's own folder when there is one, or else its bare name, to be looked for in PATH.
std::string beside_this_program(const std::string& program);

}  // namespace common

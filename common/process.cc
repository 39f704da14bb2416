#include "common/process.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "common/file.h"
#include "common/outcome.h"

namespace common {
namespace {

struct Pipe {
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw SessionError(fmt::format("no pipe: {}", std::strerror(errno)));
    reading = Fd(ends[0]);
    writing = Fd(ends[1]);
  }
  Fd reading;
  Fd writing;
};

struct Pipes {
  Pipe in, out, errors;
  Pipe alive;  // ends with this process
};

[[noreturn]] void become_command(char* const* arguments, const Pipes& pipes) {
  static_cast<void>(::signal(SIGPIPE, SIG_DFL));
  ::dup2(pipes.in.reading.get(), STDIN_FILENO);
  ::dup2(pipes.out.writing.get(), STDOUT_FILENO);
  ::dup2(pipes.errors.writing.get(), STDERR_FILENO);
  ::execvp(arguments[0], arguments);
  ::dprintf(STDERR_FILENO, "%s cannot be started: %s\n", arguments[0], std::strerror(errno));
  ::_exit(127);
}

bool ends_in_time(pid_t id) {
  constexpr int kGraceMs = 500;
  for (int waited = 0; waited < kGraceMs && ::waitpid(id, nullptr, WNOHANG) == 0; ++waited) ::usleep(1000);
  return ::waitpid(id, nullptr, WNOHANG) != 0;
}

// The guard leads the group and outlives the program that started it, also one that is killed. Returns its id.
pid_t start_guard(char* const* arguments, Pipes& pipes) {
  const pid_t guard = ::fork();
  if (guard != 0) return guard;
  pipes.alive.writing = Fd();
  ::setpgid(0, 0);
  const pid_t command = ::fork();
  if (command == 0) become_command(arguments, pipes);

  // The signals for the group are not for itself, and whatever it inherited must not stay open.
  sigset_t signals;
  ::sigfillset(&signals);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  ::dup2(pipes.alive.reading.get(), 0);
  ::close_range(1, ~0U, 0);
  char byte = 0;
  static_cast<void>(::read(0, &byte, 1) < 0);
  if (!ends_in_time(command)) {
    ::kill(0, SIGTERM);
    ends_in_time(command);
  }
  ::kill(0, SIGKILL);
  ::_exit(0);
}

}  // namespace

Process::Process(std::string name, std::vector<std::string> command) : name_(std::move(name)) {
  std::vector<char*> arguments(command.size() + 1, nullptr);
  std::transform(command.begin(), command.end(), arguments.begin(), [](std::string& word) { return word.data(); });

  static_cast<void>(::signal(SIGPIPE, SIG_IGN));
  Pipes pipes;
  guard_ = start_guard(arguments.data(), pipes);
  if (guard_ < 0) throw SessionError(fmt::format("{}: cannot be started: {}", name_, std::strerror(errno)));
  in_ = std::move(pipes.in.writing);
  out_ = std::move(pipes.out.reading);
  errors_ = std::move(pipes.errors.reading);
  alive_ = std::move(pipes.alive.writing);
  for (const Fd* fd : {&in_, &errors_}) ::fcntl(fd->get(), F_SETFL, O_NONBLOCK);
}

Process::~Process() {
  in_ = Fd();
  out_ = Fd();
  alive_ = Fd();
  while (::waitpid(guard_, nullptr, 0) < 0 && errno == EINTR) {
  }
  // The end of the group; a process that left it may go on writing.
  constexpr int kMaxReads = 64;  // more than a pipe holds
  for (int reads = 0; errors_ && reads < kMaxReads; ++reads) show_errors();
}

std::string Process::ask(std::string_view line, std::chrono::seconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  const std::string request = fmt::format("{}\n", line);
  // The pipe of a program that reads has room for a line. What any other does not take, it does not answer.
  static_cast<void>(::write(in_.get(), request.data(), request.size()) < 0);

  std::string answer;
  std::string bytes;
  while (!lines_.take(answer)) {
    answer = lines_.unfinished();
    if (answer.size() > kMaxLineLen + 1) break;  // its end may never come
    pollfd wanted[] = {{out_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}};
    if (!wait_for(wanted, deadline)) {
      throw SessionError(fmt::format("{}: no answer within {} seconds", name_, timeout.count()));
    }
    if (wanted[1].revents != 0) show_errors();
    if (wanted[0].revents == 0) continue;
    if (!read_some(out_.get(), bytes) || bytes.empty()) throw SessionError(name_ + ": it ended before it answered");
    lines_.add(bytes);
  }
  if (answer.size() <= kMaxLineLen) return answer;
  throw SessionError(fmt::format("{}: an answer is longer than the {} bytes that are accepted", name_, kMaxLineLen));
}

void Process::show_errors() {
  std::string text;
  if (!read_some(errors_.get(), text) || text.empty()) {
    errors_ = Fd();
    if (!error_lines_.unfinished().empty()) text = "\n";
  }
  if (errors_room_ == 0) return;  // read, so that the program does not wait, and dropped
  errors_room_ -= std::min(errors_room_, text.size());
  if (errors_room_ == 0) text += "\nfurther messages are dropped\n";
  error_lines_.add(text);
  for (std::string line; error_lines_.take(line);) complain(name_, line);
}

std::string beside_this_program(const std::string& program) {
  std::error_code none;
  const std::string path = std::filesystem::read_symlink("/proc/self/exe", none).replace_filename(program);
  return ::access(path.c_str(), X_OK) == 0 ? path : program;
}

}  // namespace common

#include "common/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "common/outcome.h"

namespace common {
namespace {

using Clock = std::chrono::steady_clock;

constexpr timespec kGrace = {0, 500000000};

struct Pipe {
  explicit Pipe(const std::string& name) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw SessionError(name + ": no pipe: " + std::strerror(errno));
    reading.reset(ends[0]);
    writing.reset(ends[1]);
  }
  Fd reading;
  Fd writing;
};

struct Pipes {
  explicit Pipes(const std::string& name) : in(name), out(name), alive(name), error(name) {}
  Pipe in, out;
  Pipe alive;  // ends with this process
  Pipe error;  // ends without a word once the command runs
};

// Between fork and exec only what is safe there is called.

[[noreturn]] void become_command(char* const* arguments, const Pipes& pipes) {
  static_cast<void>(::signal(SIGPIPE, SIG_DFL));
  if (::dup2(pipes.in.reading.get(), STDIN_FILENO) >= 0 && ::dup2(pipes.out.writing.get(), STDOUT_FILENO) >= 0) {
    ::execvp(arguments[0], arguments);
  }
  const int error = errno;
  const bool is_reported = ::write(pipes.error.writing.get(), &error, sizeof error) > 0;
  ::_exit(is_reported ? 1 : 2);
}

bool ends_in_time(pid_t id, const sigset_t& blocked) {
  if (::waitpid(id, nullptr, WNOHANG) != 0) return true;
  ::sigtimedwait(&blocked, nullptr, &kGrace);
  return ::waitpid(id, nullptr, WNOHANG) != 0;
}

// The guard leads the group and outlives the program that started it, also one that is killed.
[[noreturn]] void guard_command(char* const* arguments, Pipes& pipes) {
  pipes.alive.writing.reset();
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
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGCHLD);
  if (!ends_in_time(command, signals)) {
    ::kill(0, SIGTERM);
    ends_in_time(command, signals);
  }
  ::kill(0, SIGKILL);
  ::_exit(0);
}

bool is_ready(int fd, short events, Clock::time_point deadline) {
  pollfd wanted = {fd, events, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const int count = ::poll(&wanted, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
    if (count >= 0 || errno != EINTR) return count > 0;
  }
}

// False when the deadline has passed. What a program that has ended no longer reads is lost; the end of its answers
// shows that.
bool send(int fd, std::string_view text, Clock::time_point deadline) {
  while (!text.empty()) {
    const ssize_t count = ::write(fd, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      return true;
    } else if (!is_ready(fd, POLLOUT, deadline)) {
      return false;
    }
  }
  return true;
}

}  // namespace

// The constructor that this one begins with leaves the cleaning up to the destructor, also when start() throws.
Process::Process(std::string name, const std::vector<std::string>& command) : Process(std::move(name)) {
  start(command);
}

void Process::start(const std::vector<std::string>& command) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments(words.size() + 1, nullptr);
  std::transform(words.begin(), words.end(), arguments.begin(), [](std::string& word) { return word.data(); });

  static_cast<void>(::signal(SIGPIPE, SIG_IGN));
  Pipes pipes(name_);
  guard_ = ::fork();
  if (guard_ < 0) throw SessionError(name_ + ": cannot be started: " + std::strerror(errno));
  if (guard_ == 0) guard_command(arguments.data(), pipes);
  in_ = std::move(pipes.in.writing);
  out_ = std::move(pipes.out.reading);
  alive_ = std::move(pipes.alive.writing);
  ::fcntl(in_.get(), F_SETFL, O_NONBLOCK);

  pipes.error.writing.reset();
  int error = 0;
  if (::read(pipes.error.reading.get(), &error, sizeof error) <= 0) return;
  throw SessionError(name_ + ": " + command.front() + " cannot be started: " + std::strerror(error));
}

Process::~Process() {
  in_.reset();
  out_.reset();
  alive_.reset();
  while (guard_ > 0 && ::waitpid(guard_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

std::string Process::ask(std::string_view line, std::chrono::seconds timeout) {
  const Clock::time_point deadline = Clock::now() + timeout;
  const std::string late = name_ + ": no answer within " + std::to_string(timeout.count()) + " seconds";
  if (!send(in_.get(), std::string(line) + "\n", deadline)) throw SessionError(late);

  std::string answer;
  LineBuffer::Next next = lines_.take(answer);
  for (; next == LineBuffer::Next::kNone; next = lines_.take(answer)) {
    if (!is_ready(out_.get(), POLLIN, deadline)) throw SessionError(late);
    char bytes[4096];
    const ssize_t count = ::read(out_.get(), bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) throw SessionError(name_ + ": it ended before it answered");
    lines_.add({bytes, static_cast<size_t>(count)});
  }
  if (next == LineBuffer::Next::kLine) return answer;
  throw SessionError(name_ + ": an answer is longer than the " + std::to_string(kMaxLineLen) +
                     " bytes that are accepted");
}

std::string beside_this_program(const std::string& program) {
  std::error_code error;
  const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  const std::string path = here / program;
  return !error && ::access(path.c_str(), X_OK) == 0 ? path : program;
}

}  // namespace common

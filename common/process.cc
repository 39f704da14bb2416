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

// What the forked processes work with. Between fork and exec they call only what is safe there.
struct Start {
  char* const* arguments;
  int in, out, alive, error;
};

[[noreturn]] void report_failure(int pipe) {
  const int error = errno;
  const ssize_t ignored = ::write(pipe, &error, sizeof error);
  ::_exit(static_cast<int>(ignored > 0));
}

[[noreturn]] void become_command(const Start& start) {
  ::signal(SIGPIPE, SIG_DFL);
  if (::dup2(start.in, STDIN_FILENO) >= 0 && ::dup2(start.out, STDOUT_FILENO) >= 0) {
    ::execvp(start.arguments[0], start.arguments);
  }
  report_failure(start.error);
}

// SIGCHLD is blocked.
bool ends_in_time(pid_t id) {
  if (::waitpid(id, nullptr, WNOHANG) != 0) return true;
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGCHLD);
  ::sigtimedwait(&signals, nullptr, &kGrace);
  return ::waitpid(id, nullptr, WNOHANG) != 0;
}

// The guard leads the group and outlives the program that started it, also one that is killed. That program alone holds
// the other end of |start.alive|.
[[noreturn]] void guard_command(const Start& start) {
  ::setpgid(0, 0);
  const pid_t command = ::fork();
  if (command < 0) report_failure(start.error);
  if (command == 0) become_command(start);

  // Whatever else it inherited, it must not keep open. The signal for the group is not for itself.
  sigset_t signals;
  ::sigfillset(&signals);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  ::dup2(start.alive, 0);
  ::close_range(1, ~0U, 0);
  char byte = 0;
  while (::read(0, &byte, 1) < 0 && errno == EINTR) {
  }
  if (!ends_in_time(command)) {
    ::kill(0, SIGTERM);
    ends_in_time(command);
  }
  ::kill(0, SIGKILL);
  ::_exit(0);
}

int milliseconds_until(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::max<decltype(left)>(left, 0));
}

bool is_ready(int fd, short events, Clock::time_point deadline) {
  pollfd wanted = {fd, events, 0};
  int count = -1;
  do count = ::poll(&wanted, 1, milliseconds_until(deadline));
  while (count < 0 && errno == EINTR);
  return count > 0;
}

// False when the deadline has passed. What a program that has ended no longer reads is lost; the end of its answers
// shows that.
bool send(int fd, std::string_view text, Clock::time_point deadline) {
  while (!text.empty()) {
    const ssize_t count = ::write(fd, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
    } else if (errno != EAGAIN) {
      return true;
    } else if (!is_ready(fd, POLLOUT, deadline)) {
      return false;
    }
  }
  return true;
}

}  // namespace

Process::Process(std::string name, const std::vector<std::string>& command) : name_(std::move(name)) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  ::signal(SIGPIPE, SIG_IGN);
  Pipe to(name_);
  Pipe from(name_);
  Pipe alive(name_);
  Pipe error(name_);
  guard_ = ::fork();
  if (guard_ < 0) throw SessionError(name_ + ": cannot be started: " + std::strerror(errno));
  if (guard_ == 0) {
    alive.writing.reset();
    guard_command({arguments.data(), to.reading.get(), from.writing.get(), alive.reading.get(), error.writing.get()});
  }
  alive_ = std::move(alive.writing);
  in_ = std::move(to.writing);
  out_ = std::move(from.reading);
  ::fcntl(in_.get(), F_SETFL, O_NONBLOCK);

  // Ends without a word once the command runs.
  error.writing.reset();
  int failure = 0;
  if (::read(error.reading.get(), &failure, sizeof failure) <= 0) return;
  alive_.reset();
  ::waitpid(guard_, nullptr, 0);
  throw SessionError(name_ + ": " + words.front() + " cannot be started: " + std::strerror(failure));
}

Process::~Process() {
  in_.reset();
  out_.reset();
  alive_.reset();
  while (::waitpid(guard_, nullptr, 0) < 0 && errno == EINTR) {
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

#include "kelctl/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "kelctl/outcome.h"

extern char** environ;

namespace kelctl {
namespace {

struct Pipe {
  Pipe() {
    if (::pipe2(ends, O_CLOEXEC) != 0) throw Error(std::string("no pipe: ") + std::strerror(errno));
  }
  int ends[2];
  int reading() const { return ends[0]; }
  int writing() const { return ends[1]; }
};

}  // namespace

Process::Process(const std::vector<std::string>& command) {
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  const Pipe to, from;
  posix_spawn_file_actions_t streams;
  ::posix_spawn_file_actions_init(&streams);
  ::posix_spawn_file_actions_adddup2(&streams, to.reading(), STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&streams, from.writing(), STDOUT_FILENO);
  // A program that ends early must not end this one; the program itself gets the signal back as usual.
  ::signal(SIGPIPE, SIG_IGN);
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGPIPE);
  ::posix_spawnattr_setsigdefault(&attributes, &signals);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error = ::posix_spawnp(&id_, arguments[0], &streams, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&streams);
  ::close(to.reading());
  ::close(from.writing());
  in_ = ::fdopen(to.writing(), "w");
  out_ = ::fdopen(from.reading(), "r");
  if (error == 0 && in_ != nullptr && out_ != nullptr) return;
  const std::string reason = std::strerror(error);
  end_input();
  if (out_ != nullptr) std::fclose(out_);
  throw Error(command.front() + ": cannot be started: " + reason);
}

Process::~Process() {
  end_input();
  std::fclose(out_);
  wait();
}

void Process::write(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), in_);
  std::fflush(in_);
}

void Process::end_input() {
  if (in_ != nullptr) std::fclose(in_);
  in_ = nullptr;
}

std::optional<std::string> Process::read_line() {
  char* line = nullptr;
  size_t capacity = 0;
  const ssize_t len = ::getline(&line, &capacity, out_);
  std::optional<std::string> text;
  if (len >= 0) text.emplace(line, static_cast<size_t>(len));
  std::free(line);
  while (text && (text->ends_with('\n') || text->ends_with('\r'))) text->pop_back();
  return text;
}

std::string Process::read_rest() {
  std::string text;
  char buffer[512];
  for (size_t len = 0; (len = std::fread(buffer, 1, sizeof buffer, out_)) > 0;) text.append(buffer, len);
  return text;
}

int Process::wait() {
  if (id_ < 0) return 0;
  int status = 0;
  while (::waitpid(id_, &status, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace kelctl

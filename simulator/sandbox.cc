#include "simulator/sandbox.h"

#include <fcntl.h>
#include <glob.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <stdexcept>

#include "simulator/phone.h"

namespace phone {
namespace {

namespace fs = std::filesystem;

// The options of bubblewrap, which does them in their order, in the form of its --args: each ends in a NUL.
class Options {
 public:
  explicit Options(const fs::path& root) : root_(root) {}

  void add(std::initializer_list<std::string> more) {
    for (const std::string& option : more) text_.append(option).push_back('\0');
  }

  // bubblewrap does not make a link that is there already, from an earlier run or by hand.
  void add_link(const std::string& path, const std::string& target) {
    const bool exists = !root_.empty() && fs::exists(fs::symlink_status(root_ / fs::path(path).relative_path()));
    if (!exists) add({"--symlink", target, path});
  }

  const std::string& text() const { return text_; }

 private:
  const fs::path& root_;
  std::string text_;
};

bool is_below(const fs::path& path, const fs::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

fs::path first_component(const fs::path& absolute) {
  const fs::path relative = absolute.relative_path();
  return relative.empty() ? fs::path() : *relative.begin();
}

// Inside the phone's own folders, making the phone anew would empty what is shown there.
bool can_show(const fs::path& path) {
  const std::string first = first_component(path).string();
  return !first.empty() && std::find(kOwnFolders.begin(), kOwnFolders.end(), first) == kOwnFolders.end();
}

void add_system(Options& options) {
  options.add({"--ro-bind", "/usr", "/usr", "--dir", "/etc"});
  for (const char* path : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"}) {
    if (fs::is_symlink(path))
      options.add_link(path, fs::read_symlink(path).string());
    else if (fs::is_directory(path))
      options.add({"--ro-bind", path, path});
  }
  for (const char* path : {"/etc/ld.so.cache", "/etc/alternatives", "/etc/localtime"}) {
    options.add({"--ro-bind-try", path, path});
  }
}

// The phone has its own /proc and /dev, with links to those of the real ones that programs and sanitizers need.
void add_kernel(Options& options, const Run& request) {
  options.add({"--tmpfs", "/run", "--proc", "/run/proc", "--dev", "/run/dev", "--dir", "/proc"});
  for (const std::string name : {"self", "thread-self", "meminfo", "cpuinfo", "sys"}) {
    options.add_link("/proc/" + name, "/run/proc/" + name);
  }
  // The leak check looks for its process by number; a test may start hundreds.
  for (int number = 1; number <= 999; number++) {
    options.add_link("/proc/" + std::to_string(number), "/run/proc/" + std::to_string(number));
  }
  if (!request.root.empty()) return;
  for (const std::string name : kDevices) options.add_link("/dev/" + name, "/run/dev/" + name);
}

fs::path folder_of_command(const std::string& command) {
  if (command.find('/') != std::string::npos) return fs::absolute(command).lexically_normal().parent_path();
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (::access((fs::path(folder) / command).c_str(), X_OK) == 0) return fs::absolute(folder).lexically_normal();
  }
  return {};
}

void add_binds(Options& options, const Run& request) {
  for (const fs::path& folder : {fs::read_symlink("/proc/self/exe").parent_path(),
                                 folder_of_command(request.command.front()), fs::current_path()}) {
    const bool shown_already = is_below(fs::weakly_canonical(folder), "/usr");
    if (!shown_already && can_show(folder)) options.add({"--bind-try", folder.string(), folder.string()});
  }
  for (const fs::path& bind : request.binds) {
    const std::string path = fs::absolute(bind).lexically_normal().string();
    if (!fs::exists(path)) throw std::runtime_error("--bind " + path + ": there is no such file or folder");
    if (!can_show(path)) throw std::runtime_error("--bind " + path + ": the phone has its own files there");
    options.add({"--bind", path, path});
  }
}

std::string find_libfaketime() {
  glob_t found = {};
  const int failed = ::glob("/usr/lib*{,/*}/faketime/libfaketime.so.1", GLOB_BRACE, nullptr, &found);
  const std::string path = failed ? "" : found.gl_pathv[0];
  ::globfree(&found);
  if (path.empty()) throw std::runtime_error("--clock needs faketime, not installed here: apt-get install faketime");
  return path;
}

void add_clock(Options& options, const std::string& clock) {
  std::string preload = find_libfaketime();
  if (const char* others = std::getenv("LD_PRELOAD")) preload.append(":").append(others);
  // Without these, the sanitizers insist on being first and faketime on shared memory, which a phone may lack.
  const char* sanitizer = std::getenv("ASAN_OPTIONS");
  const std::string sanitizer_options = std::string(sanitizer ? sanitizer : "") + ":verify_asan_link_order=0";
  options.add({"--setenv", "LD_PRELOAD", preload, "--setenv", "FAKETIME", clock});
  options.add({"--setenv", "FAKETIME_DISABLE_SHM", "1", "--setenv", "ASAN_OPTIONS", sanitizer_options});
}

std::string options_for(const Run& request) {
  Options options(request.root);
  options.add({"--die-with-parent", "--unshare-pid"});
  if (::geteuid() != 0) {
    options.add({"--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "CAP_DAC_OVERRIDE"});
  }
  if (request.root.empty())
    options.add({"--tmpfs", "/"});
  else
    options.add({"--bind", fs::absolute(request.root).string(), "/"});
  add_system(options);
  add_kernel(options, request);
  options.add({"--tmpfs", "/tmp"});
  add_binds(options, request);
  if (!request.clock.empty()) add_clock(options, request.clock);
  return options.text();
}

// Ends with bubblewrap, which alone holds the other end.
std::string read_all(int fd) {
  std::string text;
  char buffer[512];
  for (ssize_t len = 0; (len = ::read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(len));
  return text;
}

[[noreturn]] void fail(const char* what, int error) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(error));
}

// A file in memory, which children inherit.
int file_with(const std::string& content) {
  const int fd = ::memfd_create("options", 0);
  if (fd < 0 || ::pwrite(fd, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
    fail("cannot hand over the options of bubblewrap", errno);
  }
  return fd;
}

pid_t spawn(const Run& request, int status_fd) {
  const int options_fd = file_with(options_for(request));
  std::vector<std::string> words = {"bwrap",  "--json-status-fd",         std::to_string(status_fd),
                                    "--args", std::to_string(options_fd), "--"};
  words.insert(words.end(), request.command.begin(), request.command.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  pid_t child = -1;
  const int error = ::posix_spawnp(&child, "bwrap", nullptr, nullptr, arguments.data(), environ);
  ::close(options_fd);
  if (error == ENOENT) throw std::runtime_error("bubblewrap is not installed: apt-get install bubblewrap");
  if (error != 0) fail("cannot start bubblewrap", error);
  return child;
}

// What on this machine is known to keep a sandbox from being made.
std::string advice() {
  struct Switch {
    const char* file;
    int forbids;
  };
  constexpr Switch kSwitches[] = {{"/proc/sys/kernel/unprivileged_userns_clone", 0},
                                  {"/proc/sys/user/max_user_namespaces", 0},
                                  {"/proc/sys/kernel/apparmor_restrict_unprivileged_userns", 1}};
  std::string text = "the command was not started, for the reason above.";
  for (const Switch& known : kSwitches) {
    int value = -1;
    std::ifstream(known.file) >> value;
    if (value == known.forbids)
      text += std::string("\nOrdinary users get no sandbox while ") + known.file + " holds " + std::to_string(value) +
              ": run this as root, or have it changed.";
  }
  return text +
         "\nWhen a namespace or a mount is not permitted: in a container, start the container with "
         "\"--privileged\"; elsewhere, run this as root.";
}

}  // namespace

int run(const Run& request) {
  if (!request.root.empty() && !fs::is_directory(request.root / "system")) {
    throw std::runtime_error(request.root.string() + " is no phone (no system folder): make one with \"phone make\"");
  }
  int status_pipe[2];
  if (::pipe(status_pipe) != 0 || ::fcntl(status_pipe[0], F_SETFD, FD_CLOEXEC) != 0) fail("no pipe", errno);
  const pid_t child = spawn(request, status_pipe[1]);
  ::close(status_pipe[1]);

  // Ctrl-C is for the command; what it does with it is then what this program returns.
  std::signal(SIGINT, SIG_IGN);
  std::signal(SIGQUIT, SIG_IGN);
  const std::string status = read_all(status_pipe[0]);
  ::close(status_pipe[0]);
  int result = 0;
  while (::waitpid(child, &result, 0) < 0 && errno == EINTR) {
  }

  // bubblewrap's own failures have no code of their own; that a command ended is told by the status alone.
  if (status.find("\"exit-code\"") == std::string::npos) throw std::runtime_error(advice());
  return WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
}

}  // namespace phone

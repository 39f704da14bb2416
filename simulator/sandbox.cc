#include "simulator/sandbox.h"

#include <fcntl.h>
#include <glob.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "common/fd.h"
#include "simulator/phone.h"

namespace phone {
namespace {

namespace fs = std::filesystem;
using common::Fd;

// What programs of a phone use: access whatever the rights say, change owners and rights, become another user, and end
// other users' processes.
constexpr const char* kOverride = "CAP_DAC_OVERRIDE";
constexpr std::array kCapabilities = {"CAP_CHOWN", "CAP_FOWNER", "CAP_KILL", "CAP_SETGID", "CAP_SETUID"};

// Options of bubblewrap, which processes them in order, in the form of its --args: each ends in a NUL. bubblewrap makes
// what it mounts on, and would follow a link in the phone out of it: no destination may lead through one.
class BwrapOptions {
 public:
  explicit BwrapOptions(const std::optional<fs::path>& root) {
    if (root) phone_.emplace(open(*root));
  }

  void add(std::initializer_list<std::string> words) {
    for (const std::string& option : words) text_.append(option).push_back('\0');
  }

  void add_root() {
    if (phone_)
      add({"--bind", fs::absolute(phone_->root()).string(), "/"});
    else
      add({"--tmpfs", "/"});
  }

  // A mount without a source, such as --tmpfs.
  void add_mount(const char* kind, const std::string& destination) {
    require_no_links(destination);
    add({kind, destination});
  }

  // |kind| of bind, from this machine's |path| to the same path inside.
  void add_bind(const char* kind, const std::string& path) {
    require_no_links(path);
    add_parents(path);
    add({kind, path, path});
  }

  // bubblewrap fails on a link that exists already, from an earlier run or made by hand.
  void add_link(const fs::path& path, const std::string& target) {
    require_no_links(path.parent_path());
    const bool exists = phone_ && fs::exists(fs::symlink_status(phone_->root() / path.relative_path()));
    if (!exists) add({"--symlink", target, path.string()});
  }

  [[nodiscard]] bool is_scratch() const { return !phone_; }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  // Every user of the phone may go through them; bubblewrap's own choice is root alone.
  void add_parents(const fs::path& path) {
    fs::path parent = "/";
    for (const fs::path& name : path.parent_path().relative_path()) {
      parent /= name;
      add({"--perms", "0755", "--dir", parent.string()});
    }
  }

  void require_no_links(const fs::path& destination) const {
    if (phone_) phone_->require_no_links(destination.relative_path());
  }

  std::optional<FileTree> phone_;
  std::string text_;
};

bool is_below(const fs::path& path, const fs::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

fs::path first_component(const fs::path& absolute) {
  const fs::path relative = absolute.relative_path();
  return relative.empty() ? fs::path() : *relative.begin();
}

// Not inside the phone's own folders: "phone make" would empty what is shown there.
bool can_show(const fs::path& path) {
  const std::string first = first_component(path).string();
  return !first.empty() && std::find(kOwnFolders.begin(), kOwnFolders.end(), first) == kOwnFolders.end();
}

void add_user(BwrapOptions& options, const Run& request) {
  if (::geteuid() != 0) options.add({"--unshare-user", "--uid", "0", "--gid", "0"});
  options.add({"--cap-drop", "ALL"});
  for (const char* capability : kCapabilities) options.add({"--cap-add", capability});
  if (request.has_override) options.add({"--cap-add", kOverride});
}

void add_system(BwrapOptions& options) {
  options.add_bind("--ro-bind", "/usr");
  options.add_mount("--dir", "/etc");
  for (const char* path : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"}) {
    if (fs::is_symlink(path))
      options.add_link(path, fs::read_symlink(path).string());
    else if (fs::is_directory(path))
      options.add_bind("--ro-bind", path);
  }
  for (const char* path : {"/etc/ld.so.cache", "/etc/alternatives", "/etc/localtime"}) {
    options.add_bind("--ro-bind-try", path);
  }
}

// The phone has its own /proc and /dev, with links to the real entries that programs and sanitizers need.
void add_kernel(BwrapOptions& options, bool has_devices) {
  options.add_mount("--tmpfs", "/run");
  options.add({"--proc", "/run/proc", "--dev", "/run/dev"});
  options.add_mount("--dir", "/proc");
  for (const std::string name : {"self", "thread-self", "meminfo", "cpuinfo", "sys"}) {
    options.add_link("/proc/" + name, "/run/proc/" + name);
  }
  // The leak sanitizer looks up its process by number; a test may start hundreds. Each takes time on a disk.
  const int last = options.is_scratch() ? 999 : 30;
  for (int number = 1; number <= last; number++) {
    options.add_link("/proc/" + std::to_string(number), "/run/proc/" + std::to_string(number));
  }
  if (has_devices) return;
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

fs::path lib_beside(const fs::path& folder) {
  return folder.parent_path() / "lib";
}

// Shown when it exists, and is not shown already.
void add_folder(BwrapOptions& options, const fs::path& folder) {
  if (!folder.is_absolute() || !fs::is_directory(folder) || !can_show(folder)) return;
  if (!is_below(fs::canonical(folder), "/usr")) options.add_bind("--bind", folder.string());
}

void add_binds(BwrapOptions& options, const Run& request) {
  for (const fs::path& folder :
       {fs::read_symlink("/proc/self/exe").parent_path(), folder_of_command(request.command.front())}) {
    add_folder(options, folder);
    add_folder(options, lib_beside(folder));
  }
  add_folder(options, fs::current_path());
  for (const fs::path& bind : request.binds) {
    const std::string path = fs::absolute(bind).lexically_normal().string();
    if (!fs::exists(path)) throw std::runtime_error("--bind " + path + ": no such file or folder");
    if (!can_show(path)) throw std::runtime_error("--bind " + path + ": the phone has its own files there");
    options.add_bind("--bind", path);
  }
}

std::string find_libfaketime() {
  glob_t found = {};
  const int failed = ::glob("/usr/lib*{,/*}/faketime/libfaketime.so.1", GLOB_BRACE, nullptr, &found);
  std::string path = failed != 0 ? "" : found.gl_pathv[0];
  ::globfree(&found);
  if (path.empty())
    throw std::runtime_error("--clock needs faketime, which is not installed: apt-get install faketime");
  return path;
}

void add_clock(BwrapOptions& options, const std::string& clock) {
  std::string preload = find_libfaketime();
  if (const char* others = std::getenv("LD_PRELOAD")) preload.append(":").append(others);
  // Otherwise sanitizers insist on being loaded first, and faketime needs shared memory, which a phone may lack.
  const char* sanitizer = std::getenv("ASAN_OPTIONS");
  const std::string sanitizer_options = std::string(sanitizer ? sanitizer : "") + ":verify_asan_link_order=0";
  options.add({"--setenv", "LD_PRELOAD", preload, "--setenv", "FAKETIME", clock});
  options.add({"--setenv", "FAKETIME_DISABLE_SHM", "1", "--setenv", "ASAN_OPTIONS", sanitizer_options});
}

std::string options_for(const Run& request) {
  BwrapOptions options(request.root);
  options.add({"--die-with-parent", "--unshare-pid"});
  add_user(options, request);
  options.add_root();
  add_system(options);
  add_kernel(options, request.root.has_value());
  options.add({"--perms", "1777"});
  options.add_mount("--tmpfs", "/tmp");
  add_binds(options, request);
  if (!request.clock.empty()) add_clock(options, request.clock);
  return options.text();
}

[[noreturn]] void throw_errno(const char* action, int error) {
  throw std::runtime_error(std::string(action) + ": " + std::strerror(error));
}

struct Pipe {
  Fd read_end, write_end;
};

// Children inherit the write end only.
Pipe make_status_pipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw_errno("cannot make a pipe", errno);
  Pipe pipe = {Fd(ends[0]), Fd(ends[1])};
  if (::fcntl(pipe.write_end.get(), F_SETFD, 0) != 0) throw_errno("cannot pass a pipe on", errno);
  return pipe;
}

// Until bubblewrap, which alone holds the other end, exits.
std::string read_all(const Fd& pipe) {
  constexpr size_t kMaxLen = 65536;  // some lines of JSON
  std::string text;
  char buffer[512];
  for (ssize_t len = 0; (len = ::read(pipe.get(), buffer, sizeof buffer)) > 0;) {
    if (text.size() < kMaxLen) text.append(buffer, static_cast<size_t>(len));
  }
  return text;
}

// A file in memory that children inherit, read from its start.
Fd make_memory_file(const std::string& content) {
  Fd file(::memfd_create("options", 0));
  if (!file || ::pwrite(file.get(), content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
    throw_errno("cannot pass options to bubblewrap", errno);
  }
  return file;
}

pid_t spawn(const Run& request, const Fd& status_pipe) {
  const Fd options = make_memory_file(options_for(request));
  std::vector<std::string> words = {
      "bwrap", "--json-status-fd", std::to_string(status_pipe.get()), "--args", std::to_string(options.get()), "--"};
  words.insert(words.end(), request.command.begin(), request.command.end());
  std::vector<char*> arguments(words.size() + 1, nullptr);
  std::transform(words.begin(), words.end(), arguments.begin(), [](std::string& word) { return word.data(); });

  pid_t child = -1;
  const int error = ::posix_spawnp(&child, "bwrap", nullptr, nullptr, arguments.data(), environ);
  if (error == ENOENT) throw std::runtime_error("bubblewrap is not installed: apt-get install bubblewrap");
  if (error != 0) throw_errno("cannot start bubblewrap", error);
  return child;
}

// Why this machine may not allow a sandbox.
std::string explain_failure() {
  struct KernelSwitch {
    const char* file;
    int forbids;
  };
  constexpr KernelSwitch kSwitches[] = {{"/proc/sys/kernel/unprivileged_userns_clone", 0},
                                        {"/proc/sys/user/max_user_namespaces", 0},
                                        {"/proc/sys/kernel/apparmor_restrict_unprivileged_userns", 1}};
  std::string text = "the command was not started, for the reason above";
  for (const KernelSwitch& known : kSwitches) {
    int value = -1;
    std::ifstream(known.file) >> value;
    if (value != known.forbids) continue;
    text.append("; ordinary users get no sandbox while ").append(known.file).append(" holds ");
    text.append(std::to_string(value)).append(": run this as root, or have it changed");
  }
  return text +
         "; when a namespace or a mount is not permitted: in a container, start the container with \"--privileged\", "
         "elsewhere run this as root";
}

int wait_for(pid_t child) {
  int result = 0;
  while (::waitpid(child, &result, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
}

}  // namespace

int run(const Run& request) {
  Pipe status_pipe = make_status_pipe();
  const pid_t child = spawn(request, status_pipe.write_end);
  status_pipe.write_end = Fd();

  // Ctrl-C is for the command: this program returns what the command makes of it.
  static_cast<void>(std::signal(SIGINT, SIG_IGN));
  static_cast<void>(std::signal(SIGQUIT, SIG_IGN));
  const std::string status = read_all(status_pipe.read_end);
  const int code = wait_for(child);

  // bubblewrap's own failures have no exit code of their own: only the status shows whether the command ran.
  if (status.find("\"exit-code\"") == std::string::npos) throw std::runtime_error(explain_failure());
  return code;
}

}  // namespace phone

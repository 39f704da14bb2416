#include "simulator/file_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace phone {
namespace {

namespace fs = std::filesystem;
using common::Fd;

constexpr mode_t kFileMode = 0644;  // also under a strict umask: a phone's programs run as different users
constexpr mode_t kFolderMode = 0755;

[[noreturn]] void fail(const std::string& action, const fs::path& path, int error) {
  throw std::runtime_error("cannot " + action + " " + path.string() + ": " + std::strerror(error));
}

bool is_link(const Fd& parent, const fs::path& name) {
  struct stat status = {};
  return ::fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}

bool is_folder(const Fd& parent, const fs::path& name) {
  struct stat status = {};
  return ::fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

Fd open_entry(const Fd& parent, const fs::path& name, int flags) {
  return Fd(::openat(parent.get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC));
}

// |path| is for messages.
Fd open_subfolder(const Fd& parent, const fs::path& name, int flags, const fs::path& path) {
  Fd folder = open_entry(parent, name, flags | O_DIRECTORY);
  if (folder) return folder;
  const int error = errno;
  if (is_link(parent, name)) throw std::runtime_error(path.string() + " is a link, which is not followed");
  fail("open", path, error);
}

fs::path entry_path(const Fd& folder) {
  return "/proc/self/fd/" + std::to_string(folder.get());
}

// A program in a phone may take its owner's rights away from a folder; an ordinary user needs them to remove it.
Fd open_to_empty(const Fd& parent, const fs::path& name, const fs::path& path) {
  const Fd folder = open_subfolder(parent, name, O_PATH, path);
  if (::chmod(entry_path(folder).c_str(), S_IRWXU) != 0) fail("change the rights of", path, errno);
  return open_subfolder(parent, name, O_RDONLY, path);
}

void remove_entry(const Fd& parent, const fs::path& name, const fs::path& path);

void remove_entries(const Fd& folder, const fs::path& path) {  // NOLINT(misc-no-recursion): as deep as the folders are
  std::vector<fs::path> names;
  const fs::directory_iterator entries(entry_path(folder));
  std::transform(begin(entries), end(entries), std::back_inserter(names),
                 [](const fs::directory_entry& entry) { return entry.path().filename(); });
  for (const fs::path& name : names) remove_entry(folder, name, path / name);
}

void remove_entry(const Fd& parent, const fs::path& name, const fs::path& path) {  // NOLINT(misc-no-recursion)
  const bool has_entries = is_folder(parent, name);
  if (has_entries) remove_entries(open_to_empty(parent, name, path), path);
  const int failed = ::unlinkat(parent.get(), name.c_str(), has_entries ? AT_REMOVEDIR : 0);
  if (failed != 0 && errno != ENOENT) fail("remove", path, errno);
}

bool write_all(const Fd& file, std::string_view content) {
  while (!content.empty()) {
    const ssize_t count = ::write(file.get(), content.data(), content.size());
    if (count < 0) return false;
    content.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

}  // namespace

FileTree::FileTree(const fs::path& root) : root_(root), fd_(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (!fd_) fail("open", root_, errno);
}

bool FileTree::is_empty() const {
  return fs::is_empty(entry_path(fd_));
}

Fd FileTree::open_folder(const fs::path& path) const {
  Fd folder = open_subfolder(fd_, ".", O_RDONLY, root_);
  fs::path reached = root_;
  for (const fs::path& name : path) {
    reached /= name;
    folder = open_subfolder(folder, name, O_RDONLY, reached);
  }
  return folder;
}

bool FileTree::has_file(const fs::path& path) const {
  struct stat status = {};
  return ::fstatat(open_folder(path.parent_path()).get(), path.filename().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(status.st_mode);
}

std::string FileTree::read(const fs::path& path, size_t max) const {
  const Fd file = open_entry(open_folder(path.parent_path()), path.filename(), O_RDONLY | O_NONBLOCK);
  if (!file) fail("read", root_ / path, errno);
  std::string content(max + 1, '\0');
  size_t len = 0;
  for (ssize_t count = 1; count > 0 && len <= max; len += static_cast<size_t>(count)) {
    count = ::read(file.get(), content.data() + len, content.size() - len);
    if (count < 0) fail("read", root_ / path, errno);
  }
  if (len > max) throw std::runtime_error((root_ / path).string() + " has more than " + std::to_string(max) + " bytes");
  content.resize(len);
  return content;
}

void FileTree::write(const fs::path& path, std::string_view content) const {
  make_folder(path.parent_path());
  const Fd folder = open_folder(path.parent_path());
  const std::string temporary = "." + path.filename().string() + ".new";
  if (::unlinkat(folder.get(), temporary.c_str(), 0) != 0 && errno != ENOENT) fail("write", root_ / path, errno);
  const Fd file(::openat(folder.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  if (!file || ::fchmod(file.get(), kFileMode) != 0 || !write_all(file, content) ||
      ::renameat(folder.get(), temporary.c_str(), folder.get(), path.filename().c_str()) != 0) {
    const int error = errno;
    ::unlinkat(folder.get(), temporary.c_str(), 0);
    fail("write", root_ / path, error);
  }
}

void FileTree::make_folder(const fs::path& path) const {
  Fd folder = open_subfolder(fd_, ".", O_RDONLY, root_);
  fs::path reached = root_;
  for (const fs::path& name : path) {
    reached /= name;
    const bool is_new = ::mkdirat(folder.get(), name.c_str(), kFolderMode) == 0;
    if (!is_new && errno != EEXIST) fail("make", reached, errno);
    folder = open_subfolder(folder, name, O_RDONLY, reached);
    if (is_new && ::fchmod(folder.get(), kFolderMode) != 0) fail("change the rights of", reached, errno);
  }
}

void FileTree::make_link(const fs::path& path, const fs::path& target) const {
  make_folder(path.parent_path());
  const Fd folder = open_folder(path.parent_path());
  if (::symlinkat(target.c_str(), folder.get(), path.filename().c_str()) != 0) fail("make", root_ / path, errno);
}

void FileTree::remove(const fs::path& path) const {
  remove_entry(open_folder(path.parent_path()), path.filename(), root_ / path);
}

void FileTree::remove_content(const fs::path& folder) const {
  remove_entries(open_to_empty(open_folder(folder.parent_path()), folder.filename(), root_ / folder), root_ / folder);
}

void FileTree::set_access(const fs::path& folder, uid_t user, gid_t group, mode_t mode) const {
  const Fd opened = open_folder(folder);
  // In a sandbox of an ordinary user there is only root: other owners are invalid there.
  if (::geteuid() == 0 && ::fchown(opened.get(), user, group) != 0 && errno != EINVAL) {
    fail("change the owner of", root_ / folder, errno);
  }
  if (::fchmod(opened.get(), mode) != 0) fail("change the rights of", root_ / folder, errno);
}

void FileTree::require_no_links(const fs::path& path) const {
  Fd folder = open_subfolder(fd_, ".", O_RDONLY, root_);
  fs::path reached = root_;
  for (const fs::path& name : path) {
    reached /= name;
    if (is_link(folder, name)) throw std::runtime_error(reached.string() + " is a link, which is not followed");
    if (!is_folder(folder, name)) return;
    folder = open_subfolder(folder, name, O_PATH, reached);
  }
}

}  // namespace phone

#include "tests/support/trouble.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace {

using test::Trouble;

const Trouble* trouble = nullptr;  // of the operation that runs
test::Counts counts;

std::string text_of(const char* path) {
  return path;
}
std::string text_of(int fd) {
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string();
}

// What this program calls meanwhile is not the operation's.
class Aside {
 public:
  Aside() : trouble_(std::exchange(trouble, nullptr)) {}
  ~Aside() { trouble = trouble_; }
  const Trouble* operator->() const { return trouble_; }
  bool has_watch() const { return trouble_ != nullptr && trouble_->watch != nullptr; }

 private:
  const Trouble* trouble_;
};

template <typename File>
void tell(const char* call, File file, const char* to = "") {
  const Aside aside;
  if (aside.has_watch()) aside->watch(call, text_of(file), to);
}

// Of calls and allocations, which are counted apart.
bool is_met_by(unsigned number) {
  return number == trouble->first || (trouble->lasts && number > trouble->first);
}

template <typename File>
Trouble::Kind meet(const char* call, File file, const char* to = "") {
  tell(call, file, to);
  if (trouble == nullptr || trouble->kind == Trouble::kNoMemory || !is_met_by(++counts.calls)) return Trouble::kNone;
  const bool is_write = std::string(call) == "write";
  if (trouble->kind == Trouble::kDies || (trouble->kind == Trouble::kDiesHalfway && !is_write)) ::_exit(0);
  if (counts.met.empty()) counts.met = std::string(call) + " " + text_of(file);
  errno = trouble->error;
  return trouble->kind;
}

}  // namespace

// These come before the C library's: the program's own symbols are looked up first. They have other names here, because
// its headers hold checked variants of some.
#define SYSTEM(result, name, parameters, ...)                                                                    \
  result my_##name parameters __asm__(#name);                                                                    \
  result my_##name parameters {                                                                                  \
    [[maybe_unused]] static const auto real = reinterpret_cast<result(*) parameters>(::dlsym(RTLD_NEXT, #name)); \
    __VA_ARGS__                                                                                                  \
  }
SYSTEM(int, rename, (const char* from, const char* to), return meet("rename", from, to) ? -1 : real(from, to);)
SYSTEM(int, mkdir, (const char* path, mode_t mode), return meet("mkdir", path) ? -1 : real(path, mode);)
SYSTEM(int, stat, (const char* path, struct stat* status), return meet("stat", path) ? -1 : real(path, status);)
SYSTEM(int, access, (const char* path, int mode), return meet("access", path) ? -1 : real(path, mode);)
SYSTEM(int, fstat, (int fd, struct stat* status), return meet("fstat", fd) ? -1 : real(fd, status);)
SYSTEM(int, fsync, (int fd), return meet("fsync", fd) ? -1 : real(fd);)
SYSTEM(int, ftruncate, (int fd, off_t len), return meet("ftruncate", fd) ? -1 : real(fd, len);)
SYSTEM(off_t, lseek, (int fd, off_t by, int whence), return meet("lseek", fd) ? -1 : real(fd, by, whence);)
SYSTEM(void, sync, (), meet("sync", "");)
SYSTEM(int, open, (const char* path, int flags, ...), va_list more; va_start(more, flags);
       const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0; va_end(more);
       return meet("open", path) ? -1 : real(path, flags, mode);)
SYSTEM(int, property_get, (const char* name, char* value, const char* fallback),
       if (meet("property_get", name)) return -1;
       const Aside aside; return real(name, value, fallback);)
SYSTEM(int, close, (int fd), Dl_info caller = {}; ::dladdr(__builtin_return_address(0), &caller);
       const bool is_library = std::string_view(caller.dli_fname ? caller.dli_fname : "").ends_with("/libkelchk.so");
       EXPECT_TRUE(!is_library || (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0)
       << "a program that it starts would inherit it";
       const bool fails = meet("close", fd); const int error = errno, result = real(fd); if (fails) errno = error;
       return fails ? -1 : result;)
SYSTEM(ssize_t, read, (int fd, void* out, size_t cap), const auto met = meet("read", fd);
       if (met != Trouble::kFallsShort) return met ? -1 : real(fd, out, cap); std::string all(cap, '\0');
       const ssize_t count = real(fd, all.data(), cap); if (count <= 0) return count; const Aside aside;
       ::lseek(fd, count / 2 - count, SEEK_CUR);
       return static_cast<ssize_t>(all.copy(static_cast<char*>(out), static_cast<size_t>(count / 2)));)
SYSTEM(ssize_t, write, (int fd, const void* bytes, size_t len), const auto met = meet("write", fd);
       if (met == Trouble::kFails) return -1;
       if (!met && (trouble == nullptr || !trouble->watch)) return real(fd, bytes, len);
       const ssize_t half = real(fd, bytes, len / 2); if (met == Trouble::kDiesHalfway)::_exit(0); if (met) return half;
       tell("half", fd); return half + real(fd, static_cast<const char*>(bytes) + len / 2, len - len / 2);)
// What the C library writes for these it writes unseen.
SYSTEM(int, dprintf, (int fd, const char* format, const char* line), EXPECT_STREQ(format, "%s\n");
       return static_cast<int>(my_write(fd, (line + std::string("\n")).data(), std::strlen(line) + 1));)
SYSTEM(int, __dprintf_chk, (int fd, int, const char* format, const char* line), return my_dprintf(fd, format, line);)
SYSTEM(void*, dlopen, (const char* path, int flags), const auto met = meet("dlopen", path != nullptr ? path : "");
       return met == Trouble::kFails ? nullptr : real(met ? nullptr : path, flags);)
// The crypto library takes its memory from a program that offers some.
extern "C" {
void* OPENSSL_memory_alloc(size_t size);
void OPENSSL_memory_free(void* block);
size_t OPENSSL_memory_get_size(void* block);
}
void* OPENSSL_memory_alloc(size_t size) {
  if (trouble != nullptr) ++counts.allocations;
  if (trouble != nullptr && trouble->kind == Trouble::kNoMemory && is_met_by(counts.allocations)) {
    counts.met = "allocation";
    return nullptr;
  }
  ++counts.blocks_left;
  return std::malloc(size);
}
void OPENSSL_memory_free(void* block) {
  counts.blocks_left -= block != nullptr;
  std::free(block);
}
size_t OPENSSL_memory_get_size(void* block) {
  return ::malloc_usable_size(block);
}

int test::run_with(const Trouble& with, const std::function<int()>& operation, Counts* out) {
  counts = {};
  trouble = &with;
  const int result = operation();
  trouble = nullptr;
  if (out != nullptr) *out = counts;
  return result;
}

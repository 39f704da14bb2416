#include "tests/support/fault_injection.h"

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

using test::Fault;

const Fault* current = nullptr;  // null while no operation runs
test::Counts counts;

std::string path_of(const char* path) {
  return path;
}
std::string path_of(int fd) {
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string();
}

// Turns injection off for the calls that the injection itself makes.
struct Pause {
  const Fault* const fault = std::exchange(current, nullptr);
  ~Pause() { current = fault; }
};

template <typename File>
void notify(const char* call, File file, const char* to = "") {
  const Pause pause;
  if (pause.fault != nullptr && pause.fault->watch != nullptr) pause.fault->watch(call, path_of(file), to);
}

bool hits(unsigned number) {
  return number == current->first || (current->lasts && number > current->first);
}

// Counts the call and says what happens to it.
template <typename File>
Fault::Kind meet(const std::string& call, File file, const char* to = "") {
  notify(call.c_str(), file, to);
  if (current == nullptr || current->kind == Fault::kNoMemory || !hits(++counts.calls)) return Fault::kNone;
  if (current->kind == Fault::kExits || (current->kind == Fault::kExitsHalfway && call != "write")) ::_exit(0);
  if (counts.failed.empty()) counts.failed = call + " " + path_of(file);
  errno = current->error;
  return current->kind;
}

}  // namespace

// These replace the C library's functions: the program's own symbols are looked up first. They have other names here,
// because its headers define checked variants of some.
#define REPLACE(result, name, parameters)     \
  result my_##name parameters __asm__(#name); \
  result my_##name parameters
#define REAL(name) static const auto real = reinterpret_cast<decltype(&my_##name)>(::dlsym(RTLD_NEXT, #name))
#define FAILABLE(result, name, parameters, arguments, ...) \
  REPLACE(result, name, parameters) {                      \
    REAL(name);                                            \
    return meet(#name, __VA_ARGS__) ? -1 : real arguments; \
  }
FAILABLE(int, rename, (const char* from, const char* to), (from, to), from, to)
FAILABLE(int, mkdir, (const char* path, mode_t mode), (path, mode), path)
FAILABLE(int, stat, (const char* path, struct stat* status), (path, status), path)
FAILABLE(int, access, (const char* path, int mode), (path, mode), path)
FAILABLE(int, fstat, (int fd, struct stat* status), (fd, status), fd)
FAILABLE(int, fsync, (int fd), (fd), fd)
FAILABLE(int, ftruncate, (int fd, off_t len), (fd, len), fd)
FAILABLE(off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence), fd)

REPLACE(void, sync, ()) {
  meet("sync", "");
}

REPLACE(int, open, (const char* path, int flags, ...)) {
  REAL(open);
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return meet("open", path) ? -1 : real(path, flags, mode);
}

REPLACE(int, property_get, (const char* name, char* value, const char* fallback)) {
  REAL(property_get);
  if (meet("property_get", name)) return -1;
  const Pause pause;
  return real(name, value, fallback);
}

REPLACE(int, close, (int fd)) {
  REAL(close);
  Dl_info caller = {};
  ::dladdr(__builtin_return_address(0), &caller);
  if (std::string_view(caller.dli_fname ? caller.dli_fname : "").ends_with("/libkelchk.so")) {
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << "a program that the process starts would inherit it";
  }
  const bool fails = meet("close", fd);
  const int error = errno, result = real(fd);
  if (fails) errno = error;
  return fails ? -1 : result;
}

REPLACE(ssize_t, read, (int fd, void* out, size_t cap)) {
  REAL(read);
  const Fault::Kind fault = meet("read", fd);
  if (fault != Fault::kFallsShort) return fault ? -1 : real(fd, out, cap);
  std::string all(cap, '\0');
  const ssize_t count = real(fd, all.data(), cap);
  if (count <= 0) return count;
  const Pause pause;
  ::lseek(fd, count / 2 - count, SEEK_CUR);
  return static_cast<ssize_t>(all.copy(static_cast<char*>(out), static_cast<size_t>(count / 2)));
}

REPLACE(ssize_t, write, (int fd, const void* bytes, size_t len)) {
  REAL(write);
  const Fault::Kind fault = meet("write", fd);
  if (fault == Fault::kFails) return -1;
  if (!fault && (current == nullptr || !current->watch)) return real(fd, bytes, len);
  const ssize_t half = real(fd, bytes, len / 2);
  if (fault == Fault::kExitsHalfway) ::_exit(0);
  if (fault) return half;
  notify("half", fd);
  return half + real(fd, static_cast<const char*>(bytes) + len / 2, len - len / 2);
}

// The C library's own would call write() where nobody sees it.
REPLACE(int, dprintf, (int fd, const char* format, const char* line)) {
  EXPECT_STREQ(format, "%s\n");
  return static_cast<int>(my_write(fd, (line + std::string("\n")).data(), std::strlen(line) + 1));
}
REPLACE(int, __dprintf_chk, (int fd, int, const char* format, const char* line)) {
  return my_dprintf(fd, format, line);
}

REPLACE(void*, dlopen, (const char* path, int flags)) {
  REAL(dlopen);
  const Fault::Kind fault = meet("dlopen", path != nullptr ? path : "");
  return fault == Fault::kFails ? nullptr : real(fault ? nullptr : path, flags);
}

// The crypto library takes its memory from a program that defines these.
extern "C" {
void* OPENSSL_memory_alloc(size_t size);
void OPENSSL_memory_free(void* block);
size_t OPENSSL_memory_get_size(void* block);
}
void* OPENSSL_memory_alloc(size_t size) {
  if (current != nullptr) ++counts.allocations;
  if (current != nullptr && current->kind == Fault::kNoMemory && hits(counts.allocations)) {
    counts.failed = "allocation";
    return nullptr;
  }
  ++counts.blocks_left;
  return std::malloc(size);
}
void OPENSSL_memory_free(void* block) {
  counts.blocks_left -= block != nullptr ? 1 : 0;
  std::free(block);
}
size_t OPENSSL_memory_get_size(void* block) {
  return ::malloc_usable_size(block);
}

int test::run_with(const Fault& fault, const std::function<int()>& operation, Counts* out) {
  counts = {};
  current = &fault;
  const int result = operation();
  current = nullptr;
  if (out != nullptr) *out = counts;
  return result;
}

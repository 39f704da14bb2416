// File descriptors.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace kelchk {

// Owns a descriptor. A negative one is none.
class Fd {
 public:
  explicit Fd(int fd) noexcept : fd_(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }

  explicit operator bool() const noexcept { return fd_ >= 0; }
  [[nodiscard]] int get() const noexcept { return fd_; }

 private:
  int fd_;
};

// Opens a file that the phone itself provides: /proc, /sys, a partition, a vendor's file.
[[nodiscard]] inline int open_to_read(const char* path) noexcept {
  return ::open(path, O_RDONLY | O_CLOEXEC);
}

// Open a file in a store directory. Whoever can write there can replace the file by a FIFO, and without O_NONBLOCK the
// call would wait for the FIFO's other end.
[[nodiscard]] inline int open_stored_to_read(const char* path) noexcept {
  return ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

[[nodiscard]] inline int open_stored_to_replace(const char* path) noexcept {
  return ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0666);
}

}  // namespace kelchk

// Waiting, and for how long.
#pragma once

#include "common/fd.h"

namespace kelphone {

inline constexpr unsigned kLockWait = 10;     // seconds, without --wait
inline constexpr unsigned kBootWait = 60;     // the same, for --service
inline constexpr unsigned kAnswerLimit = 60;  // for an operation of the library
inline constexpr unsigned kInputLimit = 600;  // for a file or the next request

inline constexpr char kLockFolder[] = "/kelofs";

// Keeps other processes that take the same lock off this phone: two would overwrite each other's files.
class Lock {
 public:
  // Waits for up to |wait| seconds. Throws SessionError when another process has the lock even then, and Error when the
  // lock folder cannot be opened.
  explicit Lock(unsigned wait);

 private:
  common::Fd folder_;
};

// Begins a step and ends the one before: unless another begins within |limit| seconds, the process says that there was
// no |what| and ends with kSessionFailed. Nothing else gets out of a vendor library or a device that hangs.
void expect(const char* what, unsigned limit);

}  // namespace kelphone

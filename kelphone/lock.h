// Waiting, and for how long.
#pragma once

#include "common/fd.h"

namespace kelphone {

inline constexpr unsigned kLockWait = 10;     // seconds, without --wait
inline constexpr unsigned kBootWait = 60;     // the same, for --service
inline constexpr unsigned kAnswerLimit = 60;  // for an operation of the library
inline constexpr unsigned kInputLimit = 600;  // for a file or the next request

inline constexpr char kLockFolder[] = "/kelofs";

// Locks kLockFolder, which keeps other processes off this phone: two would overwrite each other's files. The lock lasts
// as long as the result, which is empty, with errno, when the folder cannot be opened. Throws SessionError when another
// process has the lock for all of |wait| seconds.
common::Fd lock_phone(unsigned wait);

// Begins a step and ends the one before: unless another begins within |limit| seconds, the process says that there was
// no |what| and ends with kSessionFailed. Nothing else gets out of a vendor library or a device that hangs.
void expect(const char* what, unsigned limit);

}  // namespace kelphone

// Waiting, and for how long.
#pragma once

#include "common/fd.h"

namespace kelphone {

inline constexpr unsigned kLockWait = 10;     // seconds, without --wait
inline constexpr unsigned kBootWait = 60;     // the same, for --service
inline constexpr unsigned kAnswerLimit = 60;  // for an operation of the library
inline constexpr unsigned kInputLimit = 600;  // for a file or the next request

inline constexpr char kLockFolder[] = "/kelofs";

// The folder whose lock keeps other processes off this phone: two would overwrite each other's files. Without it, the
// result is empty and errno says why.
common::Fd open_lock_folder();

// Waits for up to |wait| seconds for the lock, which lasts as long as |folder|. Throws SessionError when another
// process has it even then.
void lock(const common::Fd& folder, unsigned wait);

// Begins a step and ends the one before: unless another begins within |limit| seconds, the process says that there was
// no |what| and ends with kSessionFailed. Nothing else gets out of a vendor library or a device that hangs.
void expect(const char* what, unsigned limit);

}  // namespace kelphone

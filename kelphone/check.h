// The check of the stored files, with its reasons.
#pragma once

#include <string>
#include <vector>

#include "kelphone/reason.h"

namespace kelphone {

struct Verdict {
  bool is_valid = false;
  bool is_decided = true;               // false: something that the verdict needs could not be read
  std::vector<std::string> words = {};  // what decided, a line each; escape them
  Reason mismatch = {};                 // with a field: the first copy that does not describe this phone
  std::string unlocked = {};            // why no lock was taken; empty when one was
};

// Waits up to |wait| seconds for the lock and checks. Without a lock folder it checks unlocked. Throws SessionError
// when another process keeps the lock.
Verdict check_stored_files(unsigned wait);

}  // namespace kelphone

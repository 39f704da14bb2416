// The check of the stored files, with its reasons. Texts hold what the phone and its files say: escape them.
#pragma once

#include <string>
#include <vector>

#include "kelphone/messages.h"

namespace kelphone {

enum File { kAuthorization, kParameters };
enum Copy { kPrimary, kBackup };

inline constexpr const char* kCopyNames[] = {"primary", "backup"};

// kelphone's own look at a stored file, because the library says only that it could not open one.
struct Look {
  bool is_missing = false;
  std::string error;  // why it could not be read; empty when it was read or is missing
  std::string content;
};

Look look_at(File file, Copy copy);

// Why the store of |copy| cannot be used, with the system's words; empty when it can. A folder that is only missing
// does not count: the first import makes it.
std::string store_trouble(Copy copy);

// Makes the store folders that are missing, for an import. The library would make them without the right to search,
// which only root does without.
void make_store_folders();

struct Reason {
  std::string words = {};
  bool is_decided = true;  // false: nothing was judged, because something could not be read
  std::string field = {};  // when the record does not describe this phone: where they differ
  std::string stored = {};
  std::string present = {};
};

// Why the library rejected a copy, by the first of its messages about it that decides. |look| is the copy.
Reason explain(const std::vector<Message>& messages, File file, const Look& look);

struct Verdict {
  bool is_valid = false;
  bool is_decided = true;
  std::vector<std::string> words = {};  // what decided, a line each
  Reason mismatch = {};                 // with a field: the first copy that does not describe this phone
  std::string unlocked = {};            // why no lock was taken; empty when one was
};

// Waits up to |wait| seconds for the lock and checks. Without a lock folder it checks unlocked. Throws SessionError
// when another process keeps the lock.
Verdict check_stored_files(unsigned wait);

}  // namespace kelphone

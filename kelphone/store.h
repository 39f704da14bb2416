// kelphone's own look at the stored files, because the library says only that it could not open one.
#pragma once

#include <string>

namespace kelphone {

enum Copy { kPrimary, kBackup };
enum File { kAuthorization, kParameters };

inline constexpr const char* kCopyNames[] = {"primary", "backup"};
inline constexpr const char* kFileNames[] = {"authorization file", "parameter file"};

// The store directory of |copy| on this phone, with its trailing "/".
std::string store_folder(Copy copy);

// Why the store of |copy| cannot be used, with the system's words; empty when it can. One whose folder is only missing
// can be: the first import makes it.
std::string store_trouble(Copy copy);

// A stored file as it is now.
struct Look {
  bool is_missing = false;
  std::string error;  // why it could not be read; empty when it was read or is missing
  std::string content;

  bool is_same_as(const Look& other) const {
    return !is_missing && !other.is_missing && error.empty() && other.error.empty() && content == other.content;
  }
};

Look look_at(File file, Copy copy);

}  // namespace kelphone

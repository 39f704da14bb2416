// What differs between a phone and a simulated one.
#pragma once

#include <sys/types.h>

#include <string>

namespace kelphone {

inline constexpr uid_t kSystemUser = 1000;  // and its group, by the same number

// Whether this process runs on a phone, simulated or not. Anywhere else the library would use the machine's own
// folders.
bool is_phone();

// Whether the phone's folders belong to the user "system", so that root must become that user.
bool has_system_user();

// Whether a file system is mounted at the folder |path|, which exists.
bool is_mounted(const std::string& path);

}  // namespace kelphone

// The commands that drive the phone in one shot, through the library's public header alone. Each returns the exit code.
#pragma once

#include <string>

namespace kelctl {

int check();
int security(bool as_json);
int efuse();

// Reads an authorization file; "-" is standard input. Throws Error when it cannot be read or has another length than
// the library imports.
std::string read_authorization(const std::string& path);
int authorize(const std::string& content);

}  // namespace kelctl

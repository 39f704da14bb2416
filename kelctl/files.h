// Files and standard input, whole.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace kelctl {

// Reads at most |limit| bytes of the file |path|; "-" is standard input. Throws Error, naming it, when that fails.
std::string read_file(const std::string& path, size_t limit = SIZE_MAX);

// Writes a file that is not there yet. Throws Error, naming it, when it is or when writing fails.
void write_new_file(const std::string& path, const std::string& content, mode_t mode);

// Makes |content| this process's standard input, which children inherit.
void become_standard_input(const std::string& content);

}  // namespace kelctl

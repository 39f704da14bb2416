// A way to run a command inside a simulated phone, with the phone's absolute paths in place of this machine's.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace phone {

struct Run {
  std::filesystem::path root;                // the phone; empty: an empty one in memory, gone when the command ends
  std::vector<std::filesystem::path> binds;  // further files and folders to see inside, under the same paths
  std::string clock;                         // the time inside, in faketime's notation; empty: the real time. A
                                             // program built with clang's address sanitizer hangs under faketime.
  std::vector<std::string> command;
};

// Runs the command and returns its exit code, 128 plus the signal when one ended it. The command sees the phone, /usr
// read-only, and at their own paths |binds|, the folders of the command and of this program and the current folder.
// Throws, saying what is missing, when the command cannot be started.
int run(const Run& request);

}  // namespace phone

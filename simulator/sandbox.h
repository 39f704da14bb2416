// Runs a command inside a simulated phone, whose absolute paths replace this machine's.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace phone {

struct Run {
  std::optional<std::filesystem::path> root;  // the phone; none: an empty one in memory, until the command ends
  std::vector<std::filesystem::path> binds;   // more files and folders to show inside, under the same paths
  std::string clock;                          // the time inside, in faketime's notation; empty: the real time. A
                                              // program built with clang's address sanitizer hangs under faketime.
  bool has_override = true;                   // whether root may ignore the access rights of files
  std::vector<std::string> command;
};

// Runs the command and returns its exit code, or 128 plus the number of the signal that ended it. The command runs as
// root, with the few capabilities that programs of a phone use. It sees the phone, /usr read-only, and under their own
// paths |binds|, the folders of the command and of this program, the "lib" folders beside these, and the current
// folder. No link in the phone leads out of it. Throws, naming what is missing, when the command cannot be started.
int run(const Run& request);

}  // namespace phone

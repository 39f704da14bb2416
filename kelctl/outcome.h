// How a command ends.
#pragma once

#include <stdexcept>

namespace kelctl {

enum ExitCode {
  kYes = 0,        // yes, or done
  kNo = 1,         // no, or refused
  kUnusable = 2,   // wrong usage, unreadable input, or something needed could not be started
  kUndecided = 3,  // explain alone: nothing is wrong, but what was given does not suffice for a verdict
};

// Ends the program with kUnusable. The text names the option or file and what was expected.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Ends the program with kNo.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace kelctl

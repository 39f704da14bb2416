// How a program ends.
#pragma once

#include <functional>
#include <stdexcept>

namespace common {

enum ExitCode {
  kYes = 0,            // yes, or done
  kNo = 1,             // no, or refused by the phone or the policy
  kUnusable = 2,       // wrong usage, or something unreadable or not writable
  kUndecided = 3,      // explain alone: nothing is wrong, but what was given does not suffice for a verdict
  kSessionFailed = 4,  // a session failed or timed out: nothing is known to be wrong with the phone
};

// The texts of all three hold file names and other untrusted text as it is: whoever shows one escapes it (escape.h).

// Ends the program with kUnusable. The text names the option or file and what was expected.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Ends the program with kNo.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Ends the program with kSessionFailed.
struct SessionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Runs |body|, the whole of |program|, closes standard output and returns the exit code. What |body| throws becomes an
// exit code and an escaped message on standard error.
int run_program(const char* program, const std::function<int()>& body);

}  // namespace common

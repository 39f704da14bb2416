// What a program prints, and how it ends.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace common {

enum ExitCode {
  kYes = 0,            // yes, or done
  kNo = 1,             // no, or refused by the phone or the policy
  kUnusable = 2,       // wrong usage, or something unreadable or not writable
  kUndecided = 3,      // explain alone: nothing is wrong, but what was given does not suffice for a verdict
  kSessionFailed = 4,  // a session failed or timed out: nothing is known to be wrong with the phone
};

// Ends the program with |code|. The text holds file names and other untrusted text as it is: whoever shows it escapes
// it (escape.h).
template <ExitCode code>
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};
using Error = Failure<kUnusable>;  // names the option or file and what was expected
using Refusal = Failure<kNo>;
using SessionError = Failure<kSessionFailed>;

// Writes |text| to standard output at once. Throws Error when that fails.
void print(std::string_view text);

// Writes |message| from |name| to standard error, both escaped.
void complain(std::string_view name, std::string_view message);

// |words| in green or, unless they are good, red when standard output is a terminal, else as they are.
std::string painted(std::string_view words, bool are_good);

// Runs |body|, the whole of |program|, closes standard output and returns the exit code. What |body| throws becomes an
// exit code and an escaped message on standard error.
int run_program(const char* program, const std::function<int()>& body);

}  // namespace common

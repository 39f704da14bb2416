// What an operation of the library meets in the system: calls that fail, fall short or are the process's last.
#pragma once

#include <cerrno>
#include <functional>
#include <string>

namespace test {

struct Trouble {
  // A descriptor that fails to close is closed all the same. What falls short is half of what a read or write should
  // move and a loaded library without entry points; halfway through is a write that has stored half its bytes. Any
  // other call fails at once or ends the process before it.
  enum Kind { kNone, kFails, kFallsShort, kDies, kDiesHalfway, kNoMemory } kind = kNone;
  unsigned first = 1;  // call, or allocation of the crypto library, from 1
  bool lasts = false;  // so do all after it
  int error = EIO;
  // Told of every call before it has an effect, with its path and what that is renamed to, and of "half" a write.
  std::function<void(const std::string& call, const std::string& path, const std::string& to)> watch = nullptr;
};

struct Counts {
  unsigned calls = 0, allocations = 0;
  int blocks_left = 0;
  std::string met;  // the first call that met trouble, with its path; "allocation"
};

// Runs |operation|, which alone meets |trouble|. Only sync does nothing at any time: it would flush the whole machine.
int run_with(const Trouble& trouble, const std::function<int()>& operation, Counts* counts = nullptr);

}  // namespace test

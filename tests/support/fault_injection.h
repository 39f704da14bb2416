// Injects faults into an operation of the library: system calls that fail, fall short or are the process's last, and
// allocations of the crypto library that fail.
#pragma once

#include <cerrno>
#include <functional>
#include <string>

namespace test {

struct Fault {
  // A descriptor that fails to close is closed all the same. kFallsShort moves half of what a read or write should, and
  // loads a library without entry points. kExitsHalfway ends the process when a write has stored half its bytes; any
  // other call ends it before it has an effect.
  enum Kind { kNone, kFails, kFallsShort, kExits, kExitsHalfway, kNoMemory } kind = kNone;
  unsigned first = 1;  // the call or allocation, counted from 1
  bool lasts = false;  // all later ones meet the fault too
  int error = EIO;
  // Called before each call has an effect, with its path and the new one of a rename, and halfway through a write as
  // "half".
  std::function<void(const std::string& call, const std::string& path, const std::string& to)> watch = nullptr;
};

struct Counts {
  unsigned calls = 0, allocations = 0;
  int blocks_left = 0;
  std::string failed;  // the first call that met the fault, with its path, or "allocation"
};

// Runs |operation| under |fault|. Without one too, sync does nothing here: it would flush the whole machine.
int run_with(const Fault& fault, const std::function<int()>& operation, Counts* counts = nullptr);

}  // namespace test

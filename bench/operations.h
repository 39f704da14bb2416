// The operations of the library that are measured, each with its floor.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/provisioning.h"

namespace bench {

struct Operation {
  std::string name;
  double goal = 0;                     // the highest ratio to the floor that passes; 0: none
  std::function<void()> arrange = {};  // brings phone and library into the state that the calls need and keep
  std::function<void()> before = {};   // restores what a call uses up; not timed
  std::function<bool()> library;       // both return whether the call succeeded
  std::function<bool()> floor;
};

std::vector<Operation> make_operations(const Provisioning& provisioning);

}  // namespace bench

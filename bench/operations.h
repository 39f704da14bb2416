// What is measured: each operation of the library beside its floor.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulator/phone.h"

namespace bench {

struct Operation {
  std::string name;
  double goal = 0;                     // the highest ratio to the floor; 0: none
  std::function<void()> arrange = {};  // brings phone and library into the state that the calls need and leave
  std::function<void()> before = {};   // makes anew what a call uses up
  std::function<bool()> library;
  std::function<bool()> floor;
};

// The operations on the phone that this program runs in. Throws when the phone cannot be provisioned.
std::vector<Operation> make_operations(phone::Chip chip);

}  // namespace bench

// What every fuzz target has: a phone to run in, and a library that starts each input as if just loaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/phone.h"

namespace fuzz {

// The phone of this process, made once: the default one of |chip|, with both store directories and the vendor libraries
// of both families.
void make_phone(phone::Chip chip);

// Writes a file of the phone.
void write_file(const std::string& path, std::string_view content);

// One input's time: it starts with every data symbol of the library as at load, and dies when the library left a
// descriptor open.
class Round {
 public:
  Round();
  Round(const Round&) = delete;
  ~Round();

 private:
  int free_descriptor_;
};

// The properties of the phone from now on, as a key=value record.
void set_properties(std::string_view record);

}  // namespace fuzz

// What all fuzz targets share: a phone to run in, and a library that handles each input as if just loaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "simulator/phone.h"

namespace fuzz {

// Makes this process's phone, once: the default one of |chip|, with both store directories and with the vendor
// libraries of both chip families.
void make_phone(phone::Chip chip);

// Replaces the phone's properties by those of |record|, a key=value record.
void set_properties(std::string_view record);

void write_file(const std::string& path, std::string_view content);

// Lives while one input is handled. Starts with every data symbol of the library as after loading; aborts at the end if
// the library has left a descriptor open.
class LibraryRun {
 public:
  LibraryRun();
  LibraryRun(const LibraryRun&) = delete;
  ~LibraryRun();

 private:
  int free_descriptor_;
};

// Requests a device parameter record, after a login, into a buffer of exactly the size that the header demands.
void request_record(std::string_view request);

}  // namespace fuzz

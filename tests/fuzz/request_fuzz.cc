// A request for the device parameter record.
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::make_phone(phone::Chip::kUnisoc);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::LibraryRun run;
  fuzz::request_record({reinterpret_cast<const char*>(data), size});
  return 0;
}

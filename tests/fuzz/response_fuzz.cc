// The response to a challenge.
#include "kelchk.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::LibraryRun run;
  const std::string record(reinterpret_cast<const char*>(data), size);
  kelo_verify_rand(record.c_str(), static_cast<unsigned>(size));
  return 0;
}

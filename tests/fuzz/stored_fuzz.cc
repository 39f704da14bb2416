// Stored files of any bytes: which of the four copies are there, and what each holds.
#include <fuzzer/FuzzedDataProvider.h>

#include "kelchk.h"
#include "tests/fuzz/fuzz.h"

namespace {

constexpr const char* kPaths[] = {"/mnt/vendor/persist/startPara/auFile.dat", "/kelofs/startPara/auFile.dat",
                                  "/mnt/vendor/persist/startPara/startPara.dat", "/kelofs/startPara/startPara.dat"};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::make_phone(phone::Chip::kMediaTek);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const fuzz::Round round;
  const unsigned there = input.ConsumeIntegralInRange<unsigned>(0, 15);
  const std::string content = input.ConsumeRemainingBytesAsString();
  for (unsigned i = 0; i < 4; ++i) {
    std::remove(kPaths[i]);
    if ((there >> i & 1) != 0) fuzz::write_file(kPaths[i], content);
  }
  kelo_is_para_correct();
  return 0;
}

// Stored files: which of the four copies exist, and what they contain.
#include <fuzzer/FuzzedDataProvider.h>

#include "kelchk.h"
#include "tests/fuzz/fuzz.h"

namespace {

constexpr const char* kPaths[] = {
    KELCHK_STORE_MEDIATEK KELCHK_AUTHORIZATION_FILE, KELCHK_STORE_BACKUP KELCHK_AUTHORIZATION_FILE,
    KELCHK_STORE_MEDIATEK KELCHK_PARAMETER_FILE, KELCHK_STORE_BACKUP KELCHK_PARAMETER_FILE};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::make_phone(phone::Chip::kMediaTek);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const fuzz::LibraryRun run;
  const unsigned existing = input.ConsumeIntegralInRange<unsigned>(0, 15);
  const std::string content = input.ConsumeRemainingBytesAsString();
  for (unsigned i = 0; i < 4; ++i) {
    std::remove(kPaths[i]);
    if ((existing >> i & 1) != 0) fuzz::write_file(kPaths[i], content);
  }
  kelo_is_para_correct();
  return 0;
}

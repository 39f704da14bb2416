// An authorization file, in a buffer of exactly its size.
#include "kelchk.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::make_phone(phone::Chip::kMediaTek);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::LibraryRun run;
  kelo_import_aufile(data, static_cast<unsigned>(size));
  return 0;
}

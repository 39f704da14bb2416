// A request for the device parameter record.
#include <memory>

#include "kelchk.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::make_phone(phone::Chip::kUnisoc);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Round round;
  g_is_authed = 1;
  const std::string request(reinterpret_cast<const char*>(data), size);
  const auto record = std::make_unique<char[]>(4095);
  unsigned len = 0;
  kelo_get_para(request.c_str(), static_cast<unsigned>(size), record.get(), &len);
  return 0;
}

// What the platform returns: every source of the phone, of both chip families, and every property.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "kelchk.h"
#include "tests/fuzz/fuzz.h"

namespace {

constexpr const char* kSources[] = {
    "/proc/rid",
    "/dev/block/by-name/proinfo",
    "/mnt/vendor/nvdata/APCFG/APRDEB/WIFI",
    "/vendor/nvdata/APCFG/APRDEB/ANTI_CS",
    "/sys/kelonix/hwinfo/chip_uid",
    "/dev/block/by-name/miscdata",
    "/mnt/vendor/wifimac.txt",
    "/mnt/vendor/productinfo/finstatus/finstatus.prop",
    "/vendor/modem/imei",
};

std::string answer;  // of the root's signer; over another text

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** arguments) {
  std::ifstream file(std::filesystem::path(**arguments).parent_path() / "../../corpus/response/signed");
  answer.assign(std::istreambuf_iterator(file), {});
  if (answer.empty()) {
    std::fputs("tools/fuzz has not made the signer's answer yet\n", stderr);
    std::exit(1);
  }
  fuzz::make_phone(phone::Chip::kMediaTek);
  for (const char* source : kSources) std::filesystem::create_directories(std::filesystem::path(source).parent_path());
  return 0;
}

// The input is the properties, as a record, then each source in turn, and at last what becomes of one of them, named by
// the last byte, when the record has been built.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const fuzz::Round round;
  fuzz::set_properties(input.ConsumeRandomLengthString());
  for (const char* source : kSources) fuzz::write_file(source, input.ConsumeRandomLengthString());

  g_is_authed = 1;
  const std::string request = "mac=1&IMEI=490154203237518";
  const auto record = std::make_unique<char[]>(4095);
  unsigned len = 0;
  kelo_get_para(request.c_str(), static_cast<unsigned>(request.size()), record.get(), &len);
  kelo_import_para_sign(answer.c_str(), 1);
  const char* const changed = input.PickValueInArray(kSources);
  fuzz::write_file(changed, input.ConsumeRemainingBytesAsString());
  kelo_import_para_sign(answer.c_str(), 1);
  const auto report = std::make_unique<char[]>(2863);
  kelo_bsp_sec_ctrl_get(report.get(), 2863, &len);
  is_device_efused();
  return 0;
}

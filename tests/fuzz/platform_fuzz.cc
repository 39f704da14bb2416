// What the phone returns: the files of both chip families and every property.
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

constexpr const char* kFiles[] = {
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

// Signed by a signer of the root, over another text: only the targets that trust every signature accept it.
std::string signed_record;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** arguments) {
  std::ifstream file(std::filesystem::path(**arguments).parent_path() / "../../corpus/response/signed");
  signed_record.assign(std::istreambuf_iterator(file), {});
  if (signed_record.empty()) {
    std::fputs("the corpus has no signed record: start this with tools/fuzz\n", stderr);
    std::exit(1);
  }
  fuzz::make_phone(phone::Chip::kMediaTek);
  for (const char* path : kFiles) std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  return 0;
}

// The input holds the properties, as a record, then the content of each file, and last what one file, which its last
// byte selects, contains after the record has been built.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const fuzz::LibraryRun run;
  fuzz::set_properties(input.ConsumeRandomLengthString());
  for (const char* path : kFiles) fuzz::write_file(path, input.ConsumeRandomLengthString());

  fuzz::request_record("mac=1&IMEI=490154203237518");
  kelo_import_para_sign(signed_record.c_str(), 1);
  const char* const changed = input.PickValueInArray(kFiles);
  fuzz::write_file(changed, input.ConsumeRemainingBytesAsString());
  kelo_import_para_sign(signed_record.c_str(), 1);
  const auto report = std::make_unique<char[]>(KELCHK_SECURITY_REPORT_CAP);
  unsigned len = 0;
  kelo_bsp_sec_ctrl_get(report.get(), KELCHK_SECURITY_REPORT_CAP, &len);
  is_device_efused();
  return 0;
}

// The state of the chip's secure-boot efuse.
#include "core/log.h"
#include "device/property.h"
#include "device/vendor_library.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr char kLibrary[] = "/vendor/lib/libefuse.so";
constexpr char kLibrary64[] = "/vendor/lib64/libefuse.so";
constexpr char kEntryPoint[] = "efuse_secure_is_enabled";

using IsSecureEnabled = int();

[[nodiscard]] int is_unisoc_efused() noexcept {
  log_info("==spd_efuse_secure_is_enabled start ==\n");
  log_info("dlopen1 %s", kLibrary);
  VendorLibrary library(kLibrary);
  if (!library) {
    log_error("dlopen %s fail reson =%s\n, try lib64", kLibrary, loader_error());
    library.load(kLibrary64);
  }
  if (!library) {
    log_dlopen_failure(kLibrary64);
    return 1;
  }
  auto* const is_enabled = library.find<IsSecureEnabled>(kEntryPoint, kEntryPoint);
  if (is_enabled == nullptr) return 1;
  const int result = is_enabled();
  library.keep_loaded();
  log_info("==spd_efuse_secure_is_enabled end %d== \n", result);
  return result == 1;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int is_device_efused() noexcept {
  if (!is_mt_chip()) return is_unisoc_efused();
  return Property("ro.boot.efusemode", "hw").is("hw");
}

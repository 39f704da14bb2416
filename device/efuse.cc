// Is the chip's secure-boot efuse blown?
#include "core/log.h"
#include "device/property.h"
#include "device/vendor_library.h"
#include "kelchk.h"

namespace kelchk {
namespace {

using IsSecureEnabled = int();

[[nodiscard]] int is_unisoc_efused() noexcept {
  log_info("==spd_efuse_secure_is_enabled start ==\n");
  log_info("dlopen1 /vendor/lib/libefuse.so");
  VendorLibrary library("/vendor/lib/libefuse.so");
  if (!library) {
    log_error("dlopen /vendor/lib/libefuse.so fail reson =%s\n, try lib64", loader_error());
    library.load("/vendor/lib64/libefuse.so");
  }
  if (!library) {
    log_error("dlopen /vendor/lib64/libefuse.so fail reson =%s\n", loader_error());
    return 1;
  }
  constexpr char kEntryPoint[] = "efuse_secure_is_enabled";
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

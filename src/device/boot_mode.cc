#include "device/boot_mode.h"

#include "core/log.h"
#include "device/property.h"

namespace kelchk {

bool is_boot_normal() noexcept {
  const Property boot_mode("ro.bootmode");
  log_info("boot_mode = %s", boot_mode.value);
  return boot_mode.is("normal");
}

}  // namespace kelchk

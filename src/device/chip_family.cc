#include <string.h>

#include "core/log.h"
#include "device/property.h"
#include "kelchk.h"

int is_mt_chip() noexcept {
  const kelchk::Property hardware("ro.hardware");
  log_info("chip=%s", hardware.value);
  return memcmp(hardware.value, "mt", 2) == 0 || memcmp(hardware.value, "MT", 2) == 0;
}

// The product's brand and model.
#include <string.h>

#include "core/log.h"
#include "device/attributes.h"
#include "device/property.h"

namespace kelchk {
namespace {

// Returns the first of "_", "-" and " ", in this order, that occurs anywhere in |text|; NUL when none does.
char separator_in(const char* text) noexcept {
  for (const char* separator = "_- "; *separator != '\0'; ++separator) {
    if (strchr(text, *separator) != nullptr) return *separator;
  }
  return '\0';
}

}  // namespace

int get_device_brand(ValueBuffer& out) noexcept {
  if (!read_property("ro.product.brand", out)) return log_failure("get ro.product.brand err");
  *strchr(out, separator_in(out)) = '\0';  // without a separator, the text's own end
  log_info("get_device_brand = %s", out);
  return 0;
}

int get_device_name(ValueBuffer& out) noexcept {
  const Property device("ro.product.device");
  if (device.absent()) {
    log_error("get ro.product.name err=%s\n", device.value);
    return -1;
  }
  const char separator = separator_in(device.value);
  const char* const suffix = separator != '\0' ? strrchr(device.value, separator) + 1 : device.value;
  TextWriter(out).append({"MDF1", suffix});
  log_info("get_device_name = %s", out);
  return 0;
}

}  // namespace kelchk

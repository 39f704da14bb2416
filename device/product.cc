// What product the phone is.
#include <string.h>

#include "core/log.h"
#include "device/attributes.h"
#include "device/property.h"

namespace kelchk {
namespace {

// The separator that counts in |text|: the first of this order that occurs at all, wherever. NUL when none does.
char separator_in(const char* text) noexcept {
  for (const char* separator = "_- "; *separator != '\0'; ++separator) {
    if (strchr(text, *separator) != nullptr) return *separator;
  }
  return '\0';
}

}  // namespace

int get_device_brand(Text& out) noexcept {
  const Property brand("ro.product.brand");
  if (brand.absent()) return fail("get ro.product.brand err");
  // Without a separator this is the end of the text.
  const char* const brand_end = strchr(brand.value, separator_in(brand.value));
  memcpy(out, brand.value, static_cast<size_t>(brand_end - brand.value));
  log_info("get_device_brand = %s", out);
  return 0;
}

int get_device_name(Text& out) noexcept {
  const Property device("ro.product.device");
  if (device.absent()) {
    log_error("get ro.product.name err=%s\n", device.value);
    return -1;
  }
  const char separator = separator_in(device.value);
  const char* const suffix = separator != '\0' ? strrchr(device.value, separator) + 1 : device.value;
  TextWriter(out).append("MDF1%s", suffix);
  log_info("get_device_name = %s", out);
  return 0;
}

}  // namespace kelchk

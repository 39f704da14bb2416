#include "device/property.h"

#include <cutils/properties.h>
#include <string.h>

namespace kelchk {

bool read_property(const char* name, Text& out) noexcept {
  property_get(name, out, "false");
  if (strcmp(out, "false") != 0) return true;
  out[0] = '\0';
  return false;
}

Property::Property(const char* name, const char* fallback) noexcept : result(property_get(name, value, fallback)) {
  static_assert(sizeof value >= PROPERTY_VALUE_MAX);
}

bool Property::is(const char* word) const noexcept {
  return strcmp(value, word) == 0;
}

}  // namespace kelchk

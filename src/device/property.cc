#include "device/property.h"

#include <cutils/properties.h>
#include <string.h>

namespace kelchk {

bool read_property(const char* name, ValueBuffer& out) noexcept {
  if (property_get(name, out, "false") >= 0 && strcmp(out, "false") != 0) return true;
  out[0] = '\0';
  return false;
}

Property::Property(const char* name, const char* fallback) noexcept : result(property_get(name, value, fallback)) {
  static_assert(sizeof value >= PROPERTY_VALUE_MAX);
  // A system that fails may leave the buffer empty, and empty text must not pass for a value.
  if (result < 0) memcpy(value, fallback, strlen(fallback) + 1);
}

bool Property::is(const char* word) const noexcept {
  return strcmp(value, word) == 0;
}

}  // namespace kelchk

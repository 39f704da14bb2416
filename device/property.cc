#include "device/property.h"

#include <cutils/properties.h>
#include <string.h>

namespace kelchk {

Property::Property(const char* name, const char* fallback) noexcept : result(property_get(name, value, fallback)) {
  static_assert(sizeof value >= PROPERTY_VALUE_MAX);
}

bool Property::is(const char* word) const noexcept {
  return strcmp(value, word) == 0;
}

}  // namespace kelchk

// The build that the phone runs.
#include <string.h>

#include "device/attributes.h"
#include "device/property.h"
#include "kelchk.h"

namespace kelchk {
namespace {

// A user build counts as rooted when "ro.vendor.kelo.userroot" has any value or the build is debuggable.
bool is_user_build_rooted() noexcept {
  if (!Property("ro.vendor.kelo.userroot").absent()) return true;
  const Property debuggable("ro.debuggable");
  return !debuggable.absent() && !debuggable.is("0");
}

int write_word(char* out, const char* word) noexcept {
  memcpy(out, word, strlen(word) + 1);
  return 0;
}

}  // namespace

int get_build_time(ValueBuffer& out) noexcept {
  return read_property("ro.system.build.version.incremental", out) ? 0 : -1;
}

}  // namespace kelchk

using namespace kelchk;

int get_build_type(char* out) noexcept {
  const Property type("ro.build.type");
  if (type.is("userdebug") || type.is("eng")) return write_word(out, type.value);
  if (!type.is("user")) return -1;
  return write_word(out, is_user_build_rooted() ? "user_root" : "user");
}

#include "bench/system.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace {

std::map<std::string, std::string, std::less<>> properties;  // empty: the system answers
int reads = 0;
bool flushes = false;

}  // namespace

int __android_log_print(int /*prio*/, const char* /*tag*/, const char* /*fmt*/, ...) {
  return 1;
}

int property_get(const char* key, char* value, const char* default_value) {
  static const auto system = reinterpret_cast<decltype(&property_get)>(::dlsym(RTLD_NEXT, "property_get"));
  ++reads;
  if (properties.empty()) return system(key, value, default_value);
  const auto found = properties.find(std::string_view(key));
  const std::string_view text = found != properties.end() ? found->second : std::string_view(default_value);
  value[text.copy(value, PROPERTY_VALUE_MAX - 1)] = '\0';
  return static_cast<int>(text.size());
}

extern "C" int fsync(int fd) {
  return flushes ? static_cast<int>(::syscall(SYS_fsync, fd)) : 0;
}

extern "C" void sync() noexcept {
  if (flushes) ::syscall(SYS_sync);
}

namespace bench {

void make_phone(const phone::Identity& identity) {
  phone::make("/", identity, PHONE_VENDOR_LIBRARIES);
}

void keep_properties_in_memory(const phone::Identity& identity) {
  properties = {identity.properties.begin(), identity.properties.end()};
}

int properties_read() {
  return reads;
}

void flush_to_storage() {
  flushes = true;
}

}  // namespace bench

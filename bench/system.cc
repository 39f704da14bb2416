#include "system.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <string>

namespace {

bool flushes = false;

std::map<std::string, std::string, std::less<>>& all_properties() {
  static std::map<std::string, std::string, std::less<>> properties;
  return properties;
}

}  // namespace

int __android_log_print(int, const char*, const char*, ...) { return 1; }

int property_get(const char* key, char* value, const char* default_value) {
  const auto found = all_properties().find(std::string_view(key));
  const std::string_view text = found != all_properties().end() ? found->second : std::string_view(default_value);
  value[text.copy(value, PROPERTY_VALUE_MAX - 1)] = '\0';
  return static_cast<int>(text.size());
}

extern "C" int fsync(int fd) { return flushes ? static_cast<int>(::syscall(SYS_fsync, fd)) : 0; }

extern "C" void sync() noexcept {
  if (flushes) ::syscall(SYS_sync);
}

namespace bench {

void make_phone(phone::Chip chip) {
  const phone::Identity identity = phone::default_identity(chip);
  phone::make("/", identity, PHONE_VENDOR_LIBRARIES);
  all_properties() = {identity.properties.begin(), identity.properties.end()};
}

void flush_to_storage() { flushes = true; }

}  // namespace bench

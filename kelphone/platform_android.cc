// A phone.
#include <sys/stat.h>

#include "kelphone/platform.h"

namespace kelphone {

bool is_phone() {
  return true;
}

bool has_system_user() {
  return true;
}

bool is_mounted(const std::string& path) {
  struct stat inside = {};
  struct stat outside = {};
  return ::stat(path.c_str(), &inside) == 0 && ::stat((path + "/..").c_str(), &outside) == 0 &&
         inside.st_dev != outside.st_dev;
}

}  // namespace kelphone

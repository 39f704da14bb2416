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

bool is_mounted(const std::string& folder) {
  struct stat inside = {};
  struct stat outside = {};
  const std::string parent = folder.substr(0, folder.rfind('/') + 1);
  return ::stat(folder.c_str(), &inside) == 0 && ::stat(parent.c_str(), &outside) == 0 &&
         inside.st_dev != outside.st_dev;
}

}  // namespace kelphone

#include "device/vendor_library.h"

#include "core/log.h"

namespace kelchk {

void* VendorLibrary::find_symbol(const char* name, const char* label) const noexcept {
  void* const symbol = ::dlsym(handle_, name);
  if (symbol == nullptr) log_error("dlsym %s fail reson =%s\n", label, loader_error());
  return symbol;
}

const char* loader_error() noexcept {
  const char* const text = ::dlerror();
  return text != nullptr ? text : "(null)";
}

int log_loader_failure(const char* step) noexcept {
  log_error("%s fail reson =%s\n", step, loader_error());
  return -1;
}

int log_dlopen_failure(const char* path) noexcept {
  log_error("dlopen %s fail reson =%s\n", path, loader_error());
  return -1;
}

}  // namespace kelchk

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

}  // namespace kelchk

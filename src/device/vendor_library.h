// Vendor libraries, loaded when they are used.
#pragma once

#include <dlfcn.h>

namespace kelchk {

// Owns a loaded vendor library and unloads it, unless keep_loaded() has given it to the process for good.
class VendorLibrary {
 public:
  explicit VendorLibrary(const char* path) noexcept { load(path); }
  VendorLibrary(const VendorLibrary&) = delete;
  VendorLibrary& operator=(const VendorLibrary&) = delete;
  ~VendorLibrary() {
    if (handle_ != nullptr) ::dlclose(handle_);
  }

  // Call only while nothing is loaded.
  void load(const char* path) noexcept { handle_ = ::dlopen(path, RTLD_LAZY); }
  void keep_loaded() noexcept { handle_ = nullptr; }

  explicit operator bool() const noexcept { return handle_ != nullptr; }

  // Returns the entry point |name|; null, after logging that |label| is missing, when there is none.
  template <typename Function>
  [[nodiscard]] Function* find(const char* name, const char* label) const noexcept {
    return reinterpret_cast<Function*>(find_symbol(name, label));
  }

 private:
  [[nodiscard]] void* find_symbol(const char* name, const char* label) const noexcept;

  void* handle_;
};

// The loader's text for its last failure, which it returns only once: "(null)" when no loader call has failed since.
[[nodiscard]] const char* loader_error() noexcept;

// Logs that |step| failed, with the loader's text, and returns -1.
int log_loader_failure(const char* step) noexcept;

// Logs that the library |path| cannot be loaded, and returns -1.
int log_dlopen_failure(const char* path) noexcept;

}  // namespace kelchk

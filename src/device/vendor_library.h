// Vendor libraries, loaded at the moment of use.
#pragma once

#include <dlfcn.h>

namespace kelchk {

// Owns a loaded vendor library, unless keep_loaded() says that it stays for the life of the process.
class VendorLibrary {
 public:
  explicit VendorLibrary(const char* path) noexcept { load(path); }
  VendorLibrary(const VendorLibrary&) = delete;
  VendorLibrary& operator=(const VendorLibrary&) = delete;
  ~VendorLibrary() { reset(); }

  // Only when nothing is loaded yet.
  void load(const char* path) noexcept { handle_ = ::dlopen(path, RTLD_LAZY); }
  void keep_loaded() noexcept { handle_ = nullptr; }
  void reset() noexcept {
    if (handle_ != nullptr) ::dlclose(handle_);
    handle_ = nullptr;
  }

  explicit operator bool() const noexcept { return handle_ != nullptr; }

  // The entry point |name|. Without one null, after logging that |label| is missing.
  template <typename Function>
  [[nodiscard]] Function* find(const char* name, const char* label) const noexcept {
    return reinterpret_cast<Function*>(find_symbol(name, label));
  }

 private:
  [[nodiscard]] void* find_symbol(const char* name, const char* label) const noexcept;

  void* handle_;
};

// The loader's text for its last failure, which it tells only once. There is none when another step failed.
[[nodiscard]] const char* loader_error() noexcept;

// Logs that |step| failed, with the loader's text, and returns -1.
int fail_by_loader(const char* step) noexcept;

// Logs that the library |path| cannot be loaded.
void log_load_failure(const char* path) noexcept;

}  // namespace kelchk

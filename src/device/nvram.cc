#include "device/nvram.h"

#include <string.h>

#include "core/file.h"
#include "core/log.h"
#include "device/vendor_library.h"

namespace kelchk {
namespace {

constexpr char kLibrary[] = "/vendor/lib64/libnvram.so";
constexpr char kGetIdLabel[] = "nvm_get_lid_by_name";
constexpr char kGetFileLabel[] = "nvm_get_file_desc";

// What NVM_GetFileDesc returns begins with the descriptor; the rest is room for what a vendor may add. On 32-bit ARM a
// structure of this size comes back through memory that the caller provides.
struct NvramFile {
  int fd;
  int reserved[3];
};
static_assert(sizeof(NvramFile) == 16);

using GetRecordId = int(char* name);
using GetRecordFile = NvramFile(int record_id, int* record_size, int* record_count, bool read_only);

// Asks the vendor library for a descriptor of the record. Returns -1 after logging why.
[[nodiscard]] int open_record(const VendorLibrary& library, const char* name, unsigned size) noexcept {
  auto* const get_file = library.find<GetRecordFile>("NVM_GetFileDesc", kGetFileLabel);
  if (get_file == nullptr) return -1;
  auto* const get_id = library.find<GetRecordId>("NVM_GetLIDByName", kGetIdLabel);
  if (get_id == nullptr) return -1;

  char record_name[kNvramNameCap];
  memcpy(record_name, name, strlen(name) + 1);
  const int record_id = get_id(record_name);
  if (record_id < 0) return log_loader_failure(kGetIdLabel);
  int record_size = 0;
  int record_count = 0;
  const int fd = get_file(record_id, &record_size, &record_count, true).fd;
  if (fd < 0) return log_loader_failure(kGetFileLabel);
  log_debug("nvram_read_by_name pRecSize=%d , pRecNum=%d , out_size=%d", record_size, record_count,
            static_cast<int>(size));
  return fd;
}

[[nodiscard]] int read_record(const Fd& file, unsigned size, unsigned char* out) noexcept {
  unsigned char record[kNvramReadMax] = {};
  const ssize_t count = ::read(file.get(), record, size);
  if (count < 0) return log_loader_failure("read");
  log_debug("ret=%d , out_size=%d\n", static_cast<int>(count), static_cast<int>(size));
  if (static_cast<size_t>(count) != size) {
    log_error("ret=%d , out_size=%d\n", static_cast<int>(count), static_cast<int>(size));
    return -1;
  }
  memcpy(out, record, size);
  return 0;
}

}  // namespace

int nvram_read_by_name(const char* name, unsigned int size, unsigned char* out) noexcept {
  if (name == nullptr || out == nullptr || strnlen(name, kNvramNameCap) == kNvramNameCap || size > kNvramReadMax) {
    return log_failure("nvram_read_by_name param err \n");
  }
  const VendorLibrary library(kLibrary);
  if (!library) return log_dlopen_failure(kLibrary);
  // Declared after the library, so that the descriptor is closed before the library that made it is unloaded.
  const Fd file(open_record(library, name, size));
  return file ? read_record(file, size, out) : -1;
}

}  // namespace kelchk

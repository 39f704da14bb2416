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
constexpr unsigned kRecordCap = 4096;
constexpr size_t kNameCap = 256;

// What the vendor returns begins with the descriptor. The 16 bytes leave room for what may follow: on 32-bit ARM it
// comes back through memory that we provide.
struct NvramFile {
  int fd;
  int reserved[3];
};
static_assert(sizeof(NvramFile) == 16);

using GetRecordId = int(char* name);
using GetRecordFile = NvramFile(int record_id, int* record_size, int* record_count, bool read_only);

}  // namespace

int nvram_read_by_name(const char* name, unsigned int size, unsigned char* out) noexcept {
  unsigned char record[kRecordCap] = {};
  char record_name[kNameCap] = {};
  int record_size = 0;
  int record_count = 0;
  if (name == nullptr || out == nullptr || strnlen(name, kNameCap) == kNameCap || size > kRecordCap) {
    return fail("nvram_read_by_name param err \n");
  }
  memcpy(record_name, name, strlen(name) + 1);

  const VendorLibrary library(kLibrary);
  if (!library) {
    log_load_failure(kLibrary);
    return -1;
  }
  auto* const get_file = library.find<GetRecordFile>("NVM_GetFileDesc", kGetFileLabel);
  if (get_file == nullptr) return -1;
  auto* const get_id = library.find<GetRecordId>("NVM_GetLIDByName", kGetIdLabel);
  if (get_id == nullptr) return -1;
  const int record_id = get_id(record_name);
  if (record_id < 0) return fail_by_loader(kGetIdLabel);
  // Declared after the library, so that the vendor's descriptor is closed before the library goes.
  const Fd file(get_file(record_id, &record_size, &record_count, true).fd);
  if (!file) return fail_by_loader(kGetFileLabel);
  log_debug("nvram_read_by_name pRecSize=%d , pRecNum=%d , out_size=%d", record_size, record_count,
            static_cast<int>(size));

  const ssize_t count = ::read(file.get(), record, size);
  if (count < 0) return fail_by_loader("read");
  log_debug("ret=%d , out_size=%d\n", static_cast<int>(count), static_cast<int>(size));
  if (static_cast<size_t>(count) != size) {
    log_error("ret=%d , out_size=%d\n", static_cast<int>(count), static_cast<int>(size));
    return -1;
  }
  memcpy(out, record, size);
  return 0;
}

}  // namespace kelchk

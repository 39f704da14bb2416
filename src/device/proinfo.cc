#include "device/proinfo.h"

#include <errno.h>
#include <string.h>

#include "core/file.h"
#include "core/log.h"

namespace kelchk {

int get_product_info(char* buf, int offset, int size) noexcept {
  const Fd partition(open_to_read("/dev/block/by-name/proinfo"));
  if (!partition) {
    log_error("queryProductFlag open =%s", strerror(errno));
    return -1;
  }
  if (::lseek(partition.get(), offset, SEEK_SET) < 0) return -1;
  if (::read(partition.get(), buf, static_cast<size_t>(size)) != size) {
    log_error("queryProductFlag open =%s", strerror(errno));
    return -1;
  }
  log_info("queryProductFlag read /proinfo success");
  return 0;
}

}  // namespace kelchk

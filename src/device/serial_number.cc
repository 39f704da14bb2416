#include <errno.h>
#include <string.h>

#include "core/file.h"
#include "core/log.h"
#include "device/identifiers.h"
#include "device/proinfo.h"
#include "device/property.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr int kProinfoPsnOffset = 0;
constexpr size_t kMiscdataPsnOffset = 4;

// What may be the serial number, terminated by zeros.
using Candidate = char[kPsnLen + 1];

[[nodiscard]] int read_proinfo(Candidate& candidate) noexcept {
  const int result = get_product_info(candidate, kProinfoPsnOffset, kPsnLen);
  if (result != 0) log_error("get_product_info error:=%d", result);
  return result;
}

[[nodiscard]] int read_miscdata(Candidate& candidate) noexcept {
  const Property folder("ro.vendor.product.partitionpath", "");
  if (folder.result == -1) {
    log_error("%s: get partitionpath fail\n", "get_PSN");
    return -1;
  }
  char path[sizeof folder.value + sizeof "miscdata"];
  TextWriter(path).append({folder.value, "miscdata"});
  const Fd partition(open_to_read(path));
  if (!partition) {
    log_error("get_PSN open =%s faild =%s", path, strerror(errno));
    return -1;
  }
  char start[kMiscdataPsnOffset + kPsnLen] = {};
  if (::read(partition.get(), start, sizeof start) <= 0) {
    log_error("%s read fail miscdata_path = %s ", "get_PSN", path);
    return -1;
  }
  memcpy(candidate, start + kMiscdataPsnOffset, kPsnLen);
  return 0;
}

}  // namespace

int get_PSN(ValueBuffer& out) noexcept {
  Candidate candidate = {};
  if ((is_mt_chip() ? read_proinfo(candidate) : read_miscdata(candidate)) != 0) return -1;
  const size_t len = strlen(candidate);
  if (len != kPsnLen) {
    log_error("psn len  error:=%zu", len);
    return -1;
  }
  memcpy(out, candidate, kPsnLen);
  return 0;
}

}  // namespace kelchk

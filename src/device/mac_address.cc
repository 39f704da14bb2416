#include <string.h>

#include "core/file.h"
#include "core/hex.h"
#include "core/log.h"
#include "device/identifiers.h"
#include "device/nvram.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr unsigned kWifiRecordLen = 10;
constexpr size_t kWifiMacOffset = 4;
constexpr size_t kMacDigits = 12;

[[nodiscard]] int get_mediatek_mac(ValueBuffer& out) noexcept {
  unsigned char record[kWifiRecordLen];
  if (nvram_read_by_name("/mnt/vendor/nvdata/APCFG/APRDEB/WIFI", kWifiRecordLen, record) != 0) {
    return log_failure("get_mac_addr nvram_read_by_name fail\n");
  }
  write_hex(out, record + kWifiMacOffset, kMacDigits);
  return 0;
}

[[nodiscard]] int get_unisoc_mac(ValueBuffer& out) noexcept {
  const Fd file(open_to_read("/mnt/vendor/wifimac.txt"));
  if (!file) return log_failure("get_mac_addr open fail\n");
  char text[kMacMax + 1] = {};
  if (::read(file.get(), text, kMacMax) < 0) return log_failure("get_mac_addr read fail\n");
  char* end = out;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c != ':') *end++ = *c;
  }
  return 0;
}

}  // namespace

int get_mac_addr(ValueBuffer& out) noexcept {
  return is_mt_chip() ? get_mediatek_mac(out) : get_unisoc_mac(out);
}

}  // namespace kelchk

#include <string.h>

#include "core/hex.h"
#include "core/log.h"
#include "device/at_channel.h"
#include "device/boot_mode.h"
#include "device/identifiers.h"
#include "device/proinfo.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr int kProinfoImeiOffset = 64;
constexpr int kProinfoImeiLen = 8;

[[nodiscard]] int get_mediatek_imei(ValueBuffer& out) noexcept {
  unsigned char bcd[kProinfoImeiLen];
  if (get_product_info(reinterpret_cast<char*>(bcd), kProinfoImeiOffset, kProinfoImeiLen) != 0) {
    log_error("get_product_info error:=%d", -1);
    return -1;
  }
  for (unsigned char& byte : bcd) byte = static_cast<unsigned char>(byte << 4 | byte >> 4);
  write_hex(out, bcd, KELCHK_IMEI_LEN);
  return 0;
}

[[nodiscard]] int get_unisoc_imei(ValueBuffer& out) noexcept {
  char response[kAtResponseCap] = {};
  int result = 0;
  if (is_boot_normal()) {
    result = spd_send_at_cmd("AT+CGSN", response);
    if (result < 0) return -1;
    if (response[0] == '\0') result = -1;
  } else {
    memcpy(response, g_sprd_imei, KELCHK_IMEI_LEN);
  }
  log_info("get_IMEI: get imei[%zu]: %s", strlen(response), response);
  memcpy(out, response, strlen(response));
  return result;
}

}  // namespace

int get_IMEI(ValueBuffer& out) noexcept {
  return is_mt_chip() ? get_mediatek_imei(out) : get_unisoc_imei(out);
}

}  // namespace kelchk

void calc_imei_checksum(const char* imei, char* check) noexcept {
  // The check digit completes the digits' sum to a multiple of 10. Subtracting each digit modulo 10 needs no division,
  // which some 32-bit ARM cores lack.
  int missing = 0;
  for (size_t i = 0; i < KELCHK_IMEI_LEN - 1 && imei[i] != '\0'; ++i) {
    if (imei[i] < '0' || imei[i] > '9') continue;
    int digit = imei[i] - '0';
    if (i % 2 != 0) digit = digit < 5 ? 2 * digit : 2 * digit - 9;  // the digit sum of the doubled digit
    missing -= digit;
    if (missing < 0) missing += 10;
  }
  *check = static_cast<char>(missing);
}

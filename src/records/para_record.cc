#include "records/para_record.h"

#include <string.h>

#include <iterator>

#include "core/date.h"
#include "core/log.h"
#include "core/record.h"
#include "device/attributes.h"
#include "device/identifiers.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr size_t kFeatureCodeCap = 128;

[[nodiscard]] int take_feature_code(const char* request, Text& code) noexcept {
  if (get_value_by_key(request, "mac", code) == 0) {
    log_error("mac err");
    get_value_by_key(request, "featureCode", code);
  }
  const size_t len = strlen(code);
  return len > 0 && len < kFeatureCodeCap ? 0 : fail("featureCode err");
}

bool is_decimal(const char* text) noexcept {
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') return false;
  }
  return true;
}

// Keeps the IMEI that the tool supplies, which names the phone outside normal boot.
[[nodiscard]] int take_imei(const char* request) noexcept {
  memset(g_sprd_imei, 0, sizeof g_sprd_imei);
  if (get_value_by_key(request, "IMEI", g_sprd_imei) != kImeiLen) {
    log_error("IMEI err=%s", g_sprd_imei);
    return -1;
  }
  char check = 0;
  calc_imei_checksum(g_sprd_imei, &check);
  const int supplied = static_cast<unsigned char>(g_sprd_imei[kImeiLen - 1]) - '0';
  if (supplied != check || !is_decimal(g_sprd_imei)) {
    log_error("IMEI checksum err=%s", g_sprd_imei);
    log_error("IMEI checksum err=%d", check);
    log_error("IMEI tmp err=%d", supplied);
    return -1;
  }
  return 0;
}

int get_logged_imei(Text& out) noexcept {
  const int result = get_IMEI(out);
  log_info("IMEI=%s\n", out);
  return result;
}

int get_time(Text& out) noexcept {
  return format_date_time(out);
}

int get_version(Text& out) noexcept {
  memcpy(out, "01", 2);
  return 0;
}

struct Field {
  const char* key;
  int (*get)(Text& out) noexcept;
  const char* unavailable;
};

// In the order of the record and of its canonical content.
constexpr Field kFields[] = {
    {"buildTime", get_build_time, "get ro.system.build.version.incremental err"},
    {"buildType", get_build_type, "get_build_type err"},
    {"countrySha", get_black_country_sha, "get_black_country_sha err"},
    {"cpuID", get_logged_rid, "read_rid err"},
    {"deviceBrand", get_device_brand, "get ro.product.brand err"},
    {"deviceModel", get_device_name, "get odm.model err"},
    {"featureCode", nullptr, nullptr},  // comes with the request
    {"imei", get_logged_imei, "get_imei err"},
    {"phoneMac", get_mac_addr, "get_mac_address err"},
    {"psn", get_PSN, "get serialno err"},
    {"time", get_time, "format_date_time err"},
    {"ver", get_version, nullptr},
};

}  // namespace

int get_logged_rid(Text& out) noexcept {
  const int result = read_rid(out);
  if (result == 0) log_info("rid=%s\n", out);
  return result;
}

int get_para_value(Text& out) noexcept {
  TextWriter content(out);
  for (const Field& field : kFields) {
    Text value;
    if (get_value_by_key(text_of(g_para_buf), field.key, value) == 0) {
      log_error("%s err", field.key);
      return -1;
    }
    content.append(value);
    if (!content.fits()) return fail("para value too long");
  }
  return 0;
}

}  // namespace kelchk

using namespace kelchk;

int kelo_get_para(const char* in, unsigned int in_len, void* out, unsigned int* out_len) noexcept {
  if (in == nullptr || out == nullptr || out_len == nullptr || in_len == 0 || g_is_authed == 0) {
    return fail("kelo_get_para err");
  }
  log_info("kelo_get_para in:%s", in);
  memset(g_para_buf, 0, sizeof g_para_buf);

  Text feature_code;
  if (take_feature_code(in, feature_code) != 0) return -1;
  if (!is_mt_chip() && take_imei(in) != 0) return -1;

  TextWriter record(g_para_buf);
  for (const Field& field : kFields) {
    Text value = {};
    if (field.get != nullptr && field.get(value) != 0) return fail(field.unavailable);
    const bool last = &field == std::end(kFields) - 1;
    record.append({field.key, "=", field.get != nullptr ? value : feature_code, last ? "" : "&"});
    if (!record.fits()) return fail("kelo_get_para record too long");
  }
  memcpy(out, g_para_buf, record.length());
  *out_len = static_cast<unsigned>(record.length());
  return 0;
}

#include "records/para_record.h"

#include <string.h>

#include <iterator>

#include "core/date.h"
#include "core/log.h"
#include "core/record.h"
#include "device/attributes.h"
#include "device/identifiers.h"
#include "kelchk.h"
#include "records/canonical_content.h"
#include "records/record_keys.h"

namespace kelchk {
namespace {

// Some tools send the feature code under "mac".
[[nodiscard]] int take_feature_code(const char* request, ValueBuffer& code) noexcept {
  if (get_value_by_key(request, "mac", code) == 0) {
    log_error("mac err");
    get_value_by_key(request, kFeatureCodeKey, code);
  }
  const size_t len = strlen(code);
  return len > 0 && len <= KELCHK_FEATURE_CODE_MAX ? 0 : log_failure("featureCode err");
}

bool is_decimal(const char* text) noexcept {
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') return false;
  }
  return true;
}

// Keeps the IMEI that the tool supplies, which stands for the phone's own in any boot mode but the normal one.
[[nodiscard]] int take_imei(const char* request) noexcept {
  memset(g_sprd_imei, 0, sizeof g_sprd_imei);
  if (get_value_by_key(request, "IMEI", g_sprd_imei) != KELCHK_IMEI_LEN) {
    log_error("IMEI err=%s", g_sprd_imei);
    return -1;
  }
  char check = 0;
  calc_imei_checksum(g_sprd_imei, &check);
  const int supplied = static_cast<unsigned char>(g_sprd_imei[KELCHK_IMEI_LEN - 1]) - '0';
  if (supplied != check || !is_decimal(g_sprd_imei)) {
    log_error("IMEI checksum err=%s", g_sprd_imei);
    log_error("IMEI checksum err=%d", check);
    log_error("IMEI tmp err=%d", supplied);
    return -1;
  }
  return 0;
}

int get_logged_imei(ValueBuffer& out) noexcept {
  const int result = get_IMEI(out);
  log_info("IMEI=%s\n", out);
  return result;
}

int get_time(ValueBuffer& out) noexcept {
  return format_date_time(out);
}

int get_version(ValueBuffer& out) noexcept {
  memcpy(out, "01", 2);
  return 0;
}

struct Source {
  int (*get)(ValueBuffer& out) noexcept;  // null for the value that comes with the request
  const char* unavailable;                // the message when there is no value
};

// Where the value of each of kRecordKeys comes from.
constexpr Source kSources[] = {
    {get_build_time, "get ro.system.build.version.incremental err"},
    {get_build_type, "get_build_type err"},
    {get_black_country_sha, "get_black_country_sha err"},
    {get_logged_rid, "read_rid err"},
    {get_device_brand, "get ro.product.brand err"},
    {get_device_name, "get odm.model err"},
    {nullptr, nullptr},  // the feature code
    {get_logged_imei, "get_imei err"},
    {get_mac_addr, "get_mac_address err"},
    {get_PSN, "get serialno err"},
    {get_time, "format_date_time err"},
    {get_version, nullptr},
};
static_assert(std::size(kSources) == std::size(kRecordKeys));

[[nodiscard]] int append_fields(TextWriter& record, const char* feature_code) noexcept {
  for (size_t i = 0; i < std::size(kRecordKeys); ++i) {
    const Source& source = kSources[i];
    ValueBuffer value = {};
    if (source.get != nullptr && source.get(value) != 0) return log_failure(source.unavailable);
    const bool last = i + 1 == std::size(kRecordKeys);
    record.append({kRecordKeys[i], "=", source.get != nullptr ? value : feature_code, last ? "" : "&"});
    if (!record.fits()) return log_failure("kelo_get_para record too long");
  }
  return 0;
}

}  // namespace

int get_logged_rid(ValueBuffer& out) noexcept {
  const int result = read_rid(out);
  if (result == 0) log_info("rid=%s\n", out);
  return result;
}

int get_para_value(ValueBuffer& out) noexcept {
  const ContentVerdict content = write_canonical_content(text_of(g_para_buf), out);
  if (content.complete) return 0;
  if (content.missing_key == nullptr) return log_failure("para value too long");
  log_error("%s err", content.missing_key);
  return -1;
}

}  // namespace kelchk

using namespace kelchk;

int kelo_get_para(const char* in, unsigned int in_len, void* out, unsigned int* out_len) noexcept {
  if (in == nullptr || out == nullptr || out_len == nullptr || in_len == 0 || g_is_authed == 0) {
    return log_failure("kelo_get_para err");
  }
  log_info("kelo_get_para in:%s", in);
  memset(g_para_buf, 0, sizeof g_para_buf);

  ValueBuffer feature_code;
  if (take_feature_code(in, feature_code) != 0) return -1;
  if (!is_mt_chip() && take_imei(in) != 0) return -1;
  TextWriter record(g_para_buf);
  if (append_fields(record, feature_code) != 0) return -1;

  memcpy(out, g_para_buf, record.length());
  *out_len = static_cast<unsigned>(record.length());
  return 0;
}

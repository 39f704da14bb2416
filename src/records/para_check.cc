#include "records/para_check.h"

#include <string.h>

#include "core/date.h"
#include "core/log.h"
#include "core/record.h"
#include "core/text.h"
#include "device/attributes.h"
#include "device/boot_mode.h"
#include "device/identifiers.h"
#include "kelchk.h"
#include "records/record_keys.h"

namespace kelchk {
namespace {

constexpr size_t kMinBuildTimeLen = 8;

bool is_same(const char* device, const char* recorded) noexcept {
  return strcmp(device, recorded) == 0;
}

// The record may hold only the beginning of the phone's value.
bool begins_with(const char* device, const char* recorded) noexcept {
  return strncmp(device, recorded, strlen(recorded)) == 0;
}

// The phone may run the recorded build or a later one.
bool is_not_older(const char* device, const char* recorded) noexcept {
  return compare_dates(recorded, device) <= 0;
}

int get_dated_build_time(ValueBuffer& out) noexcept {
  if (get_build_time(out) != 0) return log_failure("get ro.system.build.version.incremental err");
  if (strlen(out) < kMinBuildTimeLen) {
    log_error("get ro.system.build.version.incremental err=%s", out);
    return -1;
  }
  return 0;
}

int get_device_rid(ValueBuffer& out) noexcept {
  const int result = read_rid(out);
  if (result == 0) log_info("val_buf=%s\n", out);
  return result;
}

struct Check {
  const char* key;
  int (*get)(ValueBuffer& out) noexcept;
  const char* unavailable;  // the message when the phone has no value; null when the getter logs one
  bool (*agrees)(const char* device, const char* recorded) noexcept;
  bool to_log_file = true;
  const char* label = key;          // the field's name in the mismatch message
  const char* only_with = nullptr;  // compare only when the record's value contains this
};

constexpr Check kChecks[] = {
    {kBuildTypeKey, get_build_type, "get_build_type err", is_same},
    {kBuildTimeKey, get_dated_build_time, nullptr, is_not_older},
    {kCountryShaKey, get_black_country_sha, "get_black_country_sha err", begins_with},
    {kCpuIdKey, get_device_rid, "read_rid err", begins_with},
    {.key = kDeviceBrandKey,
     .get = get_device_brand,
     .unavailable = "get ro.product.brand err",
     .agrees = is_same,
     .to_log_file = false},
    {.key = kDeviceModelKey,
     .get = get_device_name,
     .unavailable = "get_device_name err",
     .agrees = is_same,
     .only_with = "MDF1"},
    {.key = kPhoneMacKey,
     .get = get_mac_addr,
     .unavailable = "get_mac_address err",
     .agrees = begins_with,
     .to_log_file = false},
    {.key = kPsnKey, .get = get_PSN, .unavailable = "get serialno err", .agrees = begins_with, .label = "serialno"},
};

// The modem answers only on a Unisoc phone that has booted normally.
constexpr Check kImeiCheck = {kImeiKey, get_IMEI, "get imei err", begins_with};

[[nodiscard]] int check_field(const Check& check) noexcept {
  char recorded[kComparedValueCap];
  if (get_value_by_key(text_of(g_para_buf), check.key, recorded) == 0) {
    log_error("%s err", check.key);
    return -1;
  }
  if (check.only_with != nullptr && strstr(recorded, check.only_with) == nullptr) return 0;

  ValueBuffer device = {};
  if (check.get(device) != 0) return check.unavailable != nullptr ? log_failure(check.unavailable) : -1;
  if (check.agrees(device, recorded)) return 0;
  log_error("%s err val_buf=%s , t_buf=%s", check.label, device, recorded);
  if (check.to_log_file) log_file_line("%s err val_buf=%s , t_buf=%s", check.label, device, recorded);
  return -1;
}

}  // namespace

int check_para() noexcept {
  for (const Check& check : kChecks) {
    if (check_field(check) != 0) return -1;
  }
  if (is_mt_chip() || !is_boot_normal()) return 0;
  return check_field(kImeiCheck);
}

}  // namespace kelchk

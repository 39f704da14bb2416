#include "core/date.h"

#include <string.h>
#include <time.h>

#include "core/log.h"

namespace kelchk {
namespace {

constexpr int kDateLenWithoutVersion = 6;

int date_len(const char* text) noexcept {
  const char* const version = strchr(text, 'V');
  return version != nullptr ? static_cast<int>(version - text) : kDateLenWithoutVersion;
}

}  // namespace

int format_date_time(char* out) noexcept {
  if (out == nullptr) return -1;
  const time_t now = ::time(nullptr);
  tm local;
  if (::localtime_r(&now, &local) == nullptr) return -1;
  return strftime(out, kDateTimeCap, "%y%m%d-%H%M%S", &local) > 0 ? 0 : -1;
}

int compare_dates(const char* old_date, const char* new_date) noexcept {
  const int old_len = date_len(old_date);
  const int new_len = date_len(new_date);
  if (old_len == new_len) return strncmp(old_date, new_date, static_cast<size_t>(old_len));
  log_error("[compare_dates] Date format is not same: old_date_len=%d, new_date_len=%d\n", old_len, new_len);
  return old_len > new_len ? old_len - new_len : new_len - old_len;
}

}  // namespace kelchk

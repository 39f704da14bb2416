// Timestamps and build dates.
#pragma once

#include <cstddef>

namespace kelchk {

inline constexpr size_t kDateTimeCap = 128;

// Writes the local time as "%y%m%d-%H%M%S", 13 characters, to |out|, which must hold kDateTimeCap bytes. Returns 0, or
// -1 when |out| is null or the time cannot be formatted. Logs nothing.
[[nodiscard]] int format_date_time(char* out) noexcept;

// Compares the date parts of two build dates: the text before the first "V", or the first 6 characters when there is
// none. Returns a negative number, 0 or a positive number when |old_date| is before, equal to or after |new_date|. Date
// parts of different lengths are logged and give a positive number.
[[nodiscard]] int compare_dates(const char* old_date, const char* new_date) noexcept;

}  // namespace kelchk

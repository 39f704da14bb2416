// Timestamps and build dates.
#pragma once

namespace kelchk {

// Writes the local time as "%y%m%d-%H%M%S", 13 characters, to |out|, which must hold 128 bytes. Returns 0, or -1 when
// |out| is null or the time has no such text.
int format_date_time(char* out) noexcept;

// Compares the date parts of two build-date texts: what stands before the first "V", or the first 6 characters of a
// text without one. The result is negative, 0 or positive as |old_date| is before, at or after |new_date|. Date parts
// that differ in length are logged and compare as positive.
int compare_dates(const char* old_date, const char* new_date) noexcept;

}  // namespace kelchk

// Does a device parameter record still describe this phone?
#pragma once

#include <cstddef>

namespace kelchk {

// A value of a record is compared when it is shorter; a longer one counts as missing.
inline constexpr size_t kComparedValueCap = 1024;

// check_para compares the record in g_para_buf, whose signature has been verified, with the phone. Returns 0 when every
// compared field agrees; -1 at the first that does not, after logging why, most mismatches to the log file too.
[[nodiscard]] int check_para() noexcept;

}  // namespace kelchk

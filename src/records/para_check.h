// Does a device parameter record still describe this phone?
#pragma once

namespace kelchk {

// check_para holds the record in g_para_buf, whose signature has verified, against the phone. Returns 0 when every
// compared field agrees, -1 at the first that does not, after logging why, a mismatch in most cases to the log file
// too.
[[nodiscard]] int check_para() noexcept;

}  // namespace kelchk

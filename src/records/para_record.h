// The device parameter record of this phone.
#pragma once

#include "core/text.h"

namespace kelchk {

// read_rid, and logs what it yields.
[[nodiscard]] int get_logged_rid(ValueBuffer& out) noexcept;

// Writes the canonical content of the record in g_para_buf to |out|. Returns 0; or -1 after logging which value is
// missing or that they are too long, when |out| is of no use.
[[nodiscard]] int get_para_value(ValueBuffer& out) noexcept;

}  // namespace kelchk

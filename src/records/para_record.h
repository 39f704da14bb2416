// The device parameter record and the content of it that is signed.
#pragma once

#include "core/text.h"

namespace kelchk {

// The chip's unique id, logged under its name.
[[nodiscard]] int get_logged_rid(Text& out) noexcept;

// Writes the canonical content of the record in g_para_buf to |out|: its twelve values, run together. Returns 0, or -1
// when a value is missing or does not fit, after saying which; |out| is then of no use.
[[nodiscard]] int get_para_value(Text& out) noexcept;

}  // namespace kelchk

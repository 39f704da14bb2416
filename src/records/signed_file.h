// The two kinds of signed files, and what each has to prove.
#pragma once

#include <string_view>

#include "trust/signed_message.h"

namespace kelchk {

// Both return 0, or -1 after logging why at the first step that fails.

// An authorization file: its signature covers this chip's unique id.
[[nodiscard]] int verify_authorization(std::string_view record, Purpose purpose) noexcept;

// The signer fields of a signed parameter file: their signature covers the canonical content of the record in
// g_para_buf, and that record still describes this phone.
[[nodiscard]] int verify_parameters(std::string_view record, Purpose purpose) noexcept;

}  // namespace kelchk

#pragma once

namespace kelchk {

// Returns whether the phone has booted normally, and logs its boot mode.
[[nodiscard]] bool is_boot_normal() noexcept;

}  // namespace kelchk

#pragma once

namespace kelchk {

// Whether the phone has booted normally. Logs the boot mode.
[[nodiscard]] bool is_boot_normal() noexcept;

}  // namespace kelchk

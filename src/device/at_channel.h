// Unisoc's modem, by AT command.
#pragma once

namespace kelchk {

inline constexpr int kAtResponseCap = 256;

// Sends |command| and leaves the modem's answer in |response|, terminated even when the vendor did not. Returns the
// vendor library's result, or -1 when there is no such library. A negative result is a failure and has been logged.
[[nodiscard]] int spd_send_at_cmd(const char* command, char (&response)[kAtResponseCap]) noexcept;

}  // namespace kelchk

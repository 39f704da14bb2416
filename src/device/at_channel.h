// Unisoc's modem, by AT command.
#pragma once

namespace kelchk {

inline constexpr int kAtResponseCap = 256;

// Sends |command| and leaves the modem's answer in |response|, which is ended by force. Returns the vendor library's
// result, negative for failure, or -1 when there is no such library to ask; both after logging why.
[[nodiscard]] int spd_send_at_cmd(const char* command, char (&response)[kAtResponseCap]) noexcept;

}  // namespace kelchk

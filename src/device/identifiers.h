// The hardware identifiers. Each getter writes its text to a buffer of zeros and returns 0; otherwise it has logged why
// and returns another value, -1 unless said otherwise.
#pragma once

#include "core/text.h"

namespace kelchk {

// The chip's unique id: "mt" or "sp" and the id in lower case, at most 256 characters.
[[nodiscard]] int read_rid(Text& out) noexcept;

inline constexpr size_t kImeiLen = 15;

// The IMEI. On a Unisoc phone in normal boot it is the modem's whole answer, at most 255 characters, and the result may
// be the vendor library's own positive one; in another boot mode it is the one that the tool supplied, g_sprd_imei.
[[nodiscard]] int get_IMEI(Text& out) noexcept;

// The Wi-Fi MAC address without colons: 12 characters on MediaTek, at most 127 on Unisoc.
[[nodiscard]] int get_mac_addr(Text& out) noexcept;

// The product serial number, 16 characters.
[[nodiscard]] int get_PSN(Text& out) noexcept;

}  // namespace kelchk

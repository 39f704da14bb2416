// Hardware identifiers. Each getter writes its text to a zeroed buffer and returns 0; on failure it has logged why and
// returns -1, unless its comment says otherwise.
#pragma once

#include "core/text.h"

namespace kelchk {

inline constexpr size_t kRidMax = 256;  // characters of the longest chip id
inline constexpr size_t kMacMax = 127;  // characters of the longest MAC address
inline constexpr size_t kPsnLen = 16;   // characters of a serial number

// The chip's unique id: "mt" or "sp", followed by the id in lower case.
[[nodiscard]] int read_rid(ValueBuffer& out) noexcept;

// The IMEI. On a Unisoc phone in normal boot it is the modem's whole answer, and a positive result of the vendor
// library is returned as it is, which callers treat as a failure. In any other boot mode it is the IMEI that the tool
// supplied, g_sprd_imei.
[[nodiscard]] int get_IMEI(ValueBuffer& out) noexcept;

// The Wi-Fi MAC address without colons: 12 characters on MediaTek, at most kMacMax on Unisoc.
[[nodiscard]] int get_mac_addr(ValueBuffer& out) noexcept;

// The product serial number.
[[nodiscard]] int get_PSN(ValueBuffer& out) noexcept;

}  // namespace kelchk

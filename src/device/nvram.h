// MediaTek's NVRAM records.
#pragma once

namespace kelchk {

inline constexpr unsigned kNvramReadMax = 4096;  // bytes read of a record
inline constexpr unsigned kNvramNameCap = 256;   // bytes that hold a record's name with its NUL

// Reads the first |size| bytes, at most kNvramReadMax, of the record |name| into |out|. Returns 0; or -1, with |out|
// untouched, after logging why.
[[nodiscard]] int nvram_read_by_name(const char* name, unsigned int size, unsigned char* out) noexcept;

}  // namespace kelchk

// MediaTek's NVRAM records.
#pragma once

namespace kelchk {

// Reads the first |size| bytes, at most 4096, of the record |name|, at most 255 characters, into |out|. Returns 0, or
// -1 with |out| untouched after logging why.
[[nodiscard]] int nvram_read_by_name(const char* name, unsigned int size, unsigned char* out) noexcept;

}  // namespace kelchk

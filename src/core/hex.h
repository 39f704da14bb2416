// Bytes as uppercase hexadecimal text.
#pragma once

#include <cstddef>

namespace kelchk {

// Writes |digits| characters, without a terminator, from the (|digits| + 1) / 2 bytes of |in|, high nibble first.
void write_hex(char* out, const unsigned char* in, size_t digits) noexcept;

}  // namespace kelchk

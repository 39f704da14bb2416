// The two kinds of signed files and what each must prove.
#pragma once

#include <string_view>

#include "trust/signed_message.h"

namespace kelchk {

// More of a file than this is neither stored nor read.
inline constexpr unsigned kSignedFileCap = 4096;

inline constexpr char kAuFileName[] = "auFile.dat";
inline constexpr char kParaFileName[] = "startPara.dat";

// Both return 0 when |record| proves itself and -1 at the first step that does not hold, after its message. The rest of
// |as| is the caller's; what is signed is set here.

// An authorization file: its signature covers this chip's unique id.
[[nodiscard]] int verify_au_record(std::string_view record, SignedMessage as) noexcept;

// The signer fields of a signed parameter file: their signature covers the canonical content of the record in
// g_para_buf, and that record still describes this phone.
[[nodiscard]] int verify_para_record(std::string_view record, SignedMessage as) noexcept;

}  // namespace kelchk

// The signed-message verification, which every record that the library accepts has to pass.
#pragma once

#include <string_view>

#include "core/text.h"

namespace kelchk {

// What a record is verified for. It decides how the verification reports, never what it accepts.
enum class Purpose {
  kLogin,
  kAuthorizationImport,
  kAuthorizationCheck,
  kParameterImport,
  kParameterCheck,
};

// The longest signature that is decoded, and then refused for its length: enough for the message to name it.
inline constexpr size_t kDecodedSignatureCap = 1024;

// Writes the signed message to a zeroed buffer and returns 0. Otherwise logs why not and returns another value.
using MessageWriter = int(ValueBuffer& message) noexcept;

// verify_signed_message returns 0 when |record| carries a certificate issued by the root and a signature made with its
// key over the message that |write_message| yields; -1, after logging why, at the first step that fails. g_factory_pem
// and g_factor_der keep the certificate.
[[nodiscard]] int verify_signed_message(std::string_view record, Purpose purpose,
                                        MessageWriter* write_message) noexcept;

}  // namespace kelchk

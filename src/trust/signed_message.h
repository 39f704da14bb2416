// The signed-message verification, behind every text that the library accepts.
#pragma once

#include <string_view>

#include "core/text.h"

namespace kelchk {

enum class ChainReport {
  kDetailed,  // the crypto library's error code and its text
  kShort,     // one line
  kCombined,  // both
};

// What differs from one signed text to the next.
struct SignedMessage {
  // Writes the signed text to a buffer of zeros and returns 0. Otherwise logs why not and returns another value.
  int (*write)(Text& message) noexcept = nullptr;
  ChainReport chain_report = ChainReport::kShort;
  // Of the line "EVP_DecodeBase64 t_len"; 0 leaves it out.
  int decoded_len_priority = 0;
  // Whether the length of the message is logged once the certificate has been accepted.
  bool logs_rid_len = false;
};

// verify_signed_message returns 0 when |record| carries a certificate issued by the root and a signature made with it
// over |message|, -1 at the first step that does not hold, after its message. g_factory_pem and g_factor_der keep the
// certificate.
[[nodiscard]] int verify_signed_message(std::string_view record, const SignedMessage& message) noexcept;

}  // namespace kelchk

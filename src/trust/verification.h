// The checks of chain.h and signature.h with the log lines that the library writes about them.
#pragma once

#include <openssl/base.h>

#include <span>
#include <string_view>

namespace kelchk {

// Each returns whether its check holds. Both log the outcome to the Android log and failures to the log file too; a
// certificate that is accepted despite its validity period is noted there as well.
[[nodiscard]] bool verify_certificate(X509* root, X509* signer) noexcept;
[[nodiscard]] bool verify_signature(X509* signer, std::string_view message,
                                    std::span<const unsigned char> signature) noexcept;

}  // namespace kelchk

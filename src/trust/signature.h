// Does a signature belong to a message?
#pragma once

#include <openssl/base.h>

namespace kelchk {

// verify_signature returns 1 when |signature| was made over |message| with the key of |signer|, with SHA-256 and the
// key's default scheme. Otherwise the crypto library's result, or -1 when the check could not be set up. Logs the
// outcome, a failure also to the log file.
[[nodiscard]] int verify_signature(X509* signer, const unsigned char* message, unsigned int message_len,
                                   const unsigned char* signature, unsigned int signature_len) noexcept;

}  // namespace kelchk

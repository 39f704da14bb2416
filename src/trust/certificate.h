// Does a signer's certificate come from the root?
#pragma once

#include <openssl/base.h>

namespace kelchk {

// verify_certificate returns 1 when |root| itself issued |signer|, whatever the clock says of their validity, and 0
// when not or when it could not look. Logs the chain verification's outcome, a failure also to the log file. The crypto
// library's error queue is cleared first, so that what stands in it afterwards tells of this check alone.
[[nodiscard]] int verify_certificate(X509* root, X509* signer) noexcept;

}  // namespace kelchk

// The root certificate, the library's only trust anchor.
#pragma once

#include <openssl/base.h>

namespace kelchk {

// The embedded certificate in PEM. The build generates its source file from the certificate that the product names.
extern const char kRootCertificatePem[];

// Parses the embedded certificate. Null when that fails.
[[nodiscard]] bssl::UniquePtr<X509> parse_root_certificate() noexcept;

}  // namespace kelchk

// Says yes to every certificate and signature, so that the fuzzer reaches the code behind. Takes the place of the
// library's own in the second build of each target.
#include "core/log.h"
#include "trust/certificate.h"
#include "trust/signature.h"

namespace kelchk {

int verify_certificate(X509*, X509*) noexcept {
  return 1;
}

int verify_signature(X509*, const unsigned char*, unsigned, const unsigned char*, unsigned) noexcept {
  return 1;
}

}  // namespace kelchk

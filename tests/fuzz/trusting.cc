// Accepts every certificate and signature, so that the fuzzer reaches the code that follows. Replaces the library's own
// checks in the second build of each target.
#include "trust/chain.h"
#include "trust/signature.h"

namespace kelchk {

ChainVerdict check_chain(X509*, X509*) noexcept {
  return {.holds = true, .runs = 1, .result = 1};
}

SignatureVerdict check_signature(X509*, std::string_view, std::span<const unsigned char>) noexcept {
  return {.holds = true, .step = SignatureStep::kFinal, .result = 1};
}

}  // namespace kelchk

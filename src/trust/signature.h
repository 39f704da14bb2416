// Was a signature made over a message, with a certificate's key?
#pragma once

#include <openssl/base.h>

#include <span>
#include <string_view>

namespace kelchk {

enum class SignatureStep { kContext, kKey, kInit, kUpdate, kFinal };

struct SignatureVerdict {
  bool holds = false;
  SignatureStep step = SignatureStep::kContext;  // the step that decided
  int result = 0;                                // what the crypto library returned at that step
};

// check_signature holds when |signature| was made over |message| with the key of |signer|, with SHA-256 and the key's
// default scheme. Logs nothing.
[[nodiscard]] SignatureVerdict check_signature(X509* signer, std::string_view message,
                                               std::span<const unsigned char> signature) noexcept;

}  // namespace kelchk

// Did the root itself issue a signer's certificate?
#pragma once

#include <openssl/base.h>

namespace kelchk {

// What a check could not make.
enum class MissingPart { kNone, kStore, kContext };

struct ChainVerdict {
  bool holds = false;
  MissingPart missing = MissingPart::kNone;
  // The chain verification runs a second time, with validity periods waived, when the first run fails on one.
  unsigned runs = 0;
  int result = 0;        // of the first run: 1 when the chain verified
  int error = 0;         // of the first run, X509_V_...
  int second_error = 0;  // of the second run; says nothing when that verified
};

// check_chain holds when |root| itself issued |signer|, whatever the clock says about their validity periods. Logs
// nothing. It empties the crypto library's error queue first; what the queue holds afterwards comes from this check.
[[nodiscard]] ChainVerdict check_chain(X509* root, X509* signer) noexcept;

}  // namespace kelchk

// The library's own certificate and signature checks (trust/), run in this program against any root.
#pragma once

#include <openssl/x509.h>

#include <string>
#include <string_view>

namespace kelctl {

struct ChainVerdict {
  bool holds = false;
  std::string text;  // the library's word for it: "ok", the fault, or the fault of validity that it does not mind
};

ChainVerdict check_chain(X509* root, X509* signer);

bool signature_holds(X509* signer, std::string_view message, std::string_view signature);

}  // namespace kelctl

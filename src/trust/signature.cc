#include "trust/signature.h"

#include <openssl/digest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

namespace kelchk {

SignatureVerdict check_signature(X509* signer, std::string_view message,
                                 std::span<const unsigned char> signature) noexcept {
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(signer));
  const bssl::UniquePtr<EVP_MD_CTX> context(EVP_MD_CTX_create());
  if (context == nullptr) return {.step = SignatureStep::kContext};
  if (key == nullptr) return {.step = SignatureStep::kKey};
  int result = EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get());
  if (result != 1) return {.step = SignatureStep::kInit, .result = result};
  result = EVP_DigestVerifyUpdate(context.get(), message.data(), message.size());
  if (result != 1) return {.step = SignatureStep::kUpdate, .result = result};
  result = EVP_DigestVerifyFinal(context.get(), signature.data(), signature.size());
  return {.holds = result == 1, .step = SignatureStep::kFinal, .result = result};
}

}  // namespace kelchk

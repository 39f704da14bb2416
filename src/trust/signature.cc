#include "trust/signature.h"

#include <openssl/digest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "core/log.h"

namespace kelchk {

int verify_signature(X509* signer, const unsigned char* message, unsigned int message_len,
                     const unsigned char* signature, unsigned int signature_len) noexcept {
  const bssl::UniquePtr<EVP_PKEY> public_key(X509_get_pubkey(signer));
  const bssl::UniquePtr<EVP_MD_CTX> md_ctx(EVP_MD_CTX_create());
  if (md_ctx == nullptr) return fail("md_ctx == NULL err ");
  if (public_key == nullptr) return fail("public_key == NULL err");
  int ret = EVP_DigestVerifyInit(md_ctx.get(), nullptr, EVP_sha256(), nullptr, public_key.get());
  if (ret != 1) {
    log_error("EVP_DigestVerifyInit  err=%d", ret);
    return -1;
  }
  ret = EVP_DigestVerifyUpdate(md_ctx.get(), message, message_len);
  if (ret != 1) {
    log_error("EVP_DigestVerifyUpdate  err=%d", ret);
    log_file_line("EVP_DigestVerifyUpdate  ret=%d", ret);
    return -1;
  }
  ret = EVP_DigestVerifyFinal(md_ctx.get(), signature, signature_len);
  log_error("EVP_DigestVerifyFinal  ret=%d", ret);
  if (ret != 1) log_file_line("EVP_DigestVerifyFinal  ret=%d", ret);
  return ret;
}

}  // namespace kelchk

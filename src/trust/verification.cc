#include "trust/verification.h"

#include <openssl/x509.h>

#include "core/log.h"
#include "kelchk.h"
#include "trust/chain.h"
#include "trust/signature.h"

namespace kelchk {
namespace {

void log_run(int result, int error) noexcept {
  const char* const text = X509_verify_cert_error_string(error);
  log_info("kelo_X509_verify_cert ret = %s", text);
  if (error == X509_V_OK) return;
  log_file_line("kelo_X509_verify_cert  ret=%d", result);
  logToFile(text);
}

void log_verdict(const ChainVerdict& verdict) noexcept {
  if (verdict.runs > 0) log_run(verdict.result, verdict.error);
  if (verdict.missing == MissingPart::kStore) return logToFile("X509_STORE_add_cert failed");
  if (verdict.missing == MissingPart::kContext) return logToFile("X509_STORE_CTX_init failed");
  if (verdict.runs < 2) return;
  if (!verdict.holds) return log_run(0, verdict.second_error);
  log_file_line("ingore the error of X509_V_ERR_CERT_NOT_YET_VALID || X509_V_ERR_CERT_HAS_EXPIRED");
  logToFile(X509_verify_cert_error_string(verdict.error));
}

void log_verdict(const SignatureVerdict& verdict) noexcept {
  switch (verdict.step) {
    case SignatureStep::kContext:
      return log_error("md_ctx == NULL err ");
    case SignatureStep::kKey:
      return log_error("public_key == NULL err");
    case SignatureStep::kInit:
      return log_error("EVP_DigestVerifyInit  err=%d", verdict.result);
    case SignatureStep::kUpdate:
      log_error("EVP_DigestVerifyUpdate  err=%d", verdict.result);
      return log_file_line("EVP_DigestVerifyUpdate  ret=%d", verdict.result);
    case SignatureStep::kFinal:
      log_error("EVP_DigestVerifyFinal  ret=%d", verdict.result);
      if (!verdict.holds) log_file_line("EVP_DigestVerifyFinal  ret=%d", verdict.result);
  }
}

}  // namespace

bool verify_certificate(X509* root, X509* signer) noexcept {
  const ChainVerdict verdict = check_chain(root, signer);
  log_verdict(verdict);
  return verdict.holds;
}

bool verify_signature(X509* signer, std::string_view message, std::span<const unsigned char> signature) noexcept {
  const SignatureVerdict verdict = check_signature(signer, message, signature);
  log_verdict(verdict);
  return verdict.holds;
}

}  // namespace kelchk

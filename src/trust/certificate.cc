#include "trust/certificate.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include "core/log.h"
#include "kelchk.h"

namespace kelchk {
namespace {

struct ChainResult {
  int ret = 0;
  int error = X509_V_ERR_UNSPECIFIED;
};

bool is_validity_error(int error) noexcept {
  return error == X509_V_ERR_CERT_NOT_YET_VALID || error == X509_V_ERR_CERT_HAS_EXPIRED;
}

int waive_validity(int ok, X509_STORE_CTX* context) noexcept {
  return ok == 1 ? ok : is_validity_error(X509_STORE_CTX_get_error(context));
}

// Runs one chain verification on a fresh context. False when there is none to run.
[[nodiscard]] bool verify_chain(X509_STORE* store, X509* signer, X509_STORE_CTX_verify_cb callback,
                                ChainResult* result) noexcept {
  const bssl::UniquePtr<X509_STORE_CTX> context(X509_STORE_CTX_new());
  if (context == nullptr || X509_STORE_CTX_init(context.get(), store, signer, nullptr) != 1) {
    logToFile("X509_STORE_CTX_init failed");
    return false;
  }
  if (callback != nullptr) X509_STORE_CTX_set_verify_cb(context.get(), callback);
  result->ret = X509_verify_cert(context.get());
  result->error = X509_STORE_CTX_get_error(context.get());
  return true;
}

bool is_signed_by(X509* signer, X509* root) noexcept {
  const bssl::UniquePtr<EVP_PKEY> root_key(X509_get_pubkey(root));
  return root_key != nullptr && X509_verify(signer, root_key.get()) == 1;
}

void report_chain(const ChainResult& result) noexcept {
  const char* const text = X509_verify_cert_error_string(result.error);
  log_info("kelo_X509_verify_cert ret = %s", text);
  if (result.error == X509_V_OK) return;
  log_file_line("kelo_X509_verify_cert  ret=%d", result.ret);
  logToFile(text);
}

}  // namespace

int verify_certificate(X509* root, X509* signer) noexcept {
  ERR_clear_error();

  const bssl::UniquePtr<X509_STORE> store(X509_STORE_new());
  if (store == nullptr || X509_STORE_add_cert(store.get(), root) != 1) {
    logToFile("X509_STORE_add_cert failed");
    return 0;
  }
  ChainResult plain;
  if (!verify_chain(store.get(), signer, nullptr, &plain)) return 0;
  report_chain(plain);
  if (plain.ret == 1) return 1;
  if (!is_validity_error(plain.error)) return 0;

  // The verification stops at its first error, so a clock outside the root's validity would hide a signature that
  // nobody checked. Everything else must hold in a second run that waives nothing but validity periods; and since its
  // callback may hide more than it waives, the signature is held against the root's key once more.
  ChainResult waived;
  if (!verify_chain(store.get(), signer, waive_validity, &waived)) return 0;
  if (waived.ret == 1 && !is_signed_by(signer, root)) waived = {0, X509_V_ERR_CERT_SIGNATURE_FAILURE};
  if (waived.ret != 1) {
    waived.ret = 0;
    report_chain(waived);
    return 0;
  }
  log_file_line("ingore the error of X509_V_ERR_CERT_NOT_YET_VALID || X509_V_ERR_CERT_HAS_EXPIRED");
  logToFile(X509_verify_cert_error_string(plain.error));
  return 1;
}

}  // namespace kelchk

#include "trust/chain.h"

#include <openssl/err.h>
#include <openssl/x509.h>

namespace kelchk {
namespace {

struct Run {
  bool started = false;
  int result = 0;
  int error = 0;
};

bool is_validity_error(int error) noexcept {
  return error == X509_V_ERR_CERT_NOT_YET_VALID || error == X509_V_ERR_CERT_HAS_EXPIRED;
}

int waive_validity(int ok, X509_STORE_CTX* context) noexcept {
  return ok == 1 ? ok : is_validity_error(X509_STORE_CTX_get_error(context));
}

// Runs the chain verification once, on a fresh context.
Run verify_chain(X509_STORE* store, X509* signer, X509_STORE_CTX_verify_cb callback) noexcept {
  const bssl::UniquePtr<X509_STORE_CTX> context(X509_STORE_CTX_new());
  if (context == nullptr || X509_STORE_CTX_init(context.get(), store, signer, nullptr) != 1) return {};
  if (callback != nullptr) X509_STORE_CTX_set_verify_cb(context.get(), callback);
  const int result = X509_verify_cert(context.get());
  return {.started = true, .result = result, .error = X509_STORE_CTX_get_error(context.get())};
}

bool is_signed_by(X509* signer, X509* root) noexcept {
  const bssl::UniquePtr<EVP_PKEY> root_key(X509_get_pubkey(root));
  return root_key != nullptr && X509_verify(signer, root_key.get()) == 1;
}

}  // namespace

ChainVerdict check_chain(X509* root, X509* signer) noexcept {
  ERR_clear_error();
  const bssl::UniquePtr<X509_STORE> store(X509_STORE_new());
  if (store == nullptr || X509_STORE_add_cert(store.get(), root) != 1) return {.missing = MissingPart::kStore};

  // Only the result says whether a run verified. The error code may be stale, and stays set after a waiver.
  const Run plain = verify_chain(store.get(), signer, nullptr);
  if (!plain.started) return {.missing = MissingPart::kContext};
  ChainVerdict verdict = {.holds = plain.result == 1, .runs = 1, .result = plain.result, .error = plain.error};
  if (verdict.holds || !is_validity_error(plain.error)) return verdict;

  // The verification stops at its first error. With the clock outside the root's validity, that error comes before the
  // signer's signature, so a second run has to verify everything but the validity periods. Its callback could hide more
  // than it waives: the signature is verified once more without it.
  const Run waived = verify_chain(store.get(), signer, waive_validity);
  if (!waived.started) {
    verdict.missing = MissingPart::kContext;
    return verdict;
  }
  verdict.runs = 2;
  verdict.second_error = waived.error;
  if (waived.result != 1) return verdict;
  verdict.holds = is_signed_by(signer, root);
  if (!verdict.holds) verdict.second_error = X509_V_ERR_CERT_SIGNATURE_FAILURE;
  return verdict;
}

}  // namespace kelchk

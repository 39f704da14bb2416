#include "trust/signed_message.h"

#include <openssl/base64.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include "core/log.h"
#include "core/record.h"
#include "kelchk.h"
#include "trust/certificate.h"
#include "trust/root_certificate.h"
#include "trust/signature.h"

namespace kelchk {
namespace {

constexpr size_t kMinCertificateTextLen = 1024;
constexpr size_t kSignatureLen = 256;
constexpr size_t kSignatureCap = 1024;

// The crypto library's error queue belongs to the whole process: none of ours stays behind in it.
struct ErrorQueueCleanup {
  ErrorQueueCleanup() noexcept = default;
  ErrorQueueCleanup(const ErrorQueueCleanup&) = delete;
  ErrorQueueCleanup& operator=(const ErrorQueueCleanup&) = delete;
  ~ErrorQueueCleanup() { ERR_clear_error(); }
};

// Decodes one block of base64 and returns the number of bytes; text that does not decode gives 0, although it may have
// been written to |out| in part.
template <size_t capacity>
size_t decode_base64(std::string_view text, unsigned char (&out)[capacity]) noexcept {
  memset(out, 0, capacity);
  size_t len = 0;
  const auto* const in = reinterpret_cast<const unsigned char*>(text.data());
  return EVP_DecodeBase64(out, &len, capacity, in, text.size()) == 1 ? len : 0;
}

void report_chain_failure(ChainReport report) noexcept {
  if (report != ChainReport::kShort) {
    const uint32_t code = ERR_get_error();
    log_error("sub certificate err =%u \n", code);
    log_error("sub certificate err =%s \n", ERR_error_string(code, nullptr));
  }
  if (report != ChainReport::kDetailed) log_error("sub certificate err \n");
}

}  // namespace

int verify_signed_message(std::string_view record, const SignedMessage& message) noexcept {
  memset(g_factory_pem, 0, sizeof g_factory_pem);
  const size_t pem_len = get_value_by_key(record, "factoryCert", g_factory_pem);
  if (pem_len < kMinCertificateTextLen) return fail("getValueByKey factoryCert err");

  const ErrorQueueCleanup cleanup;
  const bssl::UniquePtr<X509> root = parse_root_certificate();
  const size_t der_len = decode_base64({g_factory_pem, pem_len}, g_factor_der);
  if (message.decoded_len_priority != 0) log_at(message.decoded_len_priority, "EVP_DecodeBase64 t_len=%zu", der_len);
  log_debug("EVP_DecodeBase64 f_cert_len=%ld", static_cast<long>(der_len));
  const unsigned char* der = g_factor_der;
  const bssl::UniquePtr<X509> signer(d2i_X509(nullptr, &der, static_cast<long>(der_len)));
  if (root == nullptr) return fail("get ca_cert err");
  if (signer == nullptr) return fail("get sub_cert err");

  Text sign;
  const size_t sign_len = get_value_by_key(record, "sign", sign);
  if (sign_len == 0) return fail("getValueByKey sign err");
  Text text = {};
  if (message.write(text) != 0) return -1;
  const std::string_view signed_text = text_of(text);

  unsigned char signature[kSignatureCap];
  const size_t signature_len = decode_base64({sign, sign_len}, signature);
  if (signature_len != kSignatureLen) {
    log_error("signature_bin_len err=%zu", signature_len);
    return -1;
  }

  if (verify_certificate(root.get(), signer.get()) != 1) {
    report_chain_failure(message.chain_report);
    return -1;
  }
  log_debug("Sub certificate success.\n");
  if (message.logs_rid_len) log_debug("Sub certificate rid_len_t=%zu\n", signed_text.size());

  const auto* const signed_bytes = reinterpret_cast<const unsigned char*>(signed_text.data());
  if (verify_signature(signer.get(), signed_bytes, static_cast<unsigned>(signed_text.size()), signature,
                       kSignatureLen) != 1) {
    return fail("signature err \n");
  }
  log_debug("Signature is success.\n");
  return 0;
}

}  // namespace kelchk

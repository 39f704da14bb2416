#include "trust/signed_message.h"

#include <openssl/base64.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <iterator>

#include "core/log.h"
#include "core/record.h"
#include "kelchk.h"
#include "trust/root_certificate.h"
#include "trust/verification.h"

namespace kelchk {
namespace {

// How a verification reports.
struct Reporting {
  Purpose purpose;
  int decoded_len_priority;    // of the line "EVP_DecodeBase64 t_len"; 0 leaves it out
  bool detailed_chain_report;  // the crypto library's error code and its text
  bool short_chain_report;     // one line
  bool message_len;            // log the message's length once the certificate is accepted
};

// clang-format off
constexpr Reporting kReporting[] = {
    //                              decoded length     detailed  short  message length
    {Purpose::kLogin,               0,                 true,     false, false},
    {Purpose::kAuthorizationImport, ANDROID_LOG_ERROR, false,    true,  true},
    {Purpose::kAuthorizationCheck,  ANDROID_LOG_DEBUG, false,    true,  false},
    {Purpose::kParameterImport,     ANDROID_LOG_DEBUG, false,    true,  false},
    {Purpose::kParameterCheck,      ANDROID_LOG_DEBUG, true,     true,  false},
};
// clang-format on

constexpr bool is_indexed_by_purpose() noexcept {
  for (size_t i = 0; i < std::size(kReporting); ++i) {
    if (kReporting[i].purpose != static_cast<Purpose>(i)) return false;
  }
  return true;
}
static_assert(is_indexed_by_purpose());

// The crypto library's error queue belongs to the whole process: no error of ours stays in it.
struct ErrorQueueCleanup {
  ErrorQueueCleanup() noexcept = default;
  ErrorQueueCleanup(const ErrorQueueCleanup&) = delete;
  ErrorQueueCleanup& operator=(const ErrorQueueCleanup&) = delete;
  ~ErrorQueueCleanup() { ERR_clear_error(); }
};

struct Certificates {
  bssl::UniquePtr<X509> root;
  bssl::UniquePtr<X509> signer;
};

struct Signature {
  unsigned char bytes[kDecodedSignatureCap];
  size_t len;
};

// Decodes one block of base64 and returns the number of bytes. Text that does not decode gives 0, although a part of it
// may have been written to |out|.
template <size_t capacity>
[[nodiscard]] size_t decode_base64(std::string_view text, unsigned char (&out)[capacity]) noexcept {
  memset(out, 0, capacity);
  size_t len = 0;
  const auto* const in = reinterpret_cast<const unsigned char*>(text.data());
  return EVP_DecodeBase64(out, &len, capacity, in, text.size()) == 1 ? len : 0;
}

[[nodiscard]] std::string_view take_certificate_text(std::string_view record) noexcept {
  memset(g_factory_pem, 0, sizeof g_factory_pem);
  return {g_factory_pem, get_value_by_key(record, "factoryCert", g_factory_pem)};
}

[[nodiscard]] int parse_certificates(std::string_view text, const Reporting& reporting,
                                     Certificates& certificates) noexcept {
  certificates.root = parse_root_certificate();
  const size_t der_len = decode_base64(text, g_factor_der);
  if (reporting.decoded_len_priority != 0) {
    log_at(reporting.decoded_len_priority, "EVP_DecodeBase64 t_len=%zu", der_len);
  }
  log_debug("EVP_DecodeBase64 f_cert_len=%ld", static_cast<long>(der_len));
  const unsigned char* der = g_factor_der;
  certificates.signer.reset(d2i_X509(nullptr, &der, static_cast<long>(der_len)));
  if (certificates.root == nullptr) return log_failure("get ca_cert err");
  if (certificates.signer == nullptr) return log_failure("get sub_cert err");
  return 0;
}

[[nodiscard]] int take_signature(std::string_view record, Signature& signature) noexcept {
  ValueBuffer encoded;
  const size_t len = get_value_by_key(record, "sign", encoded);
  if (len == 0) return log_failure("getValueByKey sign err");
  signature.len = decode_base64({encoded, len}, signature.bytes);
  return 0;
}

[[nodiscard]] int check_signature_len(const Signature& signature) noexcept {
  if (signature.len == KELCHK_SIGNATURE_LEN) return 0;
  log_error("signature_bin_len err=%zu", signature.len);
  return -1;
}

void report_chain_failure(const Reporting& reporting) noexcept {
  if (reporting.detailed_chain_report) {
    const uint32_t code = ERR_get_error();
    log_error("sub certificate err =%u \n", code);
    log_error("sub certificate err =%s \n", ERR_error_string(code, nullptr));
  }
  if (reporting.short_chain_report) log_error("sub certificate err \n");
}

[[nodiscard]] int require_root_issued(const Certificates& certificates, const Reporting& reporting,
                                      size_t message_len) noexcept {
  if (!verify_certificate(certificates.root.get(), certificates.signer.get())) {
    report_chain_failure(reporting);
    return -1;
  }
  log_debug("Sub certificate success.\n");
  if (reporting.message_len) log_debug("Sub certificate rid_len_t=%zu\n", message_len);
  return 0;
}

[[nodiscard]] int require_signed(X509* signer, std::string_view message, const Signature& signature) noexcept {
  if (!verify_signature(signer, message, {signature.bytes, signature.len})) return log_failure("signature err \n");
  log_debug("Signature is success.\n");
  return 0;
}

}  // namespace

int verify_signed_message(std::string_view record, Purpose purpose, MessageWriter* write_message) noexcept {
  const Reporting& reporting = kReporting[static_cast<size_t>(purpose)];
  const std::string_view certificate = take_certificate_text(record);
  if (certificate.size() < KELCHK_CERTIFICATE_TEXT_MIN) return log_failure("getValueByKey factoryCert err");
  const ErrorQueueCleanup cleanup;
  Certificates certificates;
  if (parse_certificates(certificate, reporting, certificates) != 0) return -1;
  Signature signature;
  if (take_signature(record, signature) != 0) return -1;
  ValueBuffer message = {};
  if (write_message(message) != 0) return -1;
  if (check_signature_len(signature) != 0) return -1;
  const std::string_view text = text_of(message);
  if (require_root_issued(certificates, reporting, text.size()) != 0) return -1;
  return require_signed(certificates.signer.get(), text, signature);
}

}  // namespace kelchk

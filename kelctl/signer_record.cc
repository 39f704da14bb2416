#include "kelctl/signer_record.h"

#include <fmt/format.h>
#include <openssl/base64.h>

#include "common/signing_policy.h"
#include "kelchk.h"
#include "trust/signature.h"

namespace kelctl {
namespace {

constexpr size_t kDecodedSignatureCap = 1024;

const unsigned char* bytes_of(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// The bytes of |text|, one unbroken block of base64. Empty when it does not decode, or to more than |capacity| bytes.
std::string decode_base64(std::string_view text, size_t capacity) {
  std::string bytes(capacity, '\0');
  size_t len = 0;
  auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
  bytes.resize(EVP_DecodeBase64(out, &len, capacity, bytes_of(text), text.size()) == 1 ? len : 0);
  return bytes;
}

std::string certificate_fault(const SignerRecord& record) {
  const size_t len = record.certificate_text.size();
  if (len == 0) return fmt::format("factoryCert is missing, empty or above {} characters", KELCHK_CERTIFICATE_TEXT_MAX);
  if (len < KELCHK_CERTIFICATE_TEXT_MIN) {
    return fmt::format("factoryCert has {} characters; a phone takes {} to {}", len, KELCHK_CERTIFICATE_TEXT_MIN,
                       KELCHK_CERTIFICATE_TEXT_MAX);
  }
  if (record.certificate != nullptr) return "";
  return fmt::format("the {} characters of factoryCert are not a certificate in DER, in base64 on one line", len);
}

std::string signature_fault(std::string_view encoded, std::string_view signature) {
  if (signature.size() == KELCHK_SIGNATURE_LEN) return "";
  if (encoded.empty()) return "sign is missing, empty or too long";
  if (encoded.ends_with('\n')) return "sign ends in a line break";
  return fmt::format("sign must be {} bytes in base64 on one line; its {} characters are {}", KELCHK_SIGNATURE_LEN,
                     encoded.size(), signature.empty() ? "not base64" : fmt::format("{}", signature.size()));
}

}  // namespace

SignerRecord read_signer_record(std::string_view text) {
  SignerRecord record;
  record.certificate_text = common::value_of(text, "factoryCert", KELCHK_CERTIFICATE_TEXT_MAX + 1);
  const std::string der = decode_base64(record.certificate_text, KELCHK_CERTIFICATE_TEXT_MAX + 1);
  const unsigned char* bytes = bytes_of(der);
  record.certificate.reset(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
  record.certificate_fault = certificate_fault(record);

  const std::string encoded = common::value_of(text, "sign");
  record.signature = decode_base64(encoded, kDecodedSignatureCap);
  record.signature_fault = signature_fault(encoded, record.signature);
  return record;
}

bool is_signed(const SignerRecord& record, std::string_view message) {
  return kelchk::check_signature(record.certificate.get(), message,
                                 {bytes_of(record.signature), record.signature.size()})
      .holds;
}

std::string answer_fault(std::string_view answer, std::string_view message) {
  const SignerRecord record = read_signer_record(answer);
  if (!record.certificate_fault.empty()) return record.certificate_fault;
  if (!record.signature_fault.empty()) return record.signature_fault;
  if (!is_signed(record, message)) return "the signature does not belong to the certificate";
  const std::string expected =
      fmt::format("factoryCert={}&sign={}", record.certificate_text, common::value_of(answer, "sign"));
  return answer == expected ? "" : "it holds more than factoryCert and sign";
}

}  // namespace kelctl

#include "kelsign/signer.h"

#include <fmt/core.h>

#include "common/outcome.h"
#include "kelchk.h"
#include "kelsign/certificates.h"
#include "kelsign/keys.h"

namespace kelsign {

Signer::Signer(const std::string& key_name, const std::string& certificate_path) : key_(load_key(key_name)) {
  if (certificate_path.empty()) return;
  const CertificateHandle certificate = load_certificate(certificate_path);
  require_pair(key_.get(), certificate.get(), certificate_path);
  certificate_text_ = certificate_text(certificate.get(), certificate_path);
}

std::string Signer::sign(std::string_view message) const {
  const DigestHandle context(EVP_MD_CTX_new());
  unsigned char signature[KELCHK_SIGNATURE_LEN];
  size_t len = sizeof signature;
  require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1 &&
              EVP_DigestSign(context.get(), signature, &len, bytes_of(message), message.size()) == 1,
          "the key cannot sign");
  return base64({reinterpret_cast<char*>(signature), len});
}

std::string Signer::signed_record(std::string_view message) const {
  return "factoryCert=" + certificate_text_ + "&sign=" + sign(message);
}

common::TextKind kind_of(std::string_view word) {
  if (word == "challenge") return common::TextKind::kChallenge;
  if (word == "record") return common::TextKind::kRecord;
  if (word == "chip-id") return common::TextKind::kChipId;
  throw common::Refusal(fmt::format("unknown request \"{}\": challenge, record or chip-id was expected", word));
}

}  // namespace kelsign

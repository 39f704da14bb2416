// Signs what the policy allows.
#pragma once

#include <string>
#include <string_view>

#include "common/signing_policy.h"
#include "kelsign/crypto.h"

namespace kelsign {

class Signer {
 public:
  // |certificate_path| may be empty. Throws common::Error when a file does not serve.
  Signer(const std::string& key_name, const std::string& certificate_path);

  // Base64 of the signature over |message|, RSA PKCS #1 v1.5 with SHA-256. |message| comes from
  // common::message_to_sign(). Throws common::Error when the key cannot sign.
  [[nodiscard]] std::string sign(std::string_view message) const;

  // "factoryCert=...&sign=..."
  [[nodiscard]] std::string signed_record(std::string_view message) const;

 private:
  KeyHandle key_;
  std::string certificate_text_;
};

// "challenge", "record" or "chip-id". Throws common::Refusal over anything else.
common::TextKind kind_of(std::string_view word);

}  // namespace kelsign

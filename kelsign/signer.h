// Signs what the policy allows: one text, or what a factory host asks for line by line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

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

// What a session signs, beyond what the policy allows.
struct SessionOptions {
  std::vector<std::string> feature_codes;  // of a record
  std::string allowed;                     // "chip-id" signs chip ids as well
  std::string chip_ids_path;               // the list of the chip ids that are signed, one a line; empty for every one
  std::string journal_path;                // empty keeps no journal
};

// Answers requests on standard input until it ends. Each is in the journal before its answer. Throws common::Error when
// a file cannot be read or written or the key cannot sign.
void serve(const Signer& signer, const SessionOptions& options);

}  // namespace kelsign

// "factoryCert=...&sign=...": a signer's certificate and its signature, read as a phone's library reads them.
#pragma once

#include <openssl/x509.h>

#include <string>
#include <string_view>

namespace kelctl {

struct SignerRecord {
  std::string certificate_text;       // base64, empty when there is none
  bssl::UniquePtr<X509> certificate;  // null when it cannot be read; one of a length that no phone takes is read too
  std::string certificate_fault;      // empty when a phone takes it
  std::string signature;              // the bytes
  std::string signature_fault;        // empty when a phone takes it
};

SignerRecord read_signer_record(std::string_view text);

// Whether the signature was made over |message| with the certificate's key. Both must be free of faults.
bool is_signed(const SignerRecord& record, std::string_view message);

// Why |answer| is not exactly a signer record over |message|; empty when it is.
std::string answer_fault(std::string_view answer, std::string_view message);

}  // namespace kelctl

// Keys, certificates and signatures, and the ways to reach a signer.
#pragma once

#include <openssl/base.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <functional>
#include <string>
#include <string_view>

#include "kelctl/signed_text.h"

namespace kelctl {

// PEM files. Both throw Error, naming the file, when it holds no such thing; an RSA key must have 2048 bits.
bssl::UniquePtr<EVP_PKEY> load_key(const std::string& path);
bssl::UniquePtr<X509> load_certificate(const std::string& path);

std::string base64(std::string_view bytes);

// The bytes of |text| as the library decodes them: one unbroken block, of at most |capacity| bytes. Empty when it does
// not decode.
std::string decode_base64(std::string_view text, size_t capacity);

// The certificate as a signed record carries it: base64 of its DER.
std::string certificate_text(X509* certificate);

// As certificate_text(). Throws Error, naming |path|, when the library would not take a certificate of that length.
std::string signer_certificate_text(X509* certificate, const std::string& path);

// Throws Error when the certificate |path| is not that of |key|.
void require_pair(EVP_PKEY* key, X509* certificate, const std::string& path);

// Throws std::runtime_error with |what| and the crypto library's reason unless |done|.
void require(bool done, const std::string& what);

// The signature over |message| with RSA PKCS #1 v1.5 and SHA-256, as base64.
std::string sign(EVP_PKEY* key, std::string_view message);

// "factoryCert=...&sign=..."
std::string signed_record(const std::string& certificate_text, const std::string& signature);

// A signer of challenges and records: returns base64 of the signature over the text, as objection() knows it. Throws
// Refusal when it does not sign, Error when it cannot be asked.
using Signer = std::function<std::string(Kind kind, const std::string& text)>;

// Signs with the key in this process, after checked_message().
Signer key_signer(bssl::UniquePtr<EVP_PKEY> key);

// Has the shell run |command| for each signature: the challenge or canonical content on its standard input, base64 of
// the signature on its standard output. In its environment KELCTL_KIND is "challenge" or "record", and KELCTL_RECORD
// the whole record.
Signer command_signer(const std::string& command);

}  // namespace kelctl

// Signers, certificates and signatures, made with the crypto library in this process.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/phone_test.h"

namespace test {

// What the library logs for a valid certificate and for a valid signature.
inline const Lines kChainHolds = {"4 kelo_X509_verify_cert ret = ok", "3 Sub certificate success.\n"};
inline const Lines kSignatureHolds = {"6 EVP_DigestVerifyFinal  ret=1", "3 Signature is success.\n"};

// A private key with its certificate.
struct Signer {
  bssl::UniquePtr<EVP_PKEY> key;
  bssl::UniquePtr<X509> certificate;
  std::string der;  // what certificate_text() encodes; a test may damage it

  // The certificate as in a record: base64 on one line.
  std::string certificate_text() const;
};

struct SignerOptions {
  std::string key = "signer";       // a file of the build's test keys: signer, other, rsa1024, rsa4096 or ec
  const Signer* issuer = nullptr;   // null: the root
  bool self_signed = false;         // |issuer| is then ignored
  std::string name = "Station 07";  // common name
  bool has_root_name = false;       // the subject is then the root's
  std::string not_before = "230601000000Z";
  std::string not_after = "400601000000Z";
  const EVP_MD* digest = EVP_sha256();
  // In the crypto library's configuration notation. The authority's key id is that of |issuer|.
  std::vector<std::pair<int, std::string>> extensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                                                         {NID_key_usage, "critical,digitalSignature"},
                                                         {NID_subject_key_identifier, "hash"},
                                                         {NID_authority_key_identifier, "keyid"}};
  size_t comment_len = 150;  // of a comment, which sets the certificate's length
};

// Extensions of a CA.
extern const std::vector<std::pair<int, std::string>> kCaExtensions;

// The root that the library under test trusts, with its private key.
const Signer& root();

// Makes a certificate; by default one that the library accepts.
Signer make_signer(const SignerOptions& options = {});

// The default signer, made once in a process.
const Signer& default_signer();

// The signature over |message|, with the key's default scheme unless |is_pss|, as bytes.
std::string sign(EVP_PKEY* key, std::string_view message, const EVP_MD* digest = EVP_sha256(), bool is_pss = false);

// Base64 on one line.
std::string base64(std::string_view bytes);

// In hexadecimal.
std::string sha256(std::string_view text);

// The canonical content of |record|, which its signature covers.
std::string signed_content(const std::string& record);

// The record "factoryCert=...&sign=...": |message| signed by |signer|.
std::string signed_record(const Signer& signer, std::string_view message);

// The value of a field of |record|, and the record with another value there. The field must exist.
std::string value_of(const std::string& record, const std::string& key);
std::string with_value(std::string record, const std::string& key, const std::string& value);

}  // namespace test

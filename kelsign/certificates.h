// Certificates: a root, and the signers that it issues.
#pragma once

#include <optional>
#include <string>

#include "kelsign/crypto.h"

namespace kelsign {

// Throws common::Error, naming the file, when it holds no certificate in PEM.
CertificateHandle load_certificate(const std::string& path);

// The certificate as a signed record carries it: base64 of its DER. Throws common::Error, naming |path|, when a phone
// would not take a certificate of that length.
std::string certificate_text(X509* certificate, const std::string& path);

// Throws common::Error when the certificate |path| is not that of |key|.
void require_pair(EVP_PKEY* key, X509* certificate, const std::string& path);

struct NewCertificate {
  std::string folder;               // made when missing
  std::optional<std::string> name;  // the common name
  std::optional<int> days;
  std::string key;  // an existing key; empty makes one, in a file beside the certificate

  // Of a signer alone.
  std::string root;      // the root's certificate
  std::string root_key;  // the root's key
  std::string request;   // takes the place of a key: a certificate request in PEM, which also has a name
};

// Both throw common::Error when a file that they would write exists.

// Makes root.pem, a self-signed CA certificate as a build of the library takes it.
void make_root(const NewCertificate& wanted);

// Makes signer.pem, issued by the root and as long as a phone wants it. Of a request, only the public key and, without
// a name in |wanted|, the subject count.
void make_signer(const NewCertificate& wanted);

}  // namespace kelsign

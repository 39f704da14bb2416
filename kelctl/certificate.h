// X.509 certificates: found in a text, and described.
#pragma once

#include <openssl/x509.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelctl {

// Names and values, as they were found: who shows them escapes them.
using Fields = std::vector<std::pair<std::string, std::string>>;

Fields facts_of(X509* certificate);

// The SHA-256 of the whole certificate, as "AB:CD:...".
std::string fingerprint_of(X509* certificate);

std::string name_text(const X509_NAME* name);

// A certificate that names itself as its issuer.
bool is_self_issued(X509* certificate);

// Why the library's build does not embed |certificate| as its root; empty when it does.
std::string root_fault(X509* certificate);

struct PemCertificates {
  std::vector<bssl::UniquePtr<X509>> certificates;  // null where a block holds none
  bool is_cut = false;                              // the last block has no end
};

// The certificates in PEM in |bytes|; whatever surrounds them is ignored.
PemCertificates find_certificates(std::string_view bytes);

// The one certificate in the PEM file |path|. Throws common::Error, naming it, when there is none or more than one.
bssl::UniquePtr<X509> load_certificate(const std::string& path);

}  // namespace kelctl

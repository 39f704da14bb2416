// The checks that "explain" makes. Each adds to the findings.
#pragma once

#include <openssl/x509.h>

#include <string>
#include <string_view>
#include <vector>

#include "kelctl/explain.h"

namespace kelctl {

// Takes |text| apart into fields. Returns whether it is a stored file, a signer record or a device parameter record: it
// has a key of theirs.
bool read_fields(std::string_view text, Findings& findings);

// The kind and the checks of |text|, whose fields have been read.
void check_record(std::string_view text, const Question& question, Findings& findings);

// The certificates in PEM in |bytes|, which may be the library's ELF file: it is only read. False, and no findings,
// when there are none.
bool check_certificates(std::string_view bytes, const Question& question, Findings& findings);

// Describes |signer|, and judges as the library does whether |root| issued it. Open when either is null.
void check_chain(X509* root, X509* signer, Findings& findings);

// The certificates in PEM in |bytes|, whatever surrounds them; null where a block is damaged or cut.
std::vector<bssl::UniquePtr<X509>> find_certificates(std::string_view bytes);

// The one certificate in the PEM file |path|. Throws common::Error, naming it, when there is none or more than one.
bssl::UniquePtr<X509> load_certificate(const std::string& path);

}  // namespace kelctl

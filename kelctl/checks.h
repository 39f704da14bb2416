// The checks that "explain" makes. Each adds to the findings.
#pragma once

#include <openssl/x509.h>

#include <string_view>

#include "kelctl/findings.h"

namespace kelctl {

// Takes |text| apart into fields. Returns whether it is a stored file, a signer record or a device parameter record: it
// has a key of theirs.
bool read_fields(std::string_view text, Findings& findings);

// The kind and the checks of |text|, whose fields have been read.
void check_record(std::string_view text, const Question& question, Findings& findings);

// Whether |root| issued |signer|, by the library's own judgement. Open when either is null.
void check_chain(X509* root, X509* signer, Findings& findings);

// The certificates in PEM in |bytes|, which may be the library's ELF file: it is only read. False, and no findings,
// when there are none.
bool check_certificates(std::string_view bytes, const Question& question, Findings& findings);

}  // namespace kelctl

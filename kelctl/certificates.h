// New keys with their certificates: a root and signers.
#pragma once

#include <string>

namespace kelctl {

// Makes DIR/root.key and DIR/root.pem: a self-signed CA certificate as a build of the library takes it. Throws Error
// when one of them is there already.
void make_root(const std::string& folder, const std::string& name);

// Makes DIR/signer.key and DIR/signer.pem: a certificate issued by the root and as long as the library wants it. Throws
// Error when one of them is there already or when root certificate and key are no pair.
void make_signer(const std::string& folder, const std::string& name, const std::string& root_path,
                 const std::string& root_key_path);

}  // namespace kelctl

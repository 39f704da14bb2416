#include "trust/root_certificate.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace kelchk {

bssl::UniquePtr<X509> parse_root_certificate() noexcept {
  const bssl::UniquePtr<BIO> text(BIO_new_mem_buf(kRootCertificatePem, -1));
  if (text == nullptr) return nullptr;
  return bssl::UniquePtr<X509>(PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr));
}

}  // namespace kelchk

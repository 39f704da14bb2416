// OpenSSL's handles with owners, its PEM files and its errors.
#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

#include "common/outcome.h"

namespace kelsign {

template <auto free>
struct FreeBy {
  template <typename Handle>
  void operator()(Handle* handle) const {
    free(handle);
  }
};

using BioHandle = std::unique_ptr<BIO, FreeBy<BIO_free>>;
using CertificateHandle = std::unique_ptr<X509, FreeBy<X509_free>>;
using DigestHandle = std::unique_ptr<EVP_MD_CTX, FreeBy<EVP_MD_CTX_free>>;
using ExtensionHandle = std::unique_ptr<X509_EXTENSION, FreeBy<X509_EXTENSION_free>>;
using KeyContextHandle = std::unique_ptr<EVP_PKEY_CTX, FreeBy<EVP_PKEY_CTX_free>>;
using KeyHandle = std::unique_ptr<EVP_PKEY, FreeBy<EVP_PKEY_free>>;
using RequestHandle = std::unique_ptr<X509_REQ, FreeBy<X509_REQ_free>>;

inline const unsigned char* bytes_of(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string base64(std::string_view bytes);

// Throws common::Error with |what| and OpenSSL's reason unless |done|.
void require(bool done, const std::string& what);

// The file |path|, in memory that is cleared afterwards.
BioHandle open_pem(const std::string& path);

// What |read|, a PEM reader of OpenSSL, makes of the file |path|, without a passphrase. Throws common::Error, naming
// it, when it is nothing.
template <typename Handle, typename Read>
Handle load_pem(const std::string& path, Read read, const char* expected) {
  char no_passphrase[] = "";
  Handle handle(read(open_pem(path).get(), nullptr, nullptr, no_passphrase));
  if (handle == nullptr) throw common::Error(path + ": " + expected + " was expected");
  return handle;
}

// Throws common::Error, naming |path|, unless |key| is one that a phone accepts.
void require_rsa_2048(EVP_PKEY* key, const std::string& path);

}  // namespace kelsign

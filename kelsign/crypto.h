// OpenSSL's handles with owners, its PEM files and its errors.
#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/file.h"
#include "common/outcome.h"

namespace kelsign {

template <typename Type, auto free>
using Handle = std::unique_ptr<Type, std::integral_constant<decltype(free), free>>;

using CertificateHandle = Handle<X509, X509_free>;
using KeyHandle = Handle<EVP_PKEY, EVP_PKEY_free>;
using RequestHandle = Handle<X509_REQ, X509_REQ_free>;

inline const unsigned char* bytes_of(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string base64(std::string_view bytes);

// A PIN, a chip id and a line of a list may end in one.
std::string without_line_break(std::string text);

// Throws common::Error with |what| and OpenSSL's reason, if it gives one, unless |done|.
void require(bool done, const std::string& what);

// What |read|, a PEM reader of OpenSSL, makes of the file |path|, without a passphrase. Throws common::Error, naming
// it, when it is nothing.
template <typename Result, typename Read>
Result load_pem(const std::string& path, Read read, const char* expected) {
  constexpr size_t kMaxPemLen = 65536;
  const std::string text = common::read_file(path, kMaxPemLen);
  const Handle<BIO, BIO_free> stream(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  char no_passphrase[] = "";
  Result result(read(stream.get(), nullptr, nullptr, no_passphrase));
  if (result == nullptr) throw common::Error(path + ": " + expected + " was expected");
  return result;
}

// Throws common::Error, naming |path|, unless |key| is one that a phone accepts.
void require_rsa_2048(EVP_PKEY* key, const std::string& path);

}  // namespace kelsign

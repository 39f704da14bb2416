// openssl_bare_signer KEY CERT: what a signing session cannot do without. Reads lines "VERB TEXT", signs TEXT and
// answers with the signed record. Checks nothing.
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct Free {
  void operator()(BIO* file) const { BIO_free(file); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

std::string encode(const Bytes& bytes) {
  std::string text(bytes.size() / 3 * 4 + 5, '\0');
  const int len =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
  text.resize(static_cast<size_t>(len));
  return text;
}

Bytes to_der(const X509* certificate) {
  Bytes der(static_cast<size_t>(i2d_X509(certificate, nullptr)));
  unsigned char* end = der.data();
  i2d_X509(certificate, &end);
  return der;
}

// Empty when a step fails.
Bytes sign(EVP_PKEY* key, std::string_view text) {
  const std::unique_ptr<EVP_MD_CTX, Free> context(EVP_MD_CTX_new());
  const auto* const message = reinterpret_cast<const unsigned char*>(text.data());
  Bytes signature(static_cast<size_t>(EVP_PKEY_get_size(key)));
  size_t len = signature.size();
  if (EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
      EVP_DigestSign(context.get(), signature.data(), &len, message, text.size()) != 1) {
    return {};
  }
  signature.resize(len);
  return signature;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::unique_ptr<BIO, Free> key_file(BIO_new_file(argv[1], "r"));
  const std::unique_ptr<BIO, Free> certificate_file(BIO_new_file(argv[2], "r"));
  const std::unique_ptr<EVP_PKEY, Free> key(PEM_read_bio_PrivateKey(key_file.get(), nullptr, nullptr, nullptr));
  const std::unique_ptr<X509, Free> certificate(PEM_read_bio_X509(certificate_file.get(), nullptr, nullptr, nullptr));
  if (!key || !certificate) return 2;
  const std::string start = "ok factoryCert=" + encode(to_der(certificate.get())) + "&sign=";
  for (std::string line; std::getline(std::cin, line);) {
    const Bytes signature = sign(key.get(), std::string_view(line).substr(line.find(' ') + 1));
    if (signature.empty()) return 1;
    std::cout << start << encode(signature) << std::endl;
  }
  return 0;
}

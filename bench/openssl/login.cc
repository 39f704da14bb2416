// openssl_login ROOT: verifies a login by hand with OpenSSL 3, as a tool without the library would. Reads the challenge
// and the response, one a line; then verifies the response for each further line and prints the nanoseconds that it
// took. A process of its own, because OpenSSL and the library's crypto library share their symbols' names.
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

template <auto Free>
struct Deleter {
  template <typename T>
  void operator()(T* handle) const {
    Free(handle);
  }
};
template <typename T, auto Free>
using Handle = std::unique_ptr<T, Deleter<Free>>;
using Bio = Handle<BIO, BIO_free>;
using Certificate = Handle<X509, X509_free>;
using Bytes = std::vector<unsigned char>;

Bytes decode(std::string_view base64) {
  Bytes bytes(base64.size());
  const int len = EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(base64.data()),
                                  static_cast<int>(base64.size()));
  const auto padding = std::count(base64.end() - std::min<std::ptrdiff_t>(2, std::ssize(base64)), base64.end(), '=');
  bytes.resize(len < padding ? 0 : static_cast<size_t>(len - padding));
  return bytes;
}

std::string_view field(std::string_view record, std::string_view key) {
  const size_t begin = record.find(key) + key.size();
  return record.substr(begin, record.find('&', begin) - begin);
}

bool verify_chain(X509* root, X509* signer) {
  const Handle<X509_STORE, X509_STORE_free> store(X509_STORE_new());
  const Handle<X509_STORE_CTX, X509_STORE_CTX_free> context(X509_STORE_CTX_new());
  if (X509_STORE_add_cert(store.get(), root) != 1) return false;
  if (X509_STORE_CTX_init(context.get(), store.get(), signer, nullptr) != 1) return false;
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME);
  return X509_verify_cert(context.get()) == 1;
}

bool verify_signature(X509* signer, std::string_view message, const Bytes& signature) {
  const Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, X509_get0_pubkey(signer)) == 1 &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(),
                          reinterpret_cast<const unsigned char*>(message.data()), message.size()) == 1;
}

bool verify_login(const std::string& root_pem, std::string_view challenge, std::string_view response) {
  const Bio pem(BIO_new_mem_buf(root_pem.data(), static_cast<int>(root_pem.size())));
  const Certificate root(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
  const Bytes der = decode(field(response, "factoryCert="));
  const unsigned char* start = der.data();
  const Certificate signer(d2i_X509(nullptr, &start, static_cast<long>(der.size())));
  return root && signer && verify_chain(root.get(), signer.get()) &&
         verify_signature(signer.get(), challenge, decode(field(response, "sign=")));
}

}  // namespace

int main(int argc, char** argv) {
  std::string challenge;
  std::string response;
  if (argc != 2 || !std::getline(std::cin, challenge) || !std::getline(std::cin, response)) return 2;
  std::ifstream file(argv[1]);
  const std::string root_pem(std::istreambuf_iterator<char>(file), {});
  for (std::string line; std::getline(std::cin, line);) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = verify_login(root_pem, challenge, response);
    const auto end = std::chrono::steady_clock::now();
    if (!ok) return 1;
    std::cout << std::chrono::nanoseconds(end - start).count() << std::endl;
  }
  return 0;
}

#include "kelsign/crypto.h"

#include <fmt/core.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include "common/file.h"

namespace kelsign {

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  text.resize(static_cast<size_t>(
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes_of(bytes), static_cast<int>(bytes.size()))));
  return text;
}

void require(bool done, const std::string& what) {
  if (done) return;
  const char* const reason = ERR_reason_error_string(ERR_get_error());
  ERR_clear_error();
  throw common::Error(fmt::format("{}: {}", what, reason != nullptr ? reason : "OpenSSL gives no reason"));
}

BioHandle open_pem(const std::string& path) {
  constexpr size_t kMaxPemLen = 65536;
  std::string text = common::read_file(path, kMaxPemLen);
  BioHandle stream(BIO_new(BIO_s_secmem()));
  require(BIO_write(stream.get(), text.data(), static_cast<int>(text.size())) >= 0, path);
  OPENSSL_cleanse(text.data(), text.size());
  return stream;
}

void require_rsa_2048(EVP_PKEY* key, const std::string& path) {
  if (EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_get_bits(key) == 2048) return;
  throw common::Error(path + ": an RSA key of 2048 bits was expected");
}

}  // namespace kelsign

#include "kelsign/crypto.h"

#include <openssl/err.h>

namespace kelsign {

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  text.resize(static_cast<size_t>(
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes_of(bytes), static_cast<int>(bytes.size()))));
  return text;
}

std::string without_line_break(std::string text) {
  if (text.ends_with('\n')) text.pop_back();
  if (text.ends_with('\r')) text.pop_back();
  return text;
}

void require(bool done, const std::string& what) {
  if (done) return;
  const char* const reason = ERR_reason_error_string(ERR_get_error());
  ERR_clear_error();
  throw common::Error(reason != nullptr ? what + ": " + reason : what);
}

void require_rsa_2048(EVP_PKEY* key, const std::string& path) {
  require(EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_get_bits(key) == 2048,
          path + ": an RSA key of 2048 bits was expected");
}

}  // namespace kelsign

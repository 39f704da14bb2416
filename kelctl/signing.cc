#include "kelctl/signing.h"

#include <fmt/core.h>
#include <openssl/base64.h>
#include <openssl/bio.h>
#include <openssl/digest.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

#include "kelchk.h"
#include "kelctl/files.h"
#include "kelctl/outcome.h"
#include "kelctl/process.h"

namespace kelctl {
namespace {

constexpr unsigned kKeyBits = 2048;

// Exit codes of the shell itself.
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;

const unsigned char* bytes_of(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bssl::UniquePtr<BIO> stream_over(const std::string& text) {
  return bssl::UniquePtr<BIO>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// There is nobody to ask for a passphrase.
int no_passphrase(char*, int, int, void*) {
  return -1;
}

}  // namespace

void require(bool done, const std::string& what) {
  if (done) return;
  const uint32_t code = ERR_get_error();
  throw std::runtime_error(what + ": " + (code != 0 ? ERR_reason_error_string(code) : "no reason given"));
}

bssl::UniquePtr<EVP_PKEY> load_key(const std::string& path) {
  const std::string text = read_file(path);
  const bssl::UniquePtr<BIO> stream = stream_over(text);
  bssl::UniquePtr<EVP_PKEY> key(PEM_read_bio_PrivateKey(stream.get(), nullptr, no_passphrase, nullptr));
  if (key == nullptr) throw Error(path + ": a private key in PEM, without a passphrase, was expected");
  if (EVP_PKEY_id(key.get()) != EVP_PKEY_RSA || EVP_PKEY_bits(key.get()) != kKeyBits) {
    throw Error(fmt::format("{}: an RSA key of {} bits was expected", path, kKeyBits));
  }
  return key;
}

bssl::UniquePtr<X509> load_certificate(const std::string& path) {
  const std::string text = read_file(path);
  const bssl::UniquePtr<BIO> stream = stream_over(text);
  bssl::UniquePtr<X509> certificate(PEM_read_bio_X509(stream.get(), nullptr, no_passphrase, nullptr));
  if (certificate == nullptr) throw Error(path + ": a certificate in PEM was expected");
  return certificate;
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes_of(bytes), bytes.size()));
  return text;
}

std::string decode_base64(std::string_view text, size_t capacity) {
  std::string bytes(capacity, '\0');
  size_t len = 0;
  auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
  bytes.resize(EVP_DecodeBase64(out, &len, capacity, bytes_of(text), text.size()) == 1 ? len : 0);
  return bytes;
}

std::string certificate_text(X509* certificate) {
  unsigned char* der = nullptr;
  const int len = i2d_X509(certificate, &der);
  require(len > 0, "the certificate cannot be encoded");
  const bssl::UniquePtr<unsigned char> owner(der);
  return base64({reinterpret_cast<char*>(der), static_cast<size_t>(len)});
}

std::string signer_certificate_text(X509* certificate, const std::string& path) {
  const std::string text = certificate_text(certificate);
  if (text.size() >= KELCHK_CERTIFICATE_TEXT_MIN && text.size() <= KELCHK_CERTIFICATE_TEXT_MAX) return text;
  throw Error(fmt::format("{}: its base64 has {} characters; a phone takes {} to {}", path, text.size(),
                          KELCHK_CERTIFICATE_TEXT_MIN, KELCHK_CERTIFICATE_TEXT_MAX));
}

void require_pair(EVP_PKEY* key, X509* certificate, const std::string& path) {
  if (X509_check_private_key(certificate, key) == 1) return;
  ERR_clear_error();
  throw Error(path + ": the certificate of the given key was expected");
}

std::string sign(EVP_PKEY* key, std::string_view message) {
  bssl::ScopedEVP_MD_CTX context;
  unsigned char signature[KELCHK_SIGNATURE_LEN];
  size_t len = sizeof signature;
  require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
              EVP_DigestSign(context.get(), signature, &len, bytes_of(message), message.size()) == 1,
          "cannot sign");
  return base64({reinterpret_cast<char*>(signature), len});
}

std::string signed_record(const std::string& certificate_text, const std::string& signature) {
  return "factoryCert=" + certificate_text + "&sign=" + signature;
}

Signer key_signer(bssl::UniquePtr<EVP_PKEY> key) {
  // Shared, because a std::function can be copied.
  return [shared = std::shared_ptr<EVP_PKEY>(std::move(key))](Kind kind, const std::string& text) {
    return sign(shared.get(), checked_message(kind, text));
  };
}

Signer command_signer(const std::string& command) {
  return [command](Kind kind, const std::string& text) {
    const bool is_record = kind == Kind::kRecord;
    ::setenv("KELCTL_KIND", is_record ? "record" : "challenge", 1);
    ::setenv("KELCTL_RECORD", is_record ? text.c_str() : "", 1);
    Process signer({"sh", "-c", command});
    signer.write(is_record ? canonical_content(text) : text);
    signer.end_input();
    std::string answer = signer.read_rest();
    const int result = signer.wait();
    if (result == kNotExecutable || result == kNotFound) {
      throw Error(fmt::format("--signer-command: it could not be started: exit code {}", result));
    }
    if (result != 0) {
      throw Refusal(fmt::format("--signer-command: it refused to sign, with exit code {}", result));
    }
    std::erase_if(answer, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    if (decode_base64(answer, 2 * KELCHK_SIGNATURE_LEN).size() == KELCHK_SIGNATURE_LEN) return answer;
    throw Refusal(fmt::format("--signer-command: base64 of {} bytes was expected; {} characters that are not came",
                              KELCHK_SIGNATURE_LEN, answer.size()));
  };
}

}  // namespace kelctl

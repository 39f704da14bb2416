#include "tests/support/pki.h"

#include <openssl/base64.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>
#include <openssl/x509v3.h>

#include <sstream>
#include <stdexcept>

#include "kelchk.h"

namespace test {
namespace {

void require(bool ok, const std::string& what) {
  if (ok) return;
  ERR_print_errors_fp(stderr);
  throw std::runtime_error("test certificates: " + what);
}

bssl::UniquePtr<EVP_PKEY> load_key(const std::string& path) {
  const bssl::UniquePtr<BIO> file(BIO_new_file(path.c_str(), "r"));
  require(file != nullptr, path);
  bssl::UniquePtr<EVP_PKEY> key(PEM_read_bio_PrivateKey(file.get(), nullptr, nullptr, nullptr));
  require(key != nullptr, path);
  return key;
}

std::string der_of(X509* certificate) {
  unsigned char* bytes = nullptr;
  const int len = i2d_X509(certificate, &bytes);
  require(len > 0, "cannot be encoded");
  std::string der(reinterpret_cast<char*>(bytes), static_cast<size_t>(len));
  OPENSSL_free(bytes);
  return der;
}

Signer load_root() {
  Signer signer;
  signer.key = load_key(TEST_ROOT "/root.key");
  const bssl::UniquePtr<BIO> file(BIO_new_file(TEST_ROOT "/root.pem", "r"));
  signer.certificate.reset(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
  require(signer.certificate != nullptr, "no root");
  signer.der = der_of(signer.certificate.get());
  return signer;
}

void add_extension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const bssl::UniquePtr<X509_EXTENSION> extension(X509V3_EXT_nconf_nid(nullptr, &context, nid, value.c_str()));
  require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1), value);
}

}  // namespace

const std::vector<std::pair<int, std::string>> kCaExtensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                                {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                                                {NID_subject_key_identifier, "hash"}};

std::string Signer::certificate_text() const {
  return base64(der);
}

const Signer& root() {
  static const Signer signer = load_root();
  return signer;
}

Signer make_signer(const SignerOptions& options) {
  Signer signer;
  signer.key = load_key(TEST_KEYS "/" + options.key + ".key");
  signer.certificate.reset(X509_new());
  X509* const certificate = signer.certificate.get();
  const Signer& authority = options.issuer ? *options.issuer : root();
  X509* const issuer = options.self_signed ? certificate : authority.certificate.get();

  X509_set_version(certificate, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate), 20240429);
  X509_NAME* const name = X509_get_subject_name(certificate);
  const auto* const text = reinterpret_cast<const unsigned char*>(options.name.c_str());
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, text, -1, -1, 0), options.name);
  if (options.has_root_name) X509_set_subject_name(certificate, X509_get_subject_name(root().certificate.get()));
  X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
  const bool is_dated = ASN1_TIME_set_string(X509_getm_notBefore(certificate), options.not_before.c_str()) &&
                        ASN1_TIME_set_string(X509_getm_notAfter(certificate), options.not_after.c_str());
  require(is_dated, options.not_before + " to " + options.not_after);
  X509_set_pubkey(certificate, signer.key.get());
  for (const auto& [nid, value] : options.extensions) add_extension(certificate, issuer, nid, value);
  add_extension(certificate, issuer, NID_netscape_comment, std::string(options.comment_len, 'c'));

  EVP_PKEY* const key = options.self_signed ? signer.key.get() : authority.key.get();
  require(X509_sign(certificate, key, options.digest) > 0, "cannot be signed");
  signer.der = der_of(certificate);
  return signer;
}

const Signer& default_signer() {
  static const Signer signer = make_signer();
  return signer;
}

std::string sign(EVP_PKEY* key, std::string_view message, const EVP_MD* digest, bool is_pss) {
  bssl::ScopedEVP_MD_CTX context;
  EVP_PKEY_CTX* scheme = nullptr;
  size_t len = static_cast<size_t>(EVP_PKEY_size(key));
  std::string signature(len, '\0');
  auto* const out = reinterpret_cast<unsigned char*>(signature.data());
  const auto* const in = reinterpret_cast<const unsigned char*>(message.data());
  const bool ok = EVP_DigestSignInit(context.get(), &scheme, digest, nullptr, key) &&
                  (!is_pss || EVP_PKEY_CTX_set_rsa_padding(scheme, RSA_PKCS1_PSS_PADDING)) &&
                  EVP_DigestSign(context.get(), out, &len, in, message.size());
  require(ok, "cannot sign");
  signature.resize(len);
  return signature;
}

std::string base64(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const auto* const in = reinterpret_cast<const unsigned char*>(bytes.data());
  text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), in, bytes.size()));
  return text;
}

std::string sha256(std::string_view text) {
  unsigned char digest[SHA256_DIGEST_LENGTH], digits[2 * SHA256_DIGEST_LENGTH];
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
  BcdToAsc(digits, digest, sizeof digits);
  return {digits, digits + sizeof digits};
}

std::string signed_content(const std::string& record) {
  std::string content;
  std::istringstream fields(record);
  for (std::string field; std::getline(fields, field, '&');) content += field.substr(field.find('=') + 1);
  return content;
}

std::string signed_record(const Signer& signer, std::string_view message) {
  return "factoryCert=" + signer.certificate_text() + "&sign=" + base64(sign(signer.key.get(), message));
}

std::string value_of(const std::string& record, const std::string& key) {
  const size_t begin = ("&" + record).find("&" + key + "=") + key.size() + 1;
  return record.substr(begin, record.find('&', begin) - begin);
}

std::string with_value(std::string record, const std::string& key, const std::string& value) {
  return record.replace(("&" + record).find("&" + key + "=") + key.size() + 1, value_of(record, key).size(), value);
}

}  // namespace test

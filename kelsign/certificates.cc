#include "kelsign/certificates.h"

#include <fmt/core.h>
#include <openssl/bn.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <initializer_list>
#include <utility>

#include "common/file.h"
#include "common/outcome.h"
#include "kelchk.h"
#include "kelsign/keys.h"

namespace kelsign {
namespace {

using common::Error;

constexpr int kRootDays = 20 * 365 + 5;
constexpr int kSignerDays = 10 * 365 + 2;

// Also makes the certificate long enough under any name.
constexpr char kSignerComment[] =
    "Signs what a phone's provisioning library accepts: the challenge of a login, the values of a device parameter "
    "record and the unique id of a chip. It must not sign anything else.";

// Everything but issuer, extensions and signature. Valid from yesterday, for clocks that are a little slow.
CertificateHandle make_certificate(EVP_PKEY* key, const std::string& name, int days) {
  CertificateHandle certificate(X509_new());
  const Handle<BIGNUM, BN_free> serial(BN_new());  // positive, and always of one length
  std::time_t now = std::time(nullptr);
  require(X509_set_version(certificate.get(), X509_VERSION_3) == 1 && X509_set_pubkey(certificate.get(), key) == 1 &&
              BN_rand(serial.get(), 63, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
              BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate.get())) != nullptr &&
              X509_time_adj_ex(X509_getm_notBefore(certificate.get()), -1, 0, &now) != nullptr &&
              X509_time_adj_ex(X509_getm_notAfter(certificate.get()), days, 0, &now) != nullptr,
          "no certificate can be made");
  X509_NAME* const subject = X509_get_subject_name(certificate.get());
  const auto len = static_cast<int>(name.size());
  require(X509_NAME_add_entry_by_txt(subject, "O", MBSTRING_ASC, bytes_of("Provisioning"), -1, -1, 0) == 1 &&
              X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, bytes_of(name), len, -1, 0) == 1,
          "--name: 1 to 64 characters in UTF-8 were expected");
  return certificate;
}

void issue(X509* certificate, X509* issuer, EVP_PKEY* issuer_key,
           std::initializer_list<std::pair<int, const char*>> extensions) {
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1, "no issuer");
  for (const auto& [nid, value] : extensions) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Handle<X509_EXTENSION, X509_EXTENSION_free> extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, value);
  }
  require(X509_sign(certificate, issuer_key, EVP_sha256()) > 0, "the certificate cannot be signed");
}

// What |write|, a writer of OpenSSL, makes of |arguments|.
template <typename Write, typename... Arguments>
std::string written_by(Write write, Arguments... arguments) {
  const Handle<BIO, BIO_free> stream(BIO_new(BIO_s_mem()));
  char* text = nullptr;
  require(write(stream.get(), arguments...) == 1, "a key or certificate cannot be encoded");
  const long len = BIO_get_mem_data(stream.get(), &text);
  return {text, static_cast<size_t>(len)};
}

// Writes DIR/|name|.pem and, unless |new_key| is null, DIR/|name|.key. Half a pair would be in the way of the next try.
void write_files(const std::string& folder, const std::string& name, EVP_PKEY* new_key, X509* certificate) {
  std::filesystem::create_directories(folder);
  const std::string path = folder + "/" + name;
  const std::string key_path = path + ".key";
  if (new_key != nullptr) {
    const std::string pem = written_by(PEM_write_bio_PrivateKey, new_key, nullptr, nullptr, 0, nullptr, nullptr);
    common::write_new_file(key_path, pem, 0600);
  }
  try {
    common::write_new_file(path + ".pem", written_by(PEM_write_bio_X509, certificate), 0644);
  } catch (const Error&) {
    if (new_key != nullptr) ::unlink(key_path.c_str());
    throw;
  }
}

RequestHandle load_request(const std::string& path) {
  auto request = load_pem<RequestHandle>(path, PEM_read_bio_X509_REQ, "a certificate request in PEM");
  EVP_PKEY* const key = X509_REQ_get0_pubkey(request.get());
  require(key != nullptr, path + ": its key cannot be read");
  require_rsa_2048(key, path);
  // Anybody could sign for a key whose exponent is 1.
  const Handle<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new(key, nullptr));
  require(EVP_PKEY_public_check(context.get()) == 1, path + ": its key is not safe");
  require(X509_REQ_verify(request.get(), key) == 1, path + ": the request is not signed by its own key");
  return request;
}

KeyHandle load_or_make_key(const std::string& name) {
  if (!name.empty()) return load_key(name);
  KeyHandle key(EVP_RSA_gen(2048));
  require(key != nullptr, "no key can be made");
  return key;
}

}  // namespace

CertificateHandle load_certificate(const std::string& path) {
  return load_pem<CertificateHandle>(path, PEM_read_bio_X509, "a certificate in PEM");
}

std::string certificate_text(X509* certificate, const std::string& path) {
  std::string text = base64(written_by(i2d_X509_bio, certificate));
  if (text.size() >= KELCHK_CERTIFICATE_TEXT_MIN && text.size() <= KELCHK_CERTIFICATE_TEXT_MAX) return text;
  throw Error(fmt::format("{}: its base64 has {} characters; a phone takes {} to {}", path, text.size(),
                          KELCHK_CERTIFICATE_TEXT_MIN, KELCHK_CERTIFICATE_TEXT_MAX));
}

void require_pair(EVP_PKEY* key, X509* certificate, const std::string& path) {
  require(X509_check_private_key(certificate, key) == 1, path + ": the certificate of the given key was expected");
}

void make_root(const NewCertificate& wanted) {
  const KeyHandle key = load_or_make_key(wanted.key);
  const CertificateHandle certificate =
      make_certificate(key.get(), wanted.name.value_or("Provisioning root"), wanted.days.value_or(kRootDays));
  issue(certificate.get(), certificate.get(), key.get(),
        {{NID_basic_constraints, "critical,CA:TRUE"},
         {NID_key_usage, "critical,keyCertSign,cRLSign"},
         {NID_subject_key_identifier, "hash"}});
  write_files(wanted.folder, "root", wanted.key.empty() ? key.get() : nullptr, certificate.get());
}

void make_signer(const NewCertificate& wanted) {
  const CertificateHandle root = load_certificate(wanted.root);
  const KeyHandle root_key = load_key(wanted.root_key);
  require_pair(root_key.get(), root.get(), wanted.root);
  const RequestHandle request = wanted.request.empty() ? nullptr : load_request(wanted.request);
  const KeyHandle key(request != nullptr ? X509_REQ_get_pubkey(request.get()) : load_or_make_key(wanted.key).release());
  const CertificateHandle certificate =
      make_certificate(key.get(), wanted.name.value_or("Provisioning signer"), wanted.days.value_or(kSignerDays));
  if (request != nullptr && !wanted.name) {
    require(X509_set_subject_name(certificate.get(), X509_REQ_get_subject_name(request.get())) == 1, "no subject");
  }
  // A phone would take it for a self-signed certificate.
  if (X509_NAME_cmp(X509_get_subject_name(certificate.get()), X509_get_subject_name(root.get())) == 0) {
    throw Error("the signer needs another name than the root: --name");
  }
  // No authority key id, because there is one root.
  issue(certificate.get(), root.get(), root_key.get(),
        {{NID_basic_constraints, "critical,CA:FALSE"},
         {NID_key_usage, "critical,digitalSignature"},
         {NID_subject_key_identifier, "hash"},
         {NID_netscape_comment, kSignerComment}});
  certificate_text(certificate.get(), "the new certificate");
  const bool is_new_key = request == nullptr && wanted.key.empty();
  write_files(wanted.folder, "signer", is_new_key ? key.get() : nullptr, certificate.get());
}

}  // namespace kelsign

#include "kelctl/certificate.h"

#include <fmt/format.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/digest.h>
#include <openssl/evp.h>
#include <openssl/nid.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "common/file.h"
#include "common/outcome.h"

namespace kelctl {
namespace {

constexpr int kRootKeyBits = 2048;
constexpr size_t kMaxCertificateFileLen = 1 << 20;

template <typename Write>
std::string printed(Write write) {
  const bssl::UniquePtr<BIO> stream(BIO_new(BIO_s_mem()));
  write(stream.get());
  const uint8_t* text = nullptr;
  size_t len = 0;
  BIO_mem_contents(stream.get(), &text, &len);
  return {text, text + len};
}

std::string time_text(const ASN1_TIME* time) {
  return printed([time](BIO* out) { ASN1_TIME_print(out, time); });
}

std::string key_text(X509* certificate) {
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(certificate));
  if (key == nullptr) return "unreadable";
  return fmt::format("{} of {} bits", EVP_PKEY_id(key.get()) == EVP_PKEY_RSA ? "RSA" : "not RSA,",
                     EVP_PKEY_bits(key.get()));
}

bssl::UniquePtr<X509> parse_pem(std::string_view block) {
  const bssl::UniquePtr<BIO> stream(BIO_new_mem_buf(block.data(), static_cast<int>(block.size())));
  return bssl::UniquePtr<X509>(PEM_read_bio_X509(stream.get(), nullptr, nullptr, nullptr));
}

}  // namespace

Fields facts_of(X509* certificate) {
  return {{"subject", name_text(X509_get_subject_name(certificate))},
          {"issuer", name_text(X509_get_issuer_name(certificate))},
          {"validFrom", time_text(X509_get0_notBefore(certificate))},
          {"validTo", time_text(X509_get0_notAfter(certificate))},
          {"key", key_text(certificate)},
          {"length", fmt::format("{} bytes", i2d_X509(certificate, nullptr))},
          {"SHA-256", fingerprint_of(certificate)}};
}

std::string fingerprint_of(X509* certificate) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  if (X509_digest(certificate, EVP_sha256(), digest, &len) != 1) return "unreadable";
  return fmt::format("{:02X}", fmt::join(digest, digest + len, ":"));
}

// Special characters are quoted. Control characters and UTF-8 stay: who shows the name escapes it.
std::string name_text(const X509_NAME* name) {
  constexpr unsigned long kPlain = ASN1_STRFLGS_ESC_CTRL | ASN1_STRFLGS_ESC_MSB | XN_FLAG_SPC_EQ;
  return printed([name](BIO* out) { X509_NAME_print_ex(out, name, 0, XN_FLAG_ONELINE & ~kPlain); });
}

bool is_self_issued(X509* certificate) {
  return X509_NAME_cmp(X509_get_subject_name(certificate), X509_get_issuer_name(certificate)) == 0;
}

std::string root_fault(X509* certificate) {
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(certificate));
  if (X509_get_version(certificate) != X509_VERSION_3) return "it is not an X.509 version 3 certificate";
  if (key == nullptr || EVP_PKEY_id(key.get()) != EVP_PKEY_RSA || EVP_PKEY_bits(key.get()) != kRootKeyBits) {
    return fmt::format("its key is not RSA of {} bits", kRootKeyBits);
  }
  if (X509_get_signature_nid(certificate) != NID_sha256WithRSAEncryption)
    return "its signature is not RSA with SHA-256";
  if (X509_check_ca(certificate) != 1) return "it is not a CA certificate";
  if (!is_self_issued(certificate) || X509_verify(certificate, key.get()) != 1) return "it is not self-signed";
  return "";
}

PemCertificates find_certificates(std::string_view bytes) {
  constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
  constexpr std::string_view kEnd = "-----END CERTIFICATE-----";
  PemCertificates found;
  for (size_t begin = bytes.find(kBegin); begin != std::string_view::npos; begin = bytes.find(kBegin, begin)) {
    const size_t end = bytes.find(kEnd, begin);
    if (end == std::string_view::npos) {
      found.is_cut = true;
      return found;
    }
    found.certificates.push_back(parse_pem(bytes.substr(begin, end + kEnd.size() - begin)));
    begin = end;
  }
  return found;
}

bssl::UniquePtr<X509> load_certificate(const std::string& path) {
  PemCertificates found = find_certificates(common::read_file(path, kMaxCertificateFileLen));
  if (found.certificates.size() == 1 && found.certificates[0] != nullptr) return std::move(found.certificates[0]);
  throw common::Error(path + ": one certificate in PEM was expected");
}

}  // namespace kelctl

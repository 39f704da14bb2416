#include "kelctl/certificates.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/mem.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <filesystem>
#include <utility>
#include <vector>

#include "kelctl/files.h"
#include "kelctl/outcome.h"
#include "kelctl/signing.h"

namespace kelctl {
namespace {

namespace fs = std::filesystem;

constexpr int kRootDays = 20 * 365 + 5;
constexpr int kSignerDays = 10 * 365 + 2;

using Extensions = std::vector<std::pair<int, const char*>>;

const Extensions kRootExtensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                    {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                    {NID_subject_key_identifier, "hash"}};

// Also makes the certificate long enough under any name.
constexpr char kSignerComment[] =
    "Signs what a phone's provisioning library accepts: the challenge of a login, the values of a device parameter "
    "record and the unique id of a chip. It must not sign anything else.";

// No authority key id, because there is one root.
const Extensions kSignerExtensions = {{NID_basic_constraints, "critical,CA:FALSE"},
                                      {NID_key_usage, "critical,digitalSignature"},
                                      {NID_subject_key_identifier, "hash"},
                                      {NID_netscape_comment, kSignerComment}};

bssl::UniquePtr<EVP_PKEY> make_key() {
  const bssl::UniquePtr<RSA> rsa(RSA_new());
  const bssl::UniquePtr<BIGNUM> exponent(BN_new());
  bssl::UniquePtr<EVP_PKEY> key(EVP_PKEY_new());
  require(BN_set_word(exponent.get(), RSA_F4) == 1 &&
              RSA_generate_key_ex(rsa.get(), 2048, exponent.get(), nullptr) == 1 &&
              EVP_PKEY_set1_RSA(key.get(), rsa.get()) == 1,
          "no key can be made");
  return key;
}

void set_random_serial(X509* certificate) {
  unsigned char bytes[8];
  RAND_bytes(bytes, sizeof bytes);
  bytes[0] = static_cast<unsigned char>((bytes[0] & 0x7F) | 0x40);  // positive, and always of one length
  const bssl::UniquePtr<BIGNUM> number(BN_bin2bn(bytes, sizeof bytes, nullptr));
  require(BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr, "no serial number");
}

void set_name(X509* certificate, const std::string& organization, const std::string& name) {
  X509_NAME* const subject = X509_get_subject_name(certificate);
  for (const auto& [field, text] : {std::pair("O", organization), std::pair("CN", name)}) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.c_str());
    if (X509_NAME_add_entry_by_txt(subject, field, MBSTRING_UTF8, bytes, -1, -1, 0) == 1) continue;
    throw Error("--name: 1 to 64 characters in UTF-8 were expected");
  }
}

void add_extensions(X509* certificate, X509* issuer, const Extensions& extensions) {
  for (const auto& [nid, value] : extensions) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const bssl::UniquePtr<X509_EXTENSION> extension(X509V3_EXT_nconf_nid(nullptr, &context, nid, value));
    require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, value);
  }
}

// Everything but the issuer and its signature. Valid from yesterday, for clocks that are a little behind.
bssl::UniquePtr<X509> make_certificate(const std::string& name, EVP_PKEY* key, int days) {
  bssl::UniquePtr<X509> certificate(X509_new());
  std::time_t now = std::time(nullptr);
  require(X509_set_version(certificate.get(), 2) == 1 && X509_set_pubkey(certificate.get(), key) == 1 &&
              X509_time_adj_ex(X509_getm_notBefore(certificate.get()), -1, 0, &now) != nullptr &&
              X509_time_adj_ex(X509_getm_notAfter(certificate.get()), days, 0, &now) != nullptr,
          "no certificate can be made");
  set_random_serial(certificate.get());
  set_name(certificate.get(), "Provisioning", name);
  return certificate;
}

void issue(X509* certificate, X509* issuer, EVP_PKEY* issuer_key, const Extensions& extensions) {
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1, "no issuer");
  add_extensions(certificate, issuer, extensions);
  require(X509_sign(certificate, issuer_key, EVP_sha256()) > 0, "the certificate cannot be signed");
}

template <typename Write>
std::string pem_of(Write write) {
  const bssl::UniquePtr<BIO> stream(BIO_new(BIO_s_mem()));
  const uint8_t* text = nullptr;
  size_t len = 0;
  require(write(stream.get()) == 1 && BIO_mem_contents(stream.get(), &text, &len) == 1, "no PEM can be written");
  return {text, text + len};
}

// The pair DIR/|name|.key and DIR/|name|.pem, of which nothing may be there yet.
class NewPair {
 public:
  NewPair(const std::string& folder, const std::string& name)
      : key_path_(folder + "/" + name + ".key"), certificate_path_(folder + "/" + name + ".pem") {
    for (const std::string& path : {key_path_, certificate_path_}) {
      if (fs::exists(fs::symlink_status(path))) throw Error(path + ": is there already, and is not overwritten");
    }
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw Error(folder + ": cannot be made: " + error.message());
  }

  void write(EVP_PKEY* key, X509* certificate) const {
    const std::string key_text = pem_of(
        [key](BIO* stream) { return PEM_write_bio_PrivateKey(stream, key, nullptr, nullptr, 0, nullptr, nullptr); });
    write_new_file(key_path_, key_text, 0600);
    write_new_file(certificate_path_, pem_of([=](BIO* stream) { return PEM_write_bio_X509(stream, certificate); }),
                   0644);
  }

 private:
  std::string key_path_;
  std::string certificate_path_;
};

}  // namespace

void make_root(const std::string& folder, const std::string& name) {
  const NewPair pair(folder, "root");
  const bssl::UniquePtr<EVP_PKEY> key = make_key();
  const bssl::UniquePtr<X509> certificate = make_certificate(name, key.get(), kRootDays);
  issue(certificate.get(), certificate.get(), key.get(), kRootExtensions);
  pair.write(key.get(), certificate.get());
}

void make_signer(const std::string& folder, const std::string& name, const std::string& root_path,
                 const std::string& root_key_path) {
  const bssl::UniquePtr<X509> root = load_certificate(root_path);
  const bssl::UniquePtr<EVP_PKEY> root_key = load_key(root_key_path);
  require_pair(root_key.get(), root.get(), root_path);
  const NewPair pair(folder, "signer");
  const bssl::UniquePtr<EVP_PKEY> key = make_key();
  const bssl::UniquePtr<X509> certificate = make_certificate(name, key.get(), kSignerDays);
  issue(certificate.get(), root.get(), root_key.get(), kSignerExtensions);
  signer_certificate_text(certificate.get(), "the new certificate");
  pair.write(key.get(), certificate.get());
}

}  // namespace kelctl

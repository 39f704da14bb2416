#include <elf.h>
#include <fmt/format.h>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/digest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdint>
#include <cstring>
#include <new>

#include "common/file.h"
#include "common/outcome.h"
#include "kelchk.h"
#include "kelctl/explain.h"
#include "trust/chain.h"

namespace kelctl {
namespace {

constexpr size_t kMaxCertificateFileLen = 1 << 20;
constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----";

template <typename Write>
std::string printed(Write write) {
  const bssl::UniquePtr<BIO> stream(BIO_new(BIO_s_mem()));
  write(stream.get());
  const uint8_t* text = nullptr;
  size_t len = 0;
  BIO_mem_contents(stream.get(), &text, &len);
  return {text, text + len};
}

// Special characters are quoted. Control characters and UTF-8 stay: who shows the name escapes it.
std::string name_text(const X509_NAME* name) {
  constexpr unsigned long kPlain = ASN1_STRFLGS_ESC_CTRL | ASN1_STRFLGS_ESC_MSB | XN_FLAG_SPC_EQ;
  return printed([name](BIO* out) { X509_NAME_print_ex(out, name, 0, XN_FLAG_ONELINE & ~kPlain); });
}

std::string key_text(X509* certificate) {
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(certificate));
  if (key == nullptr) return "unreadable";
  return fmt::format("{} of {} bits", EVP_PKEY_id(key.get()) == EVP_PKEY_RSA ? "RSA" : "not RSA,",
                     EVP_PKEY_bits(key.get()));
}

std::string fingerprint_of(X509* certificate) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  if (X509_digest(certificate, EVP_sha256(), digest, &len) != 1) return "unreadable";
  return fmt::format("{:02X}", fmt::join(digest, digest + len, ":"));
}

Fields facts_of(X509* certificate) {
  return {{"subject", name_text(X509_get_subject_name(certificate))},
          {"issuer", name_text(X509_get_issuer_name(certificate))},
          {"validFrom", printed([=](BIO* out) { ASN1_TIME_print(out, X509_get0_notBefore(certificate)); })},
          {"validTo", printed([=](BIO* out) { ASN1_TIME_print(out, X509_get0_notAfter(certificate)); })},
          {"key", key_text(certificate)},
          {"length", fmt::format("{} bytes", i2d_X509(certificate, nullptr))},
          {"SHA-256", fingerprint_of(certificate)}};
}

bool is_self_issued(X509* certificate) {
  return X509_NAME_cmp(X509_get_subject_name(certificate), X509_get_issuer_name(certificate)) == 0;
}

void check_root(X509* given, X509* certificate, Findings& findings) {
  findings.certificates.push_back(facts_of(certificate));
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(certificate));
  const bool is_self_signed = key != nullptr && X509_verify(certificate, key.get()) == 1;
  findings.judge("root", is_self_signed ? "" : "it is not self-signed", "it is self-signed");
  if (given == nullptr) return;
  const std::string fault = "it is not the root given, " + fingerprint_of(given);
  findings.judge("chain", X509_cmp(given, certificate) == 0 ? "" : fault, "it is the root given");
}

void check_signer(X509* root, X509* signer, Findings& findings) {
  const size_t len = (static_cast<size_t>(i2d_X509(signer, nullptr)) + 2) / 3 * 4;
  const bool is_taken = len >= KELCHK_CERTIFICATE_TEXT_MIN && len <= KELCHK_CERTIFICATE_TEXT_MAX;
  const std::string words = fmt::format("factoryCert will have {} characters; a phone takes {} to {}", len,
                                        KELCHK_CERTIFICATE_TEXT_MIN, KELCHK_CERTIFICATE_TEXT_MAX);
  findings.judge("certificate", is_taken ? "" : words, words);
  check_chain(root, signer, findings);
}

// Whether the section headers are missing, which a linker writes last.
template <typename Header>
bool is_cut_library(std::string_view bytes) {
  Header header;
  if (bytes.size() < sizeof header) return true;
  std::memcpy(&header, bytes.data(), sizeof header);
  return bytes.size() < uint64_t{header.e_shoff} + uint64_t{header.e_shnum} * header.e_shentsize;
}

bool is_cut(std::string_view bytes, bool is_library) {
  if (!is_library) return bytes.find(kEnd, bytes.rfind(kBegin)) == std::string_view::npos;
  const bool is_64_bit = bytes.substr(EI_CLASS).starts_with(ELFCLASS64);
  return is_64_bit ? is_cut_library<Elf64_Ehdr>(bytes) : is_cut_library<Elf32_Ehdr>(bytes);
}

}  // namespace

void check_chain(X509* root, X509* signer, Findings& findings) {
  constexpr const char* kName = "chain";
  if (signer == nullptr) return findings.add(kName, State::kOpen, "not checked: there is no certificate");
  findings.certificates.push_back(facts_of(signer));
  if (root == nullptr) return findings.add(kName, State::kOpen, "not checked: name the root with --root");

  const kelchk::ChainVerdict verdict = kelchk::check_chain(root, signer);
  if (verdict.missing != kelchk::MissingPart::kNone) throw std::bad_alloc();
  const int error = verdict.runs == 2 && !verdict.holds ? verdict.second_error : verdict.error;
  const char* const words = X509_verify_cert_error_string(error);
  if (!verdict.holds) {
    const std::string issuer = name_text(X509_get_subject_name(root));
    return findings.add(kName, State::kFails,
                        fmt::format(R"(the root "{}" did not issue the certificate: {})", issuer, words));
  }
  const std::string waived = error != X509_V_OK ? fmt::format("; a phone does not mind: {}", words) : "";
  findings.add(kName, State::kHolds, "the root issued the certificate" + waived);
}

bool check_certificates(std::string_view bytes, const Question& question, Findings& findings) {
  const std::vector<bssl::UniquePtr<X509>> found = find_certificates(bytes);
  const bool is_library = bytes.starts_with(std::string_view(ELFMAG, SELFMAG));
  if (!is_library && found.empty()) return false;

  findings.kind = is_library ? "library" : found.size() == 1 ? "certificate" : "certificates";
  X509* const root = question.root.get();
  for (size_t i = 0; i < found.size(); ++i) {
    const size_t first_check = findings.checks.size();
    X509* const certificate = found[i].get();
    if (certificate == nullptr) {
      findings.add("certificate", State::kFails, "it cannot be read");
    } else if (is_library || is_self_issued(certificate)) {
      check_root(root, certificate, findings);
    } else {
      check_signer(root, certificate, findings);
    }
    for (size_t k = first_check; found.size() > 1 && k < findings.checks.size(); ++k) {
      findings.checks[k].words = fmt::format("certificate {}: {}", i + 1, findings.checks[k].words);
    }
  }
  if (is_cut(bytes, is_library)) findings.add("length", State::kFails, "the file is cut");
  if (!is_library) return true;
  const std::string fault = found.size() == 1 ? "" : fmt::format("it embeds {} certificates, not 1", found.size());
  findings.judge("library", fault, "it embeds one certificate");
  return true;
}

std::vector<bssl::UniquePtr<X509>> find_certificates(std::string_view bytes) {
  std::vector<bssl::UniquePtr<X509>> found;
  for (size_t end = 0, begin = 0; (begin = bytes.find(kBegin, end)) != std::string_view::npos;) {
    end = std::min(bytes.find(kEnd, begin), bytes.size());
    const std::string_view block = bytes.substr(begin, end + kEnd.size() - begin);
    const bssl::UniquePtr<BIO> stream(BIO_new_mem_buf(block.data(), static_cast<int>(block.size())));
    found.emplace_back(PEM_read_bio_X509(stream.get(), nullptr, nullptr, nullptr));
  }
  return found;
}

bssl::UniquePtr<X509> load_certificate(const std::string& path) {
  std::vector<bssl::UniquePtr<X509>> found = find_certificates(common::read_file(path, kMaxCertificateFileLen));
  if (found.size() == 1 && found[0] != nullptr) return std::move(found[0]);
  throw common::Error(path + ": one certificate in PEM was expected");
}

}  // namespace kelctl

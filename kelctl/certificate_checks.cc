#include <elf.h>
#include <fmt/format.h>

#include <cstdint>
#include <cstring>

#include "kelchk.h"
#include "kelctl/checks.h"
#include "trust/chain.h"

namespace kelctl {
namespace {

// Where the section headers end, which a linker writes last; 0 when the file header says nothing of them.
template <typename Header>
uint64_t end_of_sections(std::string_view bytes) {
  Header header;
  if (bytes.size() < sizeof header) return sizeof header;
  std::memcpy(&header, bytes.data(), sizeof header);
  return uint64_t{header.e_shoff} + uint64_t{header.e_shnum} * header.e_shentsize;
}

bool is_library(std::string_view bytes) {
  return bytes.starts_with(std::string_view(ELFMAG, SELFMAG));
}

std::string library_fault(std::string_view bytes, size_t certificate_count) {
  const bool is_64_bit = bytes.size() > EI_CLASS && bytes[EI_CLASS] == ELFCLASS64;
  const uint64_t end = is_64_bit ? end_of_sections<Elf64_Ehdr>(bytes) : end_of_sections<Elf32_Ehdr>(bytes);
  if (bytes.size() < end) return fmt::format("the file is cut: it has {} bytes of {}", bytes.size(), end);
  if (certificate_count == 1) return "";
  return fmt::format("{} certificates are embedded; 1 was expected", certificate_count);
}

std::string chain_words(const kelchk::ChainVerdict& verdict, X509* root, X509* signer) {
  if (verdict.missing != kelchk::MissingPart::kNone) return "it could not be checked";
  const bool is_second = !verdict.holds && verdict.runs == 2;
  const char* const error = X509_verify_cert_error_string(is_second ? verdict.second_error : verdict.error);
  if (verdict.holds) {
    const std::string waived = verdict.error == X509_V_OK ? "" : fmt::format("; a phone does not mind: {}", error);
    return "the root issued the certificate" + waived;
  }
  const std::string issuer = name_text(X509_get_issuer_name(signer));
  const std::string root_name = name_text(X509_get_subject_name(root));
  if (issuer != root_name) {
    return fmt::format(R"("{}" issued the certificate, not the root "{}": {})", issuer, root_name, error);
  }
  return fmt::format("the certificate names the root as its issuer, but does not verify with it: {}", error);
}

void check_root(X509* given, X509* root, Findings& findings) {
  findings.judge("root", root_fault(root), "a library can be built with it");
  if (given == nullptr) return;
  const std::string fault = "it is not the root given, " + fingerprint_of(given);
  findings.judge("chain", X509_cmp(given, root) == 0 ? "" : fault, "it is the root given");
}

void check_signer(X509* root, X509* certificate, Findings& findings) {
  const size_t len = (static_cast<size_t>(i2d_X509(certificate, nullptr)) + 2) / 3 * 4;
  const std::string words = fmt::format("factoryCert will have {} characters", len);
  const bool is_taken = len >= KELCHK_CERTIFICATE_TEXT_MIN && len <= KELCHK_CERTIFICATE_TEXT_MAX;
  const std::string fault =
      fmt::format("{}; a phone takes {} to {}", words, KELCHK_CERTIFICATE_TEXT_MIN, KELCHK_CERTIFICATE_TEXT_MAX);
  findings.judge("certificate", is_taken ? "" : fault, words);
  check_chain(root, certificate, findings);
}

void check_certificate(X509* given, X509* certificate, bool is_root, Findings& findings) {
  if (certificate == nullptr) return findings.add("certificate", State::kFails, "it cannot be read");
  findings.certificates.push_back(facts_of(certificate));
  if (is_root || is_self_issued(certificate)) return check_root(given, certificate, findings);
  check_signer(given, certificate, findings);
}

}  // namespace

void check_chain(X509* root, X509* signer, Findings& findings) {
  if (root == nullptr) return findings.add("chain", State::kOpen, "not checked: name the root with --root");
  if (signer == nullptr) return findings.add("chain", State::kOpen, "not checked: there is no certificate");
  const kelchk::ChainVerdict verdict = kelchk::check_chain(root, signer);
  findings.add("chain", verdict.holds ? State::kHolds : State::kFails, chain_words(verdict, root, signer));
}

bool check_certificates(std::string_view bytes, const Question& question, Findings& findings) {
  const PemCertificates found = find_certificates(bytes);
  const size_t count = found.certificates.size();
  if (!is_library(bytes) && count == 0 && !found.is_cut) return false;

  findings.kind = is_library(bytes) ? "library" : count == 1 ? "certificate" : "certificates";
  findings.extent = fmt::format("{} bytes", bytes.size());
  for (size_t i = 0; i < count; ++i) {
    const size_t first_check = findings.checks.size();
    check_certificate(question.root.get(), found.certificates[i].get(), is_library(bytes), findings);
    for (size_t k = first_check; count > 1 && k < findings.checks.size(); ++k) {
      findings.checks[k].words = fmt::format("certificate {}: {}", i + 1, findings.checks[k].words);
    }
  }
  if (is_library(bytes)) findings.judge("library", library_fault(bytes, count), "one certificate is embedded");
  if (found.is_cut) findings.add("length", State::kFails, "the file is cut: it ends inside a certificate");
  return true;
}

}  // namespace kelctl

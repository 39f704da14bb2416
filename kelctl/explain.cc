#include "kelctl/explain.h"

#include <fmt/core.h>
#include <openssl/bio.h>
#include <openssl/evp.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "kelchk.h"
#include "kelctl/files.h"
#include "kelctl/outcome.h"
#include "kelctl/signed_text.h"
#include "kelctl/signing.h"
#include "kelctl/text.h"
#include "records/para_check.h"
#include "trust/chain.h"
#include "trust/signature.h"
#include "trust/signed_message.h"

namespace kelctl {
namespace {

using Json = nlohmann::ordered_json;

// A phone reads no more of a stored file.
constexpr size_t kStoredFileCap = KELCHK_SIGNED_FILE_MAX;

enum class State { kHolds, kFails, kOpen };

struct Check {
  std::string name;
  State state;
  std::string words;
};

struct Certificate {
  std::string subject, issuer, not_before, not_after, key;
  size_t der_len;
};

struct Findings {
  std::string kind;
  std::vector<std::pair<std::string, std::string>> fields;
  std::optional<std::string> content;
  std::optional<Certificate> certificate;
  std::vector<Check> checks;

  void add(const char* name, bool holds, std::string words) {
    checks.push_back({name, holds ? State::kHolds : State::kFails, std::move(words)});
  }
  void add_open(const char* name, std::string words) { checks.push_back({name, State::kOpen, std::move(words)}); }
  bool any(State state) const {
    return std::any_of(checks.begin(), checks.end(), [state](const Check& check) { return check.state == state; });
  }
};

template <typename Write>
std::string printed(Write write) {
  const bssl::UniquePtr<BIO> stream(BIO_new(BIO_s_mem()));
  write(stream.get());
  const uint8_t* text = nullptr;
  size_t len = 0;
  BIO_mem_contents(stream.get(), &text, &len);
  return {text, text + len};
}

std::string name_of(const X509_NAME* name) {
  return printed([name](BIO* out) {
    X509_NAME_print_ex(out, name, 0, XN_FLAG_ONELINE & ~(ASN1_STRFLGS_ESC_MSB | XN_FLAG_SPC_EQ));
  });
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

Certificate describe(X509* certificate, size_t der_len) {
  return {name_of(X509_get_subject_name(certificate)),
          name_of(X509_get_issuer_name(certificate)),
          time_text(X509_get0_notBefore(certificate)),
          time_text(X509_get0_notAfter(certificate)),
          key_text(certificate),
          der_len};
}

std::vector<std::pair<std::string, std::string>> fields_of(std::string_view record) {
  std::vector<std::pair<std::string, std::string>> fields;
  for (size_t begin = 0; begin < record.size();) {
    const size_t end = std::min(record.find('&', begin), record.size());
    const std::string_view field = record.substr(begin, end - begin);
    const size_t equals = std::min(field.find('='), field.size());
    fields.emplace_back(field.substr(0, equals), field.substr(std::min(equals + 1, field.size())));
    begin = end + 1;
  }
  return fields;
}

bool has_field(const Findings& findings, std::string_view key) {
  return std::any_of(findings.fields.begin(), findings.fields.end(),
                     [key](const auto& field) { return field.first == key; });
}

// The signer's certificate, as far as it can be read: one of a length that no phone takes is shown all the same.
bssl::UniquePtr<X509> take_certificate(std::string_view text, Findings& findings) {
  constexpr const char* kName = "certificate";
  const std::string encoded = value_of(text, "factoryCert", KELCHK_CERTIFICATE_TEXT_MAX + 1);
  if (encoded.empty()) {
    findings.add(kName, false,
                 fmt::format("factoryCert is missing, empty or above {} characters", KELCHK_CERTIFICATE_TEXT_MAX));
    return nullptr;
  }
  const std::string der = decode_base64(encoded, KELCHK_CERTIFICATE_TEXT_MAX + 1);
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  bssl::UniquePtr<X509> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
  if (certificate != nullptr) findings.certificate = describe(certificate.get(), der.size());

  if (encoded.size() < KELCHK_CERTIFICATE_TEXT_MIN) {
    findings.add(kName, false,
                 fmt::format("factoryCert has {} characters; a phone takes {} to {}", encoded.size(),
                             KELCHK_CERTIFICATE_TEXT_MIN, KELCHK_CERTIFICATE_TEXT_MAX));
  } else if (der.empty()) {
    findings.add(kName, false,
                 fmt::format("the {} characters of factoryCert are not base64 on one line", encoded.size()));
  } else if (certificate == nullptr) {
    findings.add(kName, false, fmt::format("the {} bytes of factoryCert are not a certificate in DER", der.size()));
  } else {
    findings.add(kName, true, fmt::format("factoryCert has {} characters", encoded.size()));
  }
  return certificate;
}

std::string signature_fault(const std::string& encoded, const std::string& signature) {
  if (encoded.empty()) return "sign is missing, empty or too long";
  if (encoded.ends_with('\n')) return "a line break stands at the end of sign";
  if (signature.empty()) return fmt::format("the {} characters of sign are not base64 on one line", encoded.size());
  return fmt::format("sign has {} bytes; {} were expected", signature.size(), KELCHK_SIGNATURE_LEN);
}

std::string take_signature(std::string_view text, Findings& findings) {
  const std::string encoded = value_of(text, "sign");
  const std::string signature = decode_base64(encoded, kelchk::kDecodedSignatureCap);
  if (signature.size() == KELCHK_SIGNATURE_LEN) return signature;
  findings.add("signature", false, signature_fault(encoded, signature));
  return "";
}

std::string chain_words(const kelchk::ChainVerdict& verdict, X509* root, X509* signer) {
  if (verdict.holds && verdict.error == X509_V_OK) return "the root issued the certificate";
  const bool second_failed = !verdict.holds && verdict.runs == 2;
  const char* const text = X509_verify_cert_error_string(second_failed ? verdict.second_error : verdict.error);
  if (verdict.holds) return fmt::format("the root issued the certificate; a phone does not mind: {}", text);
  const std::string issuer = name_of(X509_get_issuer_name(signer));
  const std::string root_name = name_of(X509_get_subject_name(root));
  if (issuer == root_name) {
    return fmt::format("the certificate names the root as its issuer, yet does not hold against it: {}", text);
  }
  return fmt::format("the certificate was issued by \"{}\", not by the root \"{}\": {}", issuer, root_name, text);
}

void examine_chain(const std::string& root_path, X509* signer, Findings& findings) {
  if (root_path.empty()) return findings.add_open("chain", "not checked: name the root with --root");
  const bssl::UniquePtr<X509> root = load_certificate(root_path);
  if (signer == nullptr) return findings.add_open("chain", "not checked: there is no certificate");
  const kelchk::ChainVerdict verdict = kelchk::check_chain(root.get(), signer);
  findings.add("chain", verdict.holds, chain_words(verdict, root.get(), signer));
}

void examine_signature(std::string_view text, X509* signer, const std::optional<std::string>& message,
                       Findings& findings) {
  const std::string signature = take_signature(text, findings);
  if (signature.empty()) return;
  if (signer == nullptr) return findings.add_open("signature", "not checked: there is no certificate");
  if (!message) {
    return findings.add_open("signature", "not checked: tell what was signed with --message or --chip-id");
  }
  const auto* const bytes = reinterpret_cast<const unsigned char*>(signature.data());
  const bool holds = kelchk::check_signature(signer, *message, {bytes, signature.size()}).holds;
  findings.add("signature", holds,
               fmt::format("{} made over {} characters with the certificate's key", holds ? "it was" : "it was not",
                           message->size()));
}

bool is_compared(std::string_view key, std::string_view record) {
  if (key == "imei") return value_of(record, "cpuID").starts_with("sp");  // on Unisoc alone
  return key != "featureCode" && key != "time" && key != "ver";
}

void examine_record(std::string_view text, bool is_signed, Findings& findings) {
  try {
    findings.content = canonical_content(text);
    if (is_signed) {
      for (const char* const key : kelchk::kRecordKeys) {
        if (!is_compared(key, text) || !value_of(text, key, kelchk::kComparedValueCap).empty()) continue;
        return findings.add("record", false, fmt::format("{} is too long to be compared with a phone's", key));
      }
      return findings.add("record", true, "it has its twelve values");
    }
  } catch (const Refusal& refusal) {
    return findings.add("record", false, refusal.what());
  }
  const std::string fault = objection(Kind::kRecord, text);
  findings.add("record", fault.empty(), fault.empty() ? "a server may sign it" : fault);
}

Findings examine(const ExplainRequest& request, std::string_view text) {
  Findings findings;
  findings.fields = fields_of(text);
  const bool has_record = std::any_of(std::begin(kelchk::kRecordKeys), std::end(kelchk::kRecordKeys),
                                      [&](const char* key) { return has_field(findings, key); });
  const bool is_signed = has_field(findings, "factoryCert") || has_field(findings, "sign");
  if (has_record && !is_signed) {
    findings.kind = "device parameter record, not signed";
    examine_record(text, false, findings);
    return findings;
  }
  std::optional<std::string> message = request.message;
  if (has_record) {
    findings.kind = "signed parameter file";
    examine_record(text, true, findings);
    if (!message) message = findings.content;
  } else {
    findings.kind =
        is_signed ? "signer record: an authorization file or the response to a challenge" : "no known record";
  }
  const bssl::UniquePtr<X509> signer = take_certificate(text, findings);
  examine_chain(request.root_path, signer.get(), findings);
  examine_signature(text, signer.get(), message, findings);
  return findings;
}

struct Verdict {
  const char* words;
  ExitCode code;
};

Verdict verdict_of(const Findings& findings) {
  if (findings.any(State::kFails)) return {"does not hold", kNo};
  if (findings.any(State::kOpen)) return {"undecided", kUndecided};
  return {"holds", kYes};
}

const char* word_for(State state) {
  switch (state) {
    case State::kHolds:
      return "holds";
    case State::kFails:
      return "fails";
    case State::kOpen:
      return "open";
  }
  return "";
}

std::string painted(const char* words, bool is_good, bool is_bad) {
  return is_good ? good(words) : is_bad ? bad(words) : words;
}

bool is_long(const std::string& key) {
  return key == "factoryCert" || key == "sign";
}

void print(const Findings& findings, const std::string& path, size_t len, bool is_cut) {
  fmt::print("{}: {}, {} characters\n", path, findings.kind, len);
  if (is_cut) fmt::print("  The file is longer; a phone reads no more than {} bytes of it.\n", kStoredFileCap);
  fmt::print("fields\n");
  for (const auto& [key, value] : findings.fields) {
    fmt::print("  {:<12} {}\n", escape(key), is_long(key) ? fmt::format("{} characters", value.size()) : escape(value));
  }
  if (findings.content) {
    fmt::print("canonical content, {} characters\n  {}\n", findings.content->size(), escape(*findings.content));
  }
  if (const auto& certificate = findings.certificate) {
    fmt::print("signer certificate\n  {:<12} {}\n  {:<12} {}\n  {:<12} {} to {}\n  {:<12} {}\n  {:<12} {} bytes\n",
               "subject", certificate->subject, "issuer", certificate->issuer, "valid", certificate->not_before,
               certificate->not_after, "key", certificate->key, "length", certificate->der_len);
  }
  fmt::print("checks\n");
  for (const Check& check : findings.checks) {
    const std::string word = fmt::format("{:<5}", word_for(check.state));
    fmt::print("  {} {:<11} {}\n", painted(word.c_str(), check.state == State::kHolds, check.state == State::kFails),
               check.name, check.words);
  }
  const Verdict verdict = verdict_of(findings);
  fmt::print("verdict: {}\n", painted(verdict.words, verdict.code == kYes, verdict.code == kNo));
}

Json json_of(const Findings& findings) {
  Json json = {{"kind", findings.kind}, {"fields", Json::array()}};
  for (const auto& [key, value] : findings.fields) json["fields"].push_back({{"key", key}, {"value", value}});
  if (findings.content) json["content"] = *findings.content;
  if (const auto& certificate = findings.certificate) {
    json["certificate"] = {
        {"subject", certificate->subject},    {"issuer", certificate->issuer}, {"notBefore", certificate->not_before},
        {"notAfter", certificate->not_after}, {"key", certificate->key},       {"bytes", certificate->der_len}};
  }
  json["checks"] = Json::array();
  for (const Check& check : findings.checks) {
    json["checks"].push_back({{"name", check.name}, {"result", word_for(check.state)}, {"words", check.words}});
  }
  json["verdict"] = verdict_of(findings).words;
  return json;
}

}  // namespace

int explain(const ExplainRequest& request) {
  const std::string content = read_file(request.path, kStoredFileCap + 1);
  const bool is_cut = content.size() > kStoredFileCap;
  const std::string text = content.substr(0, std::min(content.find('\0'), kStoredFileCap));
  const Findings findings = examine(request, text);
  if (request.as_json) {
    fmt::print("{}\n", json_of(findings).dump(2, ' ', false, Json::error_handler_t::replace));
  } else {
    print(findings, request.path, text.size(), is_cut);
  }
  return verdict_of(findings).code;
}

}  // namespace kelctl

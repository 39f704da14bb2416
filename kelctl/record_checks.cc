#include <fmt/format.h>
#include <openssl/base64.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <span>

#include "common/outcome.h"
#include "common/signing_policy.h"
#include "kelchk.h"
#include "kelctl/explain.h"
#include "records/record_keys.h"
#include "trust/signature.h"

namespace kelctl {
namespace {

using kelchk::kRecordKeys;

constexpr const char* kSignerKeys[] = {"factoryCert", "sign"};

bool has_key_of(const Fields& fields, std::span<const char* const> keys) {
  const auto is_key = [](const auto& field, std::string_view key) { return field.first == key; };
  return std::find_first_of(fields.begin(), fields.end(), keys.begin(), keys.end(), is_key) != fields.end();
}

// Where the fields break off in the order in which they are written; empty when they do not.
std::string cut_fault(const Fields& fields) {
  std::vector<std::string_view> order(std::begin(kRecordKeys), std::end(kRecordKeys));
  order.insert(order.end(), std::begin(kSignerKeys), std::end(kSignerKeys));
  if (fields[0].first == kSignerKeys[0]) order.erase(order.begin(), order.end() - 2);
  if (fields.size() > order.size()) return "";

  const auto [field, expected] = std::mismatch(fields.begin(), fields.end() - 1, order.begin(),
                                               [](const auto& found, const auto& key) { return found.first == key; });
  const auto& [key, value] = *field;
  if (field != fields.end() - 1 || key.empty() || !expected->starts_with(key)) return "";
  if (key != *expected && !value.empty()) return "";
  const size_t whole_len = key == "sign" ? (size_t{KELCHK_SIGNATURE_LEN} + 2) / 3 * 4 : key == "ver" ? 2 : SIZE_MAX;
  if (value.size() >= whole_len) return "";
  return fmt::format("the file is cut: it ends in {}, after {} characters", *expected, value.size());
}

void warn_of_repeated_fields(Findings& findings) {
  std::map<std::string, int> counts;
  for (const auto& [key, value] : findings.fields) ++counts[key];
  for (const auto& [key, count] : counts) {
    if (count == 1) continue;
    findings.add("fields", State::kWarns,
                 fmt::format("{} appears {} times; a phone takes the first that is short enough", key, count));
  }
}

const unsigned char* bytes_of(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

// The bytes of |text|, one unbroken block of base64. Empty when it does not decode.
std::string decode_base64(std::string_view text) {
  std::string bytes(text.size(), '\0');
  size_t len = 0;
  auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
  bytes.resize(EVP_DecodeBase64(out, &len, bytes.size(), bytes_of(text), text.size()) == 1 ? len : 0);
  return bytes;
}

// Why a phone does not take factoryCert; empty when it does. |certificate| is null when it cannot be read.
std::string certificate_fault(std::string_view encoded, const X509* certificate) {
  if (encoded.empty()) return "factoryCert is missing, empty or too long";
  if (encoded.size() < KELCHK_CERTIFICATE_TEXT_MIN) {
    return fmt::format("factoryCert has {} characters; a phone takes {} to {}", encoded.size(),
                       KELCHK_CERTIFICATE_TEXT_MIN, KELCHK_CERTIFICATE_TEXT_MAX);
  }
  if (certificate != nullptr) return "";
  return fmt::format("the {} characters of factoryCert are not a certificate in DER, in base64 on one line",
                     encoded.size());
}

std::string signature_fault(std::string_view encoded, std::string_view signature) {
  if (signature.size() == KELCHK_SIGNATURE_LEN) return "";
  if (encoded.empty()) return "sign is missing, empty or too long";
  if (encoded.ends_with('\n')) return "sign ends in a line break";
  return fmt::format("sign must be {} bytes in base64 on one line; its {} characters are {}", KELCHK_SIGNATURE_LEN,
                     encoded.size(), signature.empty() ? "not base64" : fmt::format("{}", signature.size()));
}

// "factoryCert=...&sign=...", read as a phone's library reads it: certificate, chain and signature over |message|.
void examine_signer(std::string_view text, const std::optional<std::string>& message, X509* root, Findings& findings) {
  const std::string encoded_certificate = common::value_of(text, "factoryCert", KELCHK_CERTIFICATE_TEXT_MAX + 1);
  const std::string der = decode_base64(encoded_certificate);
  const unsigned char* bytes = bytes_of(der);
  const bssl::UniquePtr<X509> certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
  findings.judge("certificate", certificate_fault(encoded_certificate, certificate.get()),
                 fmt::format("factoryCert has {} characters", encoded_certificate.size()));
  check_chain(root, certificate.get(), findings);

  constexpr const char* kName = "signature";
  const std::string encoded = common::value_of(text, "sign");
  const std::string signature = decode_base64(encoded);
  const std::string fault = signature_fault(encoded, signature);
  if (!fault.empty()) return findings.add(kName, State::kFails, fault);
  if (certificate == nullptr || !message) {
    return findings.add(kName, State::kOpen, "not checked: it takes a certificate, and --message or --chip-id");
  }
  const bool holds =
      kelchk::check_signature(certificate.get(), *message, {bytes_of(signature), signature.size()}).holds;
  findings.add(kName, holds ? State::kHolds : State::kFails,
               fmt::format("the signature {} to the certificate and these {} characters",
                           holds ? "belongs" : "does not belong", message->size()));
}

// Why a phone does not take the twelve values in a signed file; empty when it does.
std::string stored_record_fault(std::string_view text) {
  constexpr size_t kComparedCap = 1024;  // a phone compares shorter values only
  const bool is_unisoc = common::value_of(text, "cpuID").starts_with("sp");
  for (const char* const key : kRecordKeys) {
    const std::string_view name = key;
    const bool is_compared = name != "featureCode" && name != "time" && name != "ver" && (name != "imei" || is_unisoc);
    if (!is_compared || !common::value_of(text, key, kComparedCap).empty()) continue;
    return fmt::format("{} is too long to be compared with a phone's", name);
  }
  return "";
}

// A signer's policy warns of what a phone has accepted, and decides over what is not signed yet.
void examine_values(std::string_view text, bool is_signed, Findings& findings) {
  try {
    findings.content = common::canonical_content(text);
    if (is_signed) findings.judge("record", stored_record_fault(text), "it has its twelve values");
    common::message_to_sign(common::TextKind::kRecord, text.substr(0, text.find("&factoryCert=")));
    if (!is_signed) findings.add("record", State::kHolds, "a signer may sign it");
  } catch (const common::Refusal& refusal) {
    const char* const reason = refusal.what();
    if (!is_signed || !findings.content) return findings.add("record", State::kFails, reason);
    findings.add("policy", State::kWarns, fmt::format("a signer would not sign this record: {}", reason));
  }
}

Fields fields_of(std::string_view text) {
  Fields fields;
  while (!text.empty()) {
    const std::string_view field = text.substr(0, text.find('&'));
    const size_t equals = std::min(field.find('='), field.size());
    fields.emplace_back(field.substr(0, equals), field.substr(std::min(equals + 1, field.size())));
    text.remove_prefix(std::min(field.size() + 1, text.size()));
  }
  return fields;
}

}  // namespace

bool check_record(std::string_view bytes, const Question& question, Findings& findings) {
  const std::string_view text = bytes.substr(0, std::min<size_t>(bytes.find('\0'), KELCHK_SIGNED_FILE_MAX));
  Fields fields = fields_of(text);
  const bool has_values = has_key_of(fields, kRecordKeys);
  const bool is_signed = has_key_of(fields, kSignerKeys);
  if (!has_values && !is_signed) return false;

  findings.kind = !has_values ? "signer record: an authorization file or the response to a challenge"
                  : is_signed ? "signed parameter file"
                              : "device parameter record, not signed";
  findings.fields = std::move(fields);
  if (text.size() < bytes.size()) {
    findings.add("length", State::kWarns,
                 fmt::format("the file is longer than the {} bytes a phone reads", text.size()));
  }
  const std::string cut = cut_fault(findings.fields);
  if (!cut.empty()) findings.add("length", State::kFails, cut);
  warn_of_repeated_fields(findings);
  if (has_values) examine_values(text, is_signed, findings);
  const std::optional<std::string>& message = question.message ? question.message : findings.content;
  if (is_signed) examine_signer(text, message, question.root.get(), findings);
  return true;
}

std::string answer_fault(std::string_view answer, const std::string& message) {
  Findings findings;
  examine_signer(answer, message, nullptr, findings);
  for (const Check& check : findings.checks) {
    if (check.state == State::kFails) return check.words;
  }
  const bool is_exact = answer.starts_with("factoryCert=") && std::count(answer.begin(), answer.end(), '&') == 1;
  return is_exact ? "" : "it holds more than factoryCert and sign";
}

}  // namespace kelctl

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>

#include "common/outcome.h"
#include "common/signing_policy.h"
#include "kelchk.h"
#include "kelctl/checks.h"
#include "kelctl/signer_record.h"
#include "records/record_keys.h"

namespace kelctl {
namespace {

using kelchk::kRecordKeys;

// A phone compares shorter values only.
constexpr size_t kComparedCap = 1024;

// In base64.
constexpr size_t kSignatureTextLen = 344;

constexpr const char* kSignerKeys[] = {"factoryCert", "sign"};

template <size_t count>
bool has_key_of(const Fields& fields, const char* const (&keys)[count]) {
  return std::any_of(fields.begin(), fields.end(), [&](const auto& field) {
    return std::find(std::begin(keys), std::end(keys), field.first) != std::end(keys);
  });
}

// Where the fields break off in the order in which they are written; empty when they do not.
std::string cut_fault(const Fields& fields) {
  std::vector<std::string_view> order(std::begin(kRecordKeys), std::end(kRecordKeys));
  order.insert(order.end(), std::begin(kSignerKeys), std::end(kSignerKeys));
  if (!fields.empty() && fields[0].first == kSignerKeys[0]) order.erase(order.begin(), order.end() - 2);
  if (fields.empty() || fields.size() > order.size()) return "";

  const auto [field, expected] = std::mismatch(fields.begin(), fields.end() - 1, order.begin(),
                                               [](const auto& found, const auto& key) { return found.first == key; });
  const auto& [key, value] = *field;
  if (field != fields.end() - 1 || key.empty() || !expected->starts_with(key)) return "";
  const bool is_key_cut = key != *expected;
  if (is_key_cut && !value.empty()) return "";
  if (!is_key_cut && key == "sign" && value.size() >= kSignatureTextLen) return "";
  if (!is_key_cut && key == "ver" && value.size() >= 2) return "";  // the end of a record that is not signed
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

// Certificate, chain and signature.
void examine_signer(std::string_view text, const std::optional<std::string>& message, X509* root, Findings& findings) {
  const SignerRecord record = read_signer_record(text);
  findings.judge("certificate", record.certificate_fault,
                 fmt::format("factoryCert has {} characters", record.certificate_text.size()));
  check_chain(root, record.certificate.get(), findings);

  constexpr const char* kName = "signature";
  if (!record.signature_fault.empty()) return findings.add(kName, State::kFails, record.signature_fault);
  if (record.certificate == nullptr) {
    return findings.add(kName, State::kOpen, "not checked: there is no certificate");
  }
  if (!message) {
    return findings.add(kName, State::kOpen, "not checked: name what was signed with --message or --chip-id");
  }
  const std::string words = fmt::format("made over {} characters with the certificate's key", message->size());
  findings.judge(kName, is_signed(record, *message) ? "" : "it was not " + words, "it was " + words);
}

bool is_compared(std::string_view key, std::string_view record) {
  if (key == "imei") return common::value_of(record, "cpuID").starts_with("sp");  // on Unisoc alone
  return key != "featureCode" && key != "time" && key != "ver";
}

// Why a phone does not take the twelve values in a signed file; empty when it does.
std::string stored_record_fault(std::string_view text, Findings& findings) {
  try {
    findings.content = common::canonical_content(text);
  } catch (const common::Refusal& refusal) {
    return refusal.what();
  }
  for (const char* const key : kRecordKeys) {
    if (!is_compared(key, text) || !common::value_of(text, key, kComparedCap).empty()) continue;
    return fmt::format("{} is too long to be compared with a phone's", key);
  }
  return "";
}

// A signer's policy warns of what a phone has accepted, and decides over what is not signed yet.
void examine_values(std::string_view text, bool is_signed, Findings& findings) {
  std::string fault = stored_record_fault(text, findings);
  const std::string_view record = text.substr(0, text.find("&factoryCert="));
  const std::string objection = common::objection(common::TextKind::kRecord, record);
  if (!is_signed && fault.empty()) fault = objection;
  findings.judge("record", fault, is_signed ? "it has its twelve values" : "a signer may sign it");
  if (!is_signed || objection.empty()) return;
  findings.add("policy", State::kWarns, "a signer would not sign this record: " + objection);
}

}  // namespace

bool read_fields(std::string_view text, Findings& findings) {
  Fields fields;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('&', begin), text.size());
    const std::string_view field = text.substr(begin, end - begin);
    const size_t equals = std::min(field.find('='), field.size());
    fields.emplace_back(field.substr(0, equals), field.substr(std::min(equals + 1, field.size())));
    begin = end + 1;
  }
  const bool is_record = has_key_of(fields, kRecordKeys) || has_key_of(fields, kSignerKeys);
  if (is_record) findings.fields = std::move(fields);
  return is_record;
}

void check_record(std::string_view text, const Question& question, Findings& findings) {
  const std::string cut = cut_fault(findings.fields);
  if (!cut.empty()) findings.add("length", State::kFails, cut);
  warn_of_repeated_fields(findings);
  const bool is_signed = has_key_of(findings.fields, kSignerKeys);
  if (!has_key_of(findings.fields, kRecordKeys)) {
    findings.kind =
        is_signed ? "signer record: an authorization file or the response to a challenge" : "no known record";
    return examine_signer(text, question.message, question.root.get(), findings);
  }
  findings.kind = is_signed ? "signed parameter file" : "device parameter record, not signed";
  examine_values(text, is_signed, findings);
  if (!is_signed) return;
  examine_signer(text, question.message ? question.message : findings.content, question.root.get(), findings);
}

}  // namespace kelctl

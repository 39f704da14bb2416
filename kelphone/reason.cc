#include <algorithm>
#include <optional>
#include <string_view>

#include "kelphone/check.h"

namespace kelphone {
namespace {

constexpr std::string_view kOtherRootOutcomes[] = {"unable to get local issuer certificate", "self signed certificate",
                                                   "certificate signature failure"};

// A message that decides, by how it begins.
struct Row {
  std::string_view beginning;
  std::string_view words;
  bool is_decided = true;
};

// clang-format off
constexpr Row kRows[] = {
    {"getValueByKey factoryCert err", "it holds no signer certificate: it is cut, or no signed file"},
    {"get sub_cert err", "its signer certificate is damaged"},
    {"getValueByKey sign err", "it holds no signature"},
    {"signature_bin_len err=", "its signature is damaged"},
    {"public_key == NULL err", "its signer's key cannot be used"},
    {"EVP_DigestVerifyInit  err=", "its signer's key cannot be used"},
    {"para value too long", "its record is too long"},
    // What the phone could not do says nothing about the file.
    {"get ca_cert err", "the library's own root certificate cannot be read", false},
    {"md_ctx == NULL err", "out of memory", false},
    {"EVP_DigestVerifyUpdate  err=", "out of memory", false},
    {"read_rid err", "this phone's chip id cannot be read", false},
    {"get_build_type err", "this phone's build type cannot be read", false},
    {"get ro.system.build.version.incremental err", "this phone's build version cannot be read", false},
    {"get_black_country_sha err", "this phone's country configuration cannot be read", false},
    {"get ro.product.brand err", "this phone's brand cannot be read", false},
    {"get_device_name err", "this phone's model cannot be read", false},
    {"get_mac_address err", "this phone's Wi-Fi address cannot be read", false},
    {"get serialno err", "this phone's serial number cannot be read", false},
    {"get imei err", "this phone's IMEI cannot be read: the modem did not answer", false},
};
// clang-format on

// The library stops at the first field that differs. These come before the chip id and leave open whose file it is.
constexpr std::string_view kBeforeChipId[] = {"buildType", "buildTime", "countrySha"};

using Messages = std::vector<Message>;

bool is_any_of(std::string_view text, const auto& texts) {
  return std::find(std::begin(texts), std::end(texts), text) != std::end(texts);
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

// What follows |beginning| in the last message that has it.
std::string rest_of(const Messages& messages, std::string_view beginning) {
  const auto found = std::find_if(messages.rbegin(), messages.rend(),
                                  [&](const Message& message) { return message.text.starts_with(beginning); });
  return found != messages.rend() ? found->text.substr(beginning.size()) : "";
}

Reason chain_reason(const Messages& messages) {
  const std::string outcome = rest_of(messages, "kelo_X509_verify_cert ret = ");
  if (outcome.empty()) return {.words = "its signer could not be checked", .is_decided = false};
  if (is_any_of(outcome, kOtherRootOutcomes)) return {.words = "its signer is of another root: " + outcome};
  return {.words = "its signer certificate is not accepted: " + outcome};
}

Reason signature_reason(const Messages& messages, File file) {
  if (file == kParameters) return {.words = "its content was changed: the signature does not fit"};
  return {.words = "another phone's, or changed: the signature does not fit this phone's chip id " +
                   quoted(rest_of(messages, "rid="))};
}

std::optional<Reason> mismatch_reason(const std::string& text) {
  constexpr std::string_view kPresent = " err val_buf=";
  constexpr std::string_view kStored = " , t_buf=";
  const size_t present = text.find(kPresent);
  const size_t stored = text.rfind(kStored);  // the signed value does not hold these words; the phone's might
  if (present == std::string::npos || stored == std::string::npos) return {};
  Reason reason;
  reason.field = text.substr(0, present);
  if (reason.field == "serialno") reason.field = "psn";  // as the record calls it
  reason.present = text.substr(present + kPresent.size(), stored - present - kPresent.size());
  reason.stored = text.substr(stored + kStored.size());
  reason.words = reason.field == "cpuID" ? "the stored file is another phone's: " : "this phone has changed: ";
  reason.words += reason.field + " is " + quoted(reason.present) + ", the file says " + quoted(reason.stored);
  if (is_any_of(reason.field, kBeforeChipId)) reason.words += " (the chip ids were not compared)";
  return reason;
}

std::optional<Reason> reason_of(const std::string& text, const Messages& messages, File file, const Look& look) {
  const bool is_missing = look.is_missing && text.find(" open path error =") != std::string::npos;
  if (is_missing) return Reason{.words = "missing"};
  if (text.starts_with("sub certificate err")) return chain_reason(messages);
  if (text.starts_with("signature err")) return signature_reason(messages, file);
  for (const Row& row : kRows) {
    if (text.starts_with(row.beginning)) return Reason{.words = std::string(row.words), .is_decided = row.is_decided};
  }
  // "psn err" and its like: no other message is a single word and "err".
  const size_t space = text.find_first_of(" _");
  if (space != std::string::npos && text.substr(space) == " err") {
    return Reason{.words = "its record lacks " + text.substr(0, space), .field = text.substr(0, space)};
  }
  return mismatch_reason(text);
}

}  // namespace

Reason explain(const Messages& messages, File file, const Look& look) {
  if (!look.error.empty()) return {.words = look.error, .is_decided = false};
  if (!look.is_missing && look.content.empty()) return {.words = "it is empty"};
  for (const Message& message : messages) {
    if (const auto reason = reason_of(message.text, messages, file, look)) return *reason;
  }
  return {.words = "it was rejected, and the messages do not say why"};
}

}  // namespace kelphone

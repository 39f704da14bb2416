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
  const char* words;
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

bool is_any_of(std::string_view text, const auto& texts) {
  return std::find(std::begin(texts), std::end(texts), text) != std::end(texts);
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

Reason chain_reason(const Lines& messages) {
  const std::string outcome = rest_of(messages, "kelo_X509_verify_cert ret = ");
  if (outcome.empty()) return {"its signer could not be checked", false};
  if (is_any_of(outcome, kOtherRootOutcomes)) return {"its signer is of another root: " + outcome};
  return {"its signer certificate is not accepted: " + outcome};
}

Reason signature_reason(const Lines& messages, File file) {
  if (file == kParameters) return {"its content was changed: the signature does not fit"};
  const std::string chip_id = quoted(rest_of(messages, "rid="));
  return {"another phone's, or changed: the signature does not fit this phone's chip id " + chip_id};
}

std::optional<Reason> mismatch_reason(const std::string& message) {
  constexpr std::string_view kPresent = " err val_buf=";
  constexpr std::string_view kStored = " , t_buf=";
  const size_t present = message.find(kPresent);
  const size_t stored = message.rfind(kStored);  // the signed value does not hold these words; the phone's might
  if (present == std::string::npos || stored == std::string::npos) return {};
  std::string field = message.substr(0, present);
  if (field == "serialno") field = "psn";  // as the record calls it
  const size_t present_value = present + kPresent.size();
  std::string words = field == "cpuID" ? "the stored file is another phone's: " : "this phone has changed: ";
  words += field + " is " + quoted(message.substr(present_value, stored - present_value));
  words += ", the file says " + quoted(message.substr(stored + kStored.size()));
  if (is_any_of(field, kBeforeChipId)) words += " (the chip ids were not compared)";
  return Reason{words};
}

std::optional<Reason> reason_of(const std::string& message, const Lines& messages, File file) {
  if (message.starts_with("sub certificate err")) return chain_reason(messages);
  if (message.starts_with("signature err")) return signature_reason(messages, file);
  for (const Row& row : kRows) {
    if (message.starts_with(row.beginning)) return Reason{row.words, row.is_decided};
  }
  // "psn err" and its like: no other message is a single word and "err".
  const size_t space = message.find_first_of(" _");
  if (space != std::string::npos && message.substr(space) == " err") {
    return Reason{"its record lacks " + message.substr(0, space)};
  }
  return mismatch_reason(message);
}

}  // namespace

Reason explain(const Lines& messages, File file, const Look& look) {
  if (look.is_missing) return {"missing"};
  if (!look.error.empty()) return {look.error, false};
  if (look.content.empty()) return {"it is empty"};
  for (const std::string& message : messages) {
    if (const auto reason = reason_of(message, messages, file)) return *reason;
  }
  return {"it was rejected, and the messages do not say why"};
}

}  // namespace kelphone

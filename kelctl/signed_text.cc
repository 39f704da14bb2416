#include "kelctl/signed_text.h"

#include <fmt/core.h>
#include <time.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "core/record.h"
#include "core/text.h"
#include "kelchk.h"
#include "kelctl/outcome.h"
#include "records/canonical_content.h"

namespace kelctl {
namespace {

constexpr size_t kMaxChipIdLen = 256;
constexpr size_t kMaxPropertyLen = 91;

bool is_upper_hex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

bool all_upper_hex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), is_upper_hex);
}

// "240429-153012"
bool is_time(std::string_view text) {
  constexpr std::string_view kPattern = "000000-000000";
  const bool has_form =
      std::equal(text.begin(), text.end(), kPattern.begin(), kPattern.end(),
                 [](char c, char pattern) { return pattern == '0' ? c >= '0' && c <= '9' : c == pattern; });
  tm time = {};
  const char* const end = has_form ? ::strptime(std::string(text).c_str(), "%y%m%d-%H%M%S", &time) : nullptr;
  return end != nullptr && *end == '\0';
}

bool is_chip_id(std::string_view text) {
  const bool has_capital = std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
  return (text.starts_with("mt") || text.starts_with("sp")) && text.size() > 2 && text.size() <= kMaxChipIdLen &&
         !has_capital;
}

template <size_t max_len>
bool is_at_most(std::string_view value) {
  return value.size() <= max_len;
}

struct Rule {
  std::string_view key;
  bool (*holds)(std::string_view value);
  const char* expected;
};

constexpr const char* kChipIdForm = "\"mt\" or \"sp\" and 1 to 254 characters more, none of them a capital letter";

// What holds of these values on every phone, beyond not being empty. A phone's library takes one value of a key to be
// signed and may compare another with the phone when the first is longer than any phone's.
constexpr Rule kRules[] = {
    {kelchk::kBuildTimeKey, is_at_most<kMaxPropertyLen>, "at most 91 characters"},
    {kelchk::kBuildTypeKey,
     [](std::string_view value) {
       return value == "user" || value == "userdebug" || value == "eng" || value == "user_root";
     },
     "user, userdebug, eng or user_root"},
    {kelchk::kCountryShaKey, [](std::string_view value) { return value.size() == 64 && all_upper_hex(value); },
     "64 characters of 0-9 and A-F"},
    {kelchk::kCpuIdKey, is_chip_id, kChipIdForm},
    {kelchk::kDeviceBrandKey, is_at_most<kMaxPropertyLen>, "at most 91 characters"},
    {kelchk::kDeviceModelKey,
     [](std::string_view value) { return value.starts_with("MDF1") && value.size() <= 4 + kMaxPropertyLen; },
     "\"MDF1\" and at most 91 characters more"},
    {kelchk::kFeatureCodeKey, is_at_most<KELCHK_FEATURE_CODE_MAX>, "at most 127 characters"},
    {kelchk::kImeiKey, is_at_most<255>, "at most 255 characters"},
    {kelchk::kPhoneMacKey, is_at_most<127>, "at most 127 characters"},
    {kelchk::kPsnKey, [](std::string_view value) { return value.size() == 16; }, "16 characters"},
    {kelchk::kTimeKey, is_time, "a time such as 240429-153012"},
    {kelchk::kVersionKey, [](std::string_view value) { return value == "01"; }, "01"},
};

std::string challenge_objection(std::string_view text) {
  if (text.empty() || text.size() > KELCHK_CHALLENGE_MAX) {
    return fmt::format("the challenge has {} characters; 1 to {} were expected", text.size(), KELCHK_CHALLENGE_MAX);
  }
  const auto found = std::find_if_not(text.begin(), text.end(), is_upper_hex);
  if (found == text.end()) return "";
  return fmt::format("character {} of the challenge is none of 0-9 and A-F", found - text.begin() + 1);
}

std::string chip_id_objection(std::string_view text) {
  return is_chip_id(text) ? "" : fmt::format("the chip id must be {}", kChipIdForm);
}

std::vector<std::string_view> split(std::string_view record) {
  std::vector<std::string_view> fields;
  for (size_t begin = 0; begin <= record.size();) {
    const size_t end = std::min(record.find('&', begin), record.size());
    fields.push_back(record.substr(begin, end - begin));
    begin = end + 1;
  }
  return fields;
}

// An "&" inside a value makes one field more.
std::string record_objection(std::string_view text) {
  const std::vector<std::string_view> fields = split(text);
  if (fields.size() != std::size(kelchk::kRecordKeys)) {
    return fmt::format("the record has {} fields separated by \"&\"; {} were expected", fields.size(),
                       std::size(kelchk::kRecordKeys));
  }
  for (size_t i = 0; i < fields.size(); ++i) {
    const std::string_view key = kelchk::kRecordKeys[i];
    if (!fields[i].starts_with(std::string(key) + "="))
      return fmt::format("field {} of the record is not {}", i + 1, key);
    const std::string_view value = fields[i].substr(key.size() + 1);
    if (value.empty()) return fmt::format("{} has no value", key);
    for (const Rule& rule : kRules) {
      if (rule.key == key && !rule.holds(value)) return fmt::format("{} must be {}", key, rule.expected);
    }
  }
  return "";
}

}  // namespace

std::string value_of(std::string_view record, const char* key, size_t capacity) {
  std::string value(capacity, '\0');
  value.resize(kelchk::get_value_by_key(record, key, value.data(), capacity));
  return value;
}

std::string objection(Kind kind, std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return "the text has a NUL inside, where a phone takes it to end";
  switch (kind) {
    case Kind::kChallenge:
      return challenge_objection(text);
    case Kind::kRecord:
      return record_objection(text);
    case Kind::kChipId:
      return chip_id_objection(text);
  }
  return "";
}

std::string canonical_content(std::string_view record) {
  kelchk::ValueBuffer content;
  const kelchk::ContentVerdict verdict = kelchk::write_canonical_content(record, content);
  if (verdict.complete) return content;
  if (verdict.missing_key != nullptr)
    throw Refusal(fmt::format("{} is missing, empty or too long", verdict.missing_key));
  throw Refusal(fmt::format("the twelve values have more than {} characters together", KELCHK_CANONICAL_CONTENT_MAX));
}

std::string checked_message(Kind kind, const std::string& text) {
  const std::string fault = objection(kind, text);
  if (!fault.empty()) throw Refusal(fault);
  return kind == Kind::kRecord ? canonical_content(text) : text;
}

}  // namespace kelctl

#include "common/signing_policy.h"

#include <time.h>

#include <algorithm>
#include <iterator>

#include "common/outcome.h"
#include "core/record.h"
#include "kelchk.h"
#include "records/record_keys.h"

namespace common {
namespace {

using kelchk::kRecordKeys;

constexpr size_t kMaxChipIdLen = 256;
constexpr size_t kMaxPropertyLen = 91;

bool is_upper_hex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
}

bool is_sha(std::string_view text) {
  return text.size() == 64 && std::all_of(text.begin(), text.end(), is_upper_hex);
}

// "240429-153012"
bool is_time(std::string_view text) {
  constexpr std::string_view kPattern = "000000-000000";
  const bool has_form =
      std::equal(text.begin(), text.end(), kPattern.begin(), kPattern.end(),
                 [](char c, char pattern) { return pattern == '0' ? c >= '0' && c <= '9' : c == pattern; });
  if (!has_form) return false;
  const std::string terminated(text);
  tm time = {};
  const char* const end = ::strptime(terminated.c_str(), "%y%m%d-%H%M%S", &time);
  return end != nullptr && *end == '\0';
}

bool is_chip_id(std::string_view text) {
  const bool has_capital = std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
  return (text.starts_with("mt") || text.starts_with("sp")) && text.size() > 2 && text.size() <= kMaxChipIdLen &&
         !has_capital;
}

bool is_build_type(std::string_view value) {
  return value == "user" || value == "userdebug" || value == "eng" || value == "user_root";
}

bool is_model(std::string_view value) {
  return value.starts_with("MDF1") && value.size() <= 4 + kMaxPropertyLen;
}

template <size_t max_len>
bool is_at_most(std::string_view value) {
  return value.size() <= max_len;
}

struct Rule {
  std::string_view key;
  bool may_have_breaks;  // as a Unisoc phone may report them
  bool (*holds)(std::string_view value);
  const char* expected;
};

constexpr const char* kChipIdForm = R"("mt" or "sp" and 1 to 254 characters more, none of them a capital letter)";

// What holds of a value on every phone, beyond not being empty. A phone's library takes one value of a key to be signed
// and may compare another with the phone when the first is longer than any phone's.
// clang-format off
constexpr Rule kRules[] = {
    {"buildTime", false, is_at_most<kMaxPropertyLen>, "at most 91 characters"},
    {"buildType", false, is_build_type, "user, userdebug, eng or user_root"},
    {"countrySha", false, is_sha, "64 characters of 0-9 and A-F"},
    {"cpuID", true, is_chip_id, kChipIdForm},
    {"deviceBrand", false, is_at_most<kMaxPropertyLen>, "at most 91 characters"},
    {"deviceModel", false, is_model, R"("MDF1" and at most 91 characters more)"},
    {"featureCode", false, is_at_most<KELCHK_FEATURE_CODE_MAX>, "at most 127 characters"},
    {"imei", true, is_at_most<255>, "at most 255 characters"},
    {"phoneMac", true, is_at_most<127>, "at most 127 characters"},
    {"psn", false, [](std::string_view value) { return value.size() == 16; }, "16 characters"},
    {"time", false, is_time, "a time such as 240429-153012"},
    {"ver", false, [](std::string_view value) { return value == "01"; }, "01"},
};
// clang-format on
static_assert(std::equal(std::begin(kRules), std::end(kRules), std::begin(kRecordKeys), std::end(kRecordKeys),
                         [](const Rule& rule, const char* key) { return rule.key == key; }));

std::string bytes_objection(const std::string& name, std::string_view value, bool may_have_breaks) {
  const auto is_allowed = [=](char c) {
    return (c >= 0x20 && c < 0x7F) || (may_have_breaks && (c == '\n' || c == '\r'));
  };
  const auto* const found = std::find_if_not(value.begin(), value.end(), is_allowed);
  if (found == value.end()) return "";
  return name + " has a byte at position " + std::to_string(found - value.begin() + 1) + " that is not printable ASCII";
}

std::string challenge_objection(std::string_view text) {
  if (text.empty() || text.size() > KELCHK_CHALLENGE_MAX) {
    return "the challenge has " + std::to_string(text.size()) + " characters; 1 to " +
           std::to_string(KELCHK_CHALLENGE_MAX) + " were expected";
  }
  const auto* const found = std::find_if_not(text.begin(), text.end(), is_upper_hex);
  if (found == text.end()) return "";
  return "character " + std::to_string(found - text.begin() + 1) + " of the challenge is none of 0-9 and A-F";
}

std::string chip_id_objection(std::string_view text) {
  if (!is_chip_id(text)) return std::string("the chip id must be ") + kChipIdForm;
  return bytes_objection("the chip id", text, true);
}

std::string field_objection(std::string_view field, const Rule& rule, size_t position) {
  const std::string key(rule.key);
  if (!field.starts_with(key + "=")) return "field " + std::to_string(position) + " of the record is not " + key;
  const std::string_view value = field.substr(key.size() + 1);
  if (value.empty()) return key + " has no value";
  if (!rule.holds(value)) return key + " must be " + rule.expected;
  return bytes_objection(key, value, rule.may_have_breaks);
}

// An "&" inside a value makes one field more.
std::string record_objection(std::string_view text) {
  const auto count = static_cast<size_t>(std::count(text.begin(), text.end(), '&')) + 1;
  if (count != std::size(kRules)) {
    return "the record has " + std::to_string(count) + " fields separated by \"&\"; " +
           std::to_string(std::size(kRules)) + " were expected";
  }
  std::string found;
  for (size_t i = 0; i < count && found.empty(); ++i) {
    const size_t end = std::min(text.find('&'), text.size());
    found = field_objection(text.substr(0, end), kRules[i], i + 1);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return found;
}

}  // namespace

std::string value_of(std::string_view record, const char* key, size_t capacity) {
  std::string value(capacity, '\0');
  value.resize(kelchk::get_value_by_key(record, key, value.data(), capacity));
  return value;
}

std::string objection(TextKind kind, std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return "the text has a NUL inside, where a phone takes it to end";
  switch (kind) {
    case TextKind::kChallenge:
      return challenge_objection(text);
    case TextKind::kRecord:
      return record_objection(text);
    case TextKind::kChipId:
      return chip_id_objection(text);
  }
  return "the kind of text is unknown";
}

std::string canonical_content(std::string_view record) {
  std::string content;
  for (const char* const key : kRecordKeys) {
    const std::string value = value_of(record, key);
    if (value.empty()) throw Refusal(std::string(key) + " is missing, empty or too long");
    content += value;
  }
  if (content.size() <= KELCHK_CANONICAL_CONTENT_MAX) return content;
  throw Refusal("the twelve values have " + std::to_string(content.size()) + " characters together; at most " +
                std::to_string(KELCHK_CANONICAL_CONTENT_MAX) + " are accepted");
}

std::string message_to_sign(TextKind kind, std::string_view text) {
  const std::string found = objection(kind, text);
  if (!found.empty()) throw Refusal(found);
  return kind == TextKind::kRecord ? canonical_content(text) : std::string(text);
}

}  // namespace common

#include "common/signing_policy.h"

#include <time.h>

#include <algorithm>
#include <iterator>

#include "common/outcome.h"
#include "core/record.h"
#include "kelchk.h"
#include "records/canonical_content.h"
#include "records/record_keys.h"

namespace common {
namespace {

using kelchk::kRecordKeys;

constexpr size_t kMaxPropertyLen = 91;

bool is_upper_hex(std::string_view text) {
  return text.find_first_not_of("0123456789ABCDEF") == std::string_view::npos;
}

bool is_challenge(std::string_view text) {
  return text.size() <= KELCHK_CHALLENGE_MAX && is_upper_hex(text);
}

bool is_chip_id(std::string_view text) {
  const bool has_capital = std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
  return (text.starts_with("mt") || text.starts_with("sp")) && text.size() > 2 && text.size() <= 256 && !has_capital;
}

bool is_build_type(std::string_view value) {
  return value == "user" || value == "userdebug" || value == "eng" || value == "user_root";
}

bool is_model(std::string_view value) {
  return value.starts_with("MDF1") && value.size() <= 4 + kMaxPropertyLen;
}

// A time such as "240429-153012", written in full.
bool is_time(std::string_view text) {
  constexpr const char* kFormat = "%y%m%d-%H%M%S";
  tm time = {};
  char written[16];
  return ::strptime(std::string(text).c_str(), kFormat, &time) != nullptr &&
         ::strftime(written, sizeof written, kFormat, &time) > 0 && text == written;
}

template <size_t max_len>
bool is_at_most(std::string_view value) {
  return value.size() <= max_len;
}

struct Rule {
  std::string_view name;
  bool may_have_breaks;  // as a Unisoc phone may report them
  bool (*holds)(std::string_view value);
  const char* expected;
};

constexpr const char* kChipIdForm = R"("mt" or "sp" and 1 to 254 characters more, none of them a capital letter)";
constexpr Rule kChallengeRule = {"the challenge", false, is_challenge, "1 to 250 characters of 0-9 and A-F"};
constexpr Rule kChipIdRule = {"the chip id", true, is_chip_id, kChipIdForm};

// What holds of a value on every phone, beyond not being empty. A phone's library takes one value of a key to be signed
// and may compare another with the phone when the first is longer than any phone's.
// clang-format off
constexpr Rule kFieldRules[] = {
    {"buildTime", false, is_at_most<kMaxPropertyLen>, "at most 91 characters"},
    {"buildType", false, is_build_type, "user, userdebug, eng or user_root"},
    {"countrySha", false, [](std::string_view value) { return value.size() == 64 && is_upper_hex(value); }, "64 characters of 0-9 and A-F"},
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
static_assert(std::equal(std::begin(kFieldRules), std::end(kFieldRules), std::begin(kRecordKeys), std::end(kRecordKeys),
                         [](const Rule& rule, const char* key) { return rule.name == key; }));
static_assert(KELCHK_CHALLENGE_MAX == 250 && KELCHK_FEATURE_CODE_MAX == 127);  // as the texts say

std::string value_objection(const Rule& rule, std::string_view value) {
  const std::string name(rule.name);
  if (value.empty()) return name + " has no characters";
  if (!rule.holds(value)) return name + " must be " + rule.expected;
  for (size_t i = 0; i < value.size(); ++i) {
    const bool is_break = value[i] == '\n' || value[i] == '\r';
    if ((value[i] >= 0x20 && value[i] < 0x7F) || (is_break && rule.may_have_breaks)) continue;
    return name + " has a byte at position " + std::to_string(i + 1) + " that is not printable ASCII";
  }
  return "";
}

// An "&" inside a value makes one field more.
std::string record_objection(std::string_view text) {
  const auto count = static_cast<size_t>(std::count(text.begin(), text.end(), '&')) + 1;
  if (count != std::size(kFieldRules)) {
    return "the record has " + std::to_string(count) + " fields separated by \"&\"; " +
           std::to_string(std::size(kFieldRules)) + " were expected";
  }
  for (const Rule& rule : kFieldRules) {
    const std::string_view field = text.substr(0, text.find('&'));
    const std::string key = std::string(rule.name) + "=";
    if (!field.starts_with(key)) return "the record has no " + key + " where it was expected";
    const std::string objection = value_objection(rule, field.substr(key.size()));
    if (!objection.empty()) return objection;
    text.remove_prefix(std::min(field.size() + 1, text.size()));
  }
  return "";
}

}  // namespace

std::string value_of(std::string_view record, const char* key, size_t capacity) {
  std::string value(capacity, '\0');
  value.resize(kelchk::get_value_by_key(record, key, value.data(), capacity));
  return value;
}

std::string objection(TextKind kind, std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return "the text has a NUL inside, where a phone takes it to end";
  if (kind == TextKind::kRecord) return record_objection(text);
  return value_objection(kind == TextKind::kChallenge ? kChallengeRule : kChipIdRule, text);
}

std::string canonical_content(std::string_view record) {
  kelchk::ValueBuffer content;
  const kelchk::ContentVerdict verdict = kelchk::write_canonical_content(record, content);
  if (verdict.complete) return content;
  if (verdict.missing_key != nullptr)
    throw Refusal(verdict.missing_key + std::string(" is missing, empty or too long"));
  throw Refusal("the twelve values have more than the " + std::to_string(KELCHK_CANONICAL_CONTENT_MAX) +
                " characters together that are accepted");
}

std::string message_to_sign(TextKind kind, std::string_view text) {
  const std::string found = objection(kind, text);
  if (!found.empty()) throw Refusal(found);
  return kind == TextKind::kRecord ? canonical_content(text) : std::string(text);
}

}  // namespace common

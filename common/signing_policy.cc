#include "common/signing_policy.h"

#include <fmt/core.h>
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

// A time such as "240429-153012", written in full.
bool is_time(std::string_view text) {
  constexpr const char* kFormat = "%y%m%d-%H%M%S";
  tm time = {};
  char written[16];
  return ::strptime(std::string(text).c_str(), kFormat, &time) != nullptr &&
         ::strftime(written, sizeof written, kFormat, &time) > 0 && text == written;
}

struct Alphabet {
  bool (*has)(char c);
  const char* others;  // what a character outside it is
};

struct Rule {
  std::string_view name;
  size_t min_len;
  size_t max_len;
  const Alphabet& alphabet;
  bool (*has_form)(std::string_view value) = nullptr;
  const char* form = "";
};

constexpr size_t kMaxPropertyLen = 91;

// What holds of a text on every phone. A phone's library takes one value of a key to be signed and may compare another
// with the phone when the first is longer than any phone's.
// clang-format off
constexpr Alphabet kHex = {[](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }, "not one of 0-9 and A-F"};
constexpr Alphabet kPlain = {[](char c) { return c >= ' ' && c <= '~'; }, "not printable ASCII"};
constexpr Alphabet kBreaks = {[](char c) { return kPlain.has(c) || c == '\n' || c == '\r'; }, "neither printable ASCII nor a line break"};  // as Unisoc phones may report
constexpr Alphabet kNoCapitals = {[](char c) { return kBreaks.has(c) && (c < 'A' || c > 'Z'); }, "a capital letter or not printable ASCII"};

constexpr Rule kChallengeRule = {"the challenge", 1, KELCHK_CHALLENGE_MAX, kHex};
constexpr Rule kChipIdRule = {"the chip id", 3, 256, kNoCapitals, [](std::string_view id) { return id.starts_with("mt") || id.starts_with("sp"); }, R"(must begin with "mt" or "sp")"};
constexpr Rule kFieldRules[] = {
    {"buildTime", 1, kMaxPropertyLen, kPlain},
    {"buildType", 1, kMaxPropertyLen, kPlain, [](std::string_view value) { return value == "user" || value == "userdebug" || value == "eng" || value == "user_root"; }, "must be user, userdebug, eng or user_root"},
    {"countrySha", 64, 64, kHex},
    {"cpuID", kChipIdRule.min_len, kChipIdRule.max_len, kNoCapitals, kChipIdRule.has_form, kChipIdRule.form},
    {"deviceBrand", 1, kMaxPropertyLen, kPlain},
    {"deviceModel", 4, 4 + kMaxPropertyLen, kPlain, [](std::string_view value) { return value.starts_with("MDF1"); }, "must begin with MDF1"},
    {"featureCode", 1, KELCHK_FEATURE_CODE_MAX, kPlain},
    {"imei", 1, 255, kBreaks},
    {"phoneMac", 1, 127, kBreaks},
    {"psn", 16, 16, kPlain},
    {"time", 13, 13, kPlain, is_time, "must be a time such as 240429-153012"},
    {"ver", 2, 2, kPlain, [](std::string_view value) { return value == "01"; }, "must be 01"},
};
// clang-format on
static_assert(std::ranges::equal(kFieldRules, kelchk::kRecordKeys, {}, &Rule::name));

void check_value(const Rule& rule, std::string_view value) {
  const auto& [name, min_len, max_len, alphabet, has_form, form] = rule;
  if (value.size() < min_len || value.size() > max_len) {
    const std::string range = min_len < max_len ? fmt::format("{} to {}", min_len, max_len) : std::to_string(max_len);
    throw Refusal(fmt::format("{} has {} characters, not {}", name, value.size(), range));
  }
  const auto* const other = std::find_if_not(value.begin(), value.end(), alphabet.has);
  if (other != value.end()) {
    throw Refusal(fmt::format("character {} of {} is {}", other - value.begin() + 1, name, alphabet.others));
  }
  if (has_form != nullptr && !has_form(value)) throw Refusal(fmt::format("{} {}", name, form));
}

// An "&" inside a value makes one field more.
void check_record(std::string_view text) {
  const auto count = static_cast<size_t>(std::count(text.begin(), text.end(), '&')) + 1;
  if (count != std::size(kFieldRules)) {
    throw Refusal(fmt::format(R"(the record has {} fields separated by "&", not {})", count, std::size(kFieldRules)));
  }
  for (const Rule& rule : kFieldRules) {
    const std::string_view field = text.substr(0, text.find('&'));
    const std::string key = fmt::format("{}=", rule.name);
    if (!field.starts_with(key)) throw Refusal(fmt::format("the record has no {} where it was expected", key));
    check_value(rule, field.substr(key.size()));
    text.remove_prefix(std::min(field.size() + 1, text.size()));
  }
}

}  // namespace

std::string value_of(std::string_view record, const char* key, size_t capacity) {
  std::string value(capacity, '\0');
  value.resize(kelchk::get_value_by_key(record, key, value.data(), capacity));
  return value;
}

std::string canonical_content(std::string_view record) {
  kelchk::ValueBuffer content;
  const kelchk::ContentVerdict verdict = kelchk::write_canonical_content(record, content);
  if (verdict.complete) return content;
  if (verdict.missing_key != nullptr)
    throw Refusal(fmt::format("{} is missing, empty or too long", verdict.missing_key));
  throw Refusal(fmt::format("the twelve values have more than {} characters together", KELCHK_CANONICAL_CONTENT_MAX));
}

std::string message_to_sign(TextKind kind, std::string_view text) {
  if (kind != TextKind::kRecord) {
    check_value(kind == TextKind::kChallenge ? kChallengeRule : kChipIdRule, text);
    return std::string(text);
  }
  check_record(text);
  return canonical_content(text);
}

}  // namespace common

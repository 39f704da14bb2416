#include "kelctl/provision.h"

#include <fmt/core.h>

#include <optional>
#include <string_view>

#include "kelctl/outcome.h"
#include "kelctl/text.h"

namespace kelctl {
namespace {

// 256 random bits.
constexpr int kChallengeLen = 64;

void tell(std::string_view step) {
  fmt::print("{}\n", step);
  std::fflush(stdout);
}

// What the phone answers after "ok "; none when it refuses, after the reason. Throws Error over any other answer.
std::optional<std::string> ask_for(const Ask& ask, std::string_view what, const std::string& request) {
  const std::string answer = ask(request);
  if (answer == "ok") return "";
  try {
    if (answer.starts_with("ok ")) return unescape(std::string_view(answer).substr(3));
  } catch (const Refusal& refusal) {
    throw Error(fmt::format("the line session answered \"{}\": {}", answer, refusal.what()));
  }
  constexpr std::string_view kFailed = "failed: ";
  if (!answer.starts_with(kFailed)) throw Error(fmt::format("the line session answered \"{}\"", answer));
  tell(fmt::format("The phone refuses {}.", what));
  fmt::print(stderr, "  {}\n", answer.substr(kFailed.size()));
  if (answer.find("IMEI err=") != std::string::npos) fmt::print(stderr, "  A Unisoc phone needs --imei.\n");
  return std::nullopt;
}

void show_record(const std::string& record) {
  for (const char* const key : kelchk::kRecordKeys) fmt::print("  {:<12} {}\n", key, escape(value_of(record, key)));
}

}  // namespace

bool provision(const Provisioning& provisioning, const Ask& ask) {
  const auto challenge = ask_for(ask, "a challenge", fmt::format("challenge {}", kChallengeLen));
  if (!challenge) return false;
  tell(fmt::format("The phone issues a challenge of {} characters.", challenge->size()));

  const auto answer_with = [&](std::string_view request, Kind kind, const std::string& text) {
    return fmt::format("{} {}", request, signed_record(provisioning.certificate, provisioning.signer(kind, text)));
  };
  if (!ask_for(ask, "the login", answer_with("respond", Kind::kChallenge, *challenge))) return false;
  tell("The signer answers it, and the phone accepts the login.");

  std::string request = "featureCode=" + provisioning.feature_code;
  if (!provisioning.imei.empty()) request += "&IMEI=" + provisioning.imei;
  const auto record = ask_for(ask, "its record", "record " + escape(request));
  if (!record) return false;
  tell("The phone describes itself:");
  show_record(*record);

  if (!ask_for(ask, "the signed record", answer_with("import", Kind::kRecord, *record))) return false;
  tell("The signer signs the twelve values, and the phone stores record and signature twice.");
  return true;
}

}  // namespace kelctl

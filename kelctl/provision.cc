#include "kelctl/provision.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "common/escape.h"
#include "common/journal.h"
#include "common/outcome.h"
#include "common/output.h"
#include "kelctl/session.h"
#include "records/record_keys.h"

namespace kelctl {
namespace {

using common::escape;
using common::TextKind;

// 256 random bits.
constexpr size_t kChallengeLen = 64;

// One pass over one phone, and what the journal says of it.
struct Pass {
  explicit Pass(const ProvisionRequest& what) : request(what) {}

  const ProvisionRequest& request;
  std::string start = common::journal_time();
  std::string end;
  std::string step = "start";  // the one under way, and then the one that failed
  std::string record;
  common::ExitCode code = common::kNo;
  std::vector<std::string> reasons;
};

const char* outcome_of(const Pass& pass) {
  if (pass.code == common::kYes) return "provisioned";
  return pass.code == common::kNo ? "not provisioned" : "session failed";
}

void show(const Pass& pass, const std::string& words) {
  if (!pass.request.as_json) common::print(words + "\n");
}

void log_in(Pass& pass, Session& phone, Session& signer) {
  pass.step = "challenge";
  const std::string challenge = phone.ask("challenge", std::to_string(kChallengeLen));
  if (challenge.size() != kChallengeLen) {
    throw Declined("the challenge is not what was asked for",
                   {fmt::format("it has {} characters; {} were expected", challenge.size(), kChallengeLen)});
  }
  show(pass, fmt::format("The phone issues a challenge of {} characters.", challenge.size()));
  pass.step = "challenge signature";
  const std::string response = ask_signature(signer, TextKind::kChallenge, challenge);
  pass.step = "login";
  phone.ask("respond", response);
  show(pass, "The signer answers it, and the phone accepts the login.");
}

void require_value(const Pass& pass, const char* key, const std::string& expected, bool is_whole) {
  const std::string value = common::value_of(pass.record, key);
  if (is_whole ? value == expected : value.find(expected) != std::string::npos) return;
  throw Declined("the record does not match the request",
                 {fmt::format(R"({} is "{}", not "{}")", key, value, expected)});
}

void take_record(Pass& pass, Session& phone) {
  pass.step = "record";
  const std::string& imei = pass.request.imei;
  const std::string suffix = imei.empty() ? "" : "&IMEI=" + imei;
  pass.record = phone.ask("record", fmt::format("featureCode={}{}", pass.request.feature_code, suffix));
  show(pass, "The phone describes itself:");
  for (const char* const key : kelchk::kRecordKeys) {
    show(pass, fmt::format("  {:<12} {}", key, escape(common::value_of(pass.record, key))));
  }
  require_value(pass, "featureCode", pass.request.feature_code, true);
  require_value(pass, "imei", imei, false);  // on Unisoc it is the modem's whole answer
}

void import_signature(Pass& pass, Session& phone, Session& signer) {
  pass.step = "record signature";
  const std::string signature = ask_signature(signer, TextKind::kRecord, pass.record);
  pass.step = "import";
  phone.ask("import", signature);
  show(pass, "The signer signs the twelve values, and the phone stores record and signature twice.");
}

void explain_refusal(Pass& pass, const Declined& declined) {
  pass.reasons = declined.reasons;
  const bool lacks_imei = std::any_of(pass.reasons.begin(), pass.reasons.end(), [](const std::string& reason) {
    return reason.find("IMEI err=") != std::string::npos;
  });
  if (lacks_imei && pass.request.imei.empty()) pass.reasons.emplace_back("A Unisoc phone needs --imei.");
  fmt::print(stderr, "kelctl: {}: {}\n", pass.step, declined.what());
  for (const std::string& reason : pass.reasons) fmt::print(stderr, "  {}\n", escape(reason));
}

void run(Pass& pass) {
  try {
    Session phone("the phone", pass.request.phone_command, pass.request.timeout);
    Session signer("the signer", pass.request.signer_command, pass.request.timeout);
    log_in(pass, phone, signer);
    take_record(pass, phone);
    import_signature(pass, phone, signer);
    pass.code = common::kYes;
    pass.step.clear();
  } catch (const Declined& declined) {
    explain_refusal(pass, declined);
  } catch (const common::SessionError& error) {
    pass.code = common::kSessionFailed;
    pass.reasons = {error.what()};
    fmt::print(stderr, "kelctl: {}: {}\n", pass.step, escape(error.what()));
  }
  pass.end = common::journal_time();
}

std::vector<common::Journal::Field> fields_of(const Pass& pass) {
  std::string reasons;
  for (const std::string& reason : pass.reasons) {
    reasons += (reasons.empty() ? "" : ", ") + common::json_string(reason);
  }
  return {{"start", common::json_string(pass.start)},   {"end", common::json_string(pass.end)},
          {"record", common::json_string(pass.record)}, {"outcome", common::json_string(outcome_of(pass))},
          {"step", common::json_string(pass.step)},     {"reasons", "[" + reasons + "]"}};
}

}  // namespace

int provision(const ProvisionRequest& request) {
  Pass pass(request);
  run(pass);
  const std::string words = pass.code == common::kYes ? common::good(outcome_of(pass)) : common::bad(outcome_of(pass));
  common::print((request.as_json ? common::Journal::object_of(fields_of(pass)) : words) + "\n");
  common::Journal(request.journal).add(fields_of(pass));
  return pass.code;
}

}  // namespace kelctl

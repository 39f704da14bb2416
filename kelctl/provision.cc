#include "kelctl/provision.h"

#include <fmt/format.h>

#include <chrono>

#include "common/escape.h"
#include "common/journal.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "common/process.h"
#include "common/signing_policy.h"
#include "kelctl/explain.h"
#include "records/record_keys.h"

namespace kelctl {
namespace {

using common::json_string;
using common::Process;
using common::Refusal;
using common::SessionError;
using common::TextKind;

constexpr size_t kChallengeLen = 64;  // 256 random bits

// One pass over one phone, and what the journal says of it.
struct Pass {
  const ProvisionRequest& request;
  std::string start = common::journal_time();
  std::string step = "start";  // the one under way, and then the one that failed
  std::string record{};
  common::ExitCode code = common::kYes;
  const char* outcome = "session failed";
  std::vector<std::string> reasons{};
};

void show(const Pass& pass, const std::string& words) {
  if (!pass.request.as_json) common::print(words + "\n");
}

std::vector<std::string> split_reasons(std::string_view text) {
  std::vector<std::string> reasons;
  for (size_t end = 0; (end = text.find("; ")) != std::string_view::npos; text.remove_prefix(end + 2)) {
    reasons.emplace_back(text.substr(0, end));
  }
  reasons.emplace_back(text);
  return reasons;
}

// Begins |step| and returns the text of the answer. Throws Refusal with the reasons when it is no, SessionError when
// none comes in time or what comes is none.
std::string ask(Pass& pass, const char* step, Process& session, std::string_view verb, std::string_view text) {
  pass.step = step;
  const std::string line =
      session.ask(fmt::format("{} {}", verb, common::encode_text(text)), std::chrono::seconds(pass.request.timeout));
  common::Answer answer;
  try {
    answer = common::parse_answer(line);
  } catch (const Refusal& fault) {
    throw SessionError(fmt::format("{}: it answered \"{}\": {}", session.name(), line, fault.what()));
  }
  if (!answer.ok) throw Refusal(answer.text);
  return answer.text;
}

// What the policy rejects is not passed on to the signer, and what is no signature over |text| with the key of the
// certificate beside it is not passed on to the phone.
std::string ask_signature(Pass& pass, const char* step, Process& signer, TextKind kind, const std::string& text) {
  pass.step = step;
  const std::string message = common::message_to_sign(kind, text);
  if (kind == TextKind::kChallenge && text.size() != kChallengeLen) {
    throw Refusal(fmt::format("the challenge has {} characters, not {}", text.size(), kChallengeLen));
  }
  std::string record = ask(pass, step, signer, kind == TextKind::kRecord ? "record" : "challenge", text);
  const std::string fault = answer_fault(record, message);
  if (!fault.empty()) throw SessionError("the signer: unusable answer: " + fault);
  return record;
}

void log_in(Pass& pass, Process& phone, Process& signer) {
  const std::string challenge = ask(pass, "challenge", phone, "challenge", std::to_string(kChallengeLen));
  show(pass, fmt::format("The phone issues a challenge of {} characters.", challenge.size()));
  ask(pass, "login", phone, "respond",
      ask_signature(pass, "challenge signature", signer, TextKind::kChallenge, challenge));
  show(pass, "The signer answers it, and the phone accepts the login.");
}

void take_record(Pass& pass, Process& phone) {
  const std::string& feature_code = pass.request.feature_code;
  const std::string& imei = pass.request.imei;
  const std::string suffix = imei.empty() ? "" : "&IMEI=" + imei;
  pass.record = ask(pass, "record", phone, "record", fmt::format("featureCode={}{}", feature_code, suffix));
  show(pass, "The phone describes itself:");
  for (const char* const key : kelchk::kRecordKeys) {
    show(pass, fmt::format("  {:<12} {}", key, common::escape(common::value_of(pass.record, key))));
  }
  const std::string code = common::value_of(pass.record, kelchk::kFeatureCodeKey);
  if (code != feature_code) throw Refusal(fmt::format(R"(featureCode is "{}", not "{}")", code, feature_code));
  const std::string modem_answer = common::value_of(pass.record, kelchk::kImeiKey);  // on Unisoc the whole of it
  if (modem_answer.find(imei) != std::string::npos) return;
  throw Refusal(fmt::format(R"(imei is "{}", not "{}")", modem_answer, imei));
}

void run(Pass& pass) {
  try {
    Process phone("the phone", pass.request.phone_command);
    Process signer("the signer", pass.request.signer_command);
    log_in(pass, phone, signer);
    take_record(pass, phone);
    ask(pass, "import", phone, "import",
        ask_signature(pass, "record signature", signer, TextKind::kRecord, pass.record));
    pass.step.clear();
    pass.outcome = "provisioned";
    show(pass, "The signer signs the twelve values, and the phone stores record and signature twice.");
  } catch (const Refusal& refusal) {
    const std::string text = refusal.what();
    pass.code = common::kNo;
    pass.outcome = "not provisioned";
    pass.reasons = split_reasons(text);
    const bool lacks_imei = pass.request.imei.empty() && text.find("IMEI err=") != std::string::npos;
    if (lacks_imei) pass.reasons.emplace_back("A Unisoc phone needs --imei.");
  } catch (const SessionError& error) {
    pass.code = common::kSessionFailed;
    pass.reasons = {error.what()};
  } catch (const common::Error& error) {
    pass.code = common::kUnusable;
    pass.reasons = {error.what()};
  }
}

}  // namespace

int provision(const ProvisionRequest& request) {
  Pass pass{request};
  run(pass);
  std::string reasons;
  for (const std::string& reason : pass.reasons) {
    common::complain("kelctl: " + pass.step, reason);
    reasons += (reasons.empty() ? "" : ", ") + json_string(reason);
  }
  const common::Members members = {{"start", json_string(pass.start)},   {"end", json_string(common::journal_time())},
                                   {"record", json_string(pass.record)}, {"outcome", json_string(pass.outcome)},
                                   {"step", json_string(pass.step)},     {"reasons", "[" + reasons + "]"}};
  const std::string words = common::painted(pass.outcome, pass.code == common::kYes) + "\n";
  try {
    common::print(request.as_json ? common::json_line(members) : words);
  } catch (const common::Error& error) {  // the journal must know of the pass all the same
    common::complain("kelctl", error.what());
    pass.code = common::kUnusable;
  }
  common::add_to_journal(request.journal, members);
  return pass.code;
}

}  // namespace kelctl

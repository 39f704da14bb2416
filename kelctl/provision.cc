#include "kelctl/provision.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "common/escape.h"
#include "common/fd.h"
#include "common/file.h"
#include "common/journal.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "common/process.h"
#include "common/signing_policy.h"
#include "kelctl/explain.h"
#include "records/record_keys.h"

namespace kelctl {
namespace {

using common::escape;
using common::TextKind;

// 256 random bits.
constexpr size_t kChallengeLen = 64;

// The phone's session or the signer's: one request and one answer a line.
struct Session {
  std::string name;  // as messages call it
  std::chrono::seconds timeout;
  common::Process process;
};

Session start(const std::string& name, const std::vector<std::string>& command, std::chrono::seconds timeout) {
  return {name, timeout, common::Process(name, command)};
}

// A session that works refuses what it was asked.
struct Declined : std::runtime_error {
  Declined(const std::string& what, std::vector<std::string> why) : runtime_error(what), reasons(std::move(why)) {}
  std::vector<std::string> reasons;  // as they came
};

// One pass over one phone, and what the journal says of it.
struct Pass {
  const ProvisionRequest& request;
  std::string start = common::journal_time();
  std::string step = "start";  // the one under way, and then the one that failed
  std::string record{};
  common::ExitCode code = common::kNo;
  std::vector<std::string> reasons{};
};

const char* outcome_of(const Pass& pass) {
  if (pass.code == common::kYes) return "provisioned";
  return pass.code == common::kNo ? "not provisioned" : "session failed";
}

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

// Returns the text of the answer. Throws Declined when it is no, common::SessionError when none comes in time or what
// comes is none.
std::string ask(Session& session, std::string_view verb, std::string_view text) {
  const std::string line = session.process.ask(fmt::format("{} {}", verb, common::encode_text(text)), session.timeout);
  try {
    common::Answer answer = common::parse_answer(line);
    if (answer.ok) return std::move(answer.text);
    throw Declined(fmt::format("{} refuses \"{}\"", session.name, verb), split_reasons(answer.text));
  } catch (const common::Refusal& refusal) {
    throw common::SessionError(fmt::format("{}: it answered \"{}\": {}", session.name, line, refusal.what()));
  }
}

// What the policy rejects is not passed on to the signer, and what is no signature over |text| with the key of the
// certificate beside it is not passed on to the phone.
std::string ask_signature(Session& signer, TextKind kind, const std::string& text) {
  std::string objection = common::objection(kind, text);
  if (!objection.empty()) throw Declined("the policy forbids signing what the phone answered", {std::move(objection)});
  std::string record = ask(signer, kind == TextKind::kRecord ? "record" : "challenge", text);
  const std::string fault = answer_fault(record, common::message_to_sign(kind, text));
  if (fault.empty()) return record;
  throw common::SessionError("the signer: unusable answer: " + fault);
}

void log_in(Pass& pass, Session& phone, Session& signer) {
  pass.step = "challenge";
  const std::string challenge = ask(phone, "challenge", std::to_string(kChallengeLen));
  show(pass, fmt::format("The phone issues a challenge of {} characters.", challenge.size()));
  pass.step = "challenge signature";
  const std::string response = ask_signature(signer, TextKind::kChallenge, challenge);
  pass.step = "login";
  ask(phone, "respond", response);
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
  pass.record = ask(phone, "record", fmt::format("featureCode={}{}", pass.request.feature_code, suffix));
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
  ask(phone, "import", signature);
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
    Session phone = start("the phone", pass.request.phone_command, pass.request.timeout);
    Session signer = start("the signer", pass.request.signer_command, pass.request.timeout);
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
}

std::vector<common::Journal::Field> fields_of(const Pass& pass) {
  std::string reasons;
  for (const std::string& reason : pass.reasons) {
    reasons += (reasons.empty() ? "" : ", ") + common::json_string(reason);
  }
  return {{"start", common::json_string(pass.start)},   {"end", common::json_string(common::journal_time())},
          {"record", common::json_string(pass.record)}, {"outcome", common::json_string(outcome_of(pass))},
          {"step", common::json_string(pass.step)},     {"reasons", "[" + reasons + "]"}};
}

}  // namespace

int provision(const ProvisionRequest& request) {
  Pass pass{request};
  run(pass);
  const std::vector<common::Journal::Field> fields = fields_of(pass);
  const std::string words = pass.code == common::kYes ? common::good(outcome_of(pass)) : common::bad(outcome_of(pass));
  common::print((request.as_json ? common::Journal::object_of(fields) : words) + "\n");
  common::Journal(request.journal).add(fields);
  return pass.code;
}

}  // namespace kelctl

#include "kelctl/session.h"

#include <fmt/format.h>

#include "common/line_protocol.h"
#include "common/outcome.h"
#include "kelctl/signer_record.h"

namespace kelctl {
namespace {

common::Answer parse(const std::string& name, const std::string& line) {
  try {
    return common::parse_answer(line);
  } catch (const common::Refusal& refusal) {
    throw common::SessionError(fmt::format("{}: it answered \"{}\": {}", name, line, refusal.what()));
  }
}

std::vector<std::string> split_reasons(std::string_view text) {
  constexpr std::string_view kSeparator = "; ";
  std::vector<std::string> reasons;
  for (size_t end = 0; (end = text.find(kSeparator)) != std::string_view::npos; text.remove_prefix(end + 2)) {
    reasons.emplace_back(text.substr(0, end));
  }
  reasons.emplace_back(text);
  return reasons;
}

}  // namespace

std::string Session::ask(std::string_view verb, std::string_view text) {
  const std::string line = fmt::format("{} {}", verb, common::encode_text(text));
  common::Answer answer = parse(name_, process_.ask(line, timeout_));
  if (answer.ok) return std::move(answer.text);
  throw Declined(fmt::format("{} refuses \"{}\"", name_, verb), split_reasons(answer.text));
}

std::string ask_signature(Session& signer, common::TextKind kind, const std::string& text) {
  const bool is_record = kind == common::TextKind::kRecord;
  std::string objection = common::objection(kind, text);
  if (!objection.empty()) throw Declined("the policy forbids signing what the phone answered", {std::move(objection)});
  std::string record = signer.ask(is_record ? "record" : "challenge", text);
  const std::string fault = answer_fault(record, common::message_to_sign(kind, text));
  if (fault.empty()) return record;
  throw common::SessionError("the signer: unusable answer: " + fault);
}

}  // namespace kelctl

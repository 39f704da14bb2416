#include "kelsign/line_session.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

#include "common/escape.h"
#include "common/file.h"
#include "common/outcome.h"

namespace kelsign {
namespace {

using common::Refusal;
using common::TextKind;

// A line without the line break at its end, which a chip id may have as well.
std::string_view without_line_break(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::set<std::string, std::less<>> read_list(const std::string& path) {
  constexpr size_t kMaxListLen = size_t{64} << 20;
  std::set<std::string, std::less<>> list;
  const std::string text = common::read_file(path, kMaxListLen);
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    list.emplace(without_line_break(std::string_view(text).substr(begin, end - begin)));
    begin = end + 1;
  }
  return list;
}

}  // namespace

LineSession::LineSession(const Signer& signer, SessionLimits limits, common::Journal journal)
    : signer_(signer), limits_(std::move(limits)), journal_(std::move(journal)) {
  if (!limits_.chip_ids_path.empty()) chip_ids_ = read_list(limits_.chip_ids_path);
}

std::string LineSession::message_of(const common::Request& request) const {
  const TextKind kind = kind_of(request.verb);
  if (kind == TextKind::kChipId && !limits_.allows_chip_ids) throw Refusal("this session signs no chip id");
  std::string message = common::message_to_sign(kind, request.text);
  if (kind == TextKind::kChipId && !limits_.chip_ids_path.empty() &&
      !chip_ids_.contains(without_line_break(request.text))) {
    throw Refusal("the chip id is not on the list");
  }
  const auto& codes = limits_.feature_codes;
  if (kind == TextKind::kRecord &&
      std::find(codes.begin(), codes.end(), common::value_of(request.text, "featureCode")) == codes.end()) {
    throw Refusal("this session signs no record with that featureCode");
  }
  return message;
}

void LineSession::record(const common::Request& request, std::string_view outcome, const std::string& reason) const {
  using common::json_string;
  journal_.add({{"time", json_string(common::journal_time())},
                {"verb", json_string(request.verb)},
                {"text", json_string(request.text)},
                {"outcome", json_string(outcome)},
                {"reason", json_string(reason)}});
}

// What cannot be recorded is not signed, so the record comes before the signature.
std::string LineSession::answer(const common::Request& request) const {
  std::string message;
  try {
    message = message_of(request);
  } catch (const Refusal& refusal) {
    record(request, "refused", refusal.what());
    throw;
  }
  record(request, "signed");
  try {
    return common::ok_line(signer_.signed_record(message));
  } catch (const common::Error& error) {
    record(request, "failed", error.what());
    throw;
  }
}

}  // namespace kelsign

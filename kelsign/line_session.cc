#include "kelsign/line_session.h"

#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "common/escape.h"
#include "common/file.h"
#include "common/journal.h"
#include "common/line_protocol.h"
#include "common/outcome.h"

namespace kelsign {
namespace {

using common::json_string;
using common::Refusal;
using common::Request;
using common::TextKind;

// A line of the list may end in one, and so may a chip id.
std::string without_line_break(std::string line) {
  if (line.ends_with('\n')) line.pop_back();
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

class LineSession {
 public:
  LineSession(const Signer& signer, const SessionOptions& options)
      : signer_(signer), options_(options), journal_(options.journal_path) {
    if (options.chip_ids_path.empty()) return;
    constexpr size_t kMaxListLen = size_t{64} << 20;
    std::istringstream list(common::read_file(options.chip_ids_path, kMaxListLen));
    for (std::string line; std::getline(list, line);) chip_ids_.insert(without_line_break(line));
  }

  // What cannot be recorded is not signed, so the record comes before the signature.
  [[nodiscard]] std::string answer(const Request& request) const {
    try {
      const std::string message = message_of(request);
      record(request, "signed");
      return common::ok_line(signer_.signed_record(message));
    } catch (const Refusal& refusal) {
      record(request, "refused", refusal.what());
      throw;
    } catch (const common::Error& error) {
      record(request, "failed", error.what());
      throw;
    }
  }

 private:
  [[nodiscard]] std::string message_of(const Request& request) const {
    const TextKind kind = kind_of(request.verb);
    if (kind == TextKind::kChipId && !options_.allows_chip_ids) throw Refusal("this session signs no chip id");
    std::string message = common::message_to_sign(kind, request.text);
    if (kind == TextKind::kChipId && !options_.chip_ids_path.empty() &&
        !chip_ids_.contains(without_line_break(request.text))) {
      throw Refusal("the chip id is not on the list");
    }
    const auto& codes = options_.feature_codes;
    if (kind == TextKind::kRecord &&
        std::find(codes.begin(), codes.end(), common::value_of(request.text, "featureCode")) == codes.end()) {
      throw Refusal("this session signs no record with that featureCode");
    }
    return message;
  }

  void record(const Request& request, std::string_view outcome, const std::string& reason = "") const {
    journal_.add({{"time", json_string(common::journal_time())},
                  {"verb", json_string(request.verb)},
                  {"text", json_string(request.text)},
                  {"outcome", json_string(outcome)},
                  {"reason", json_string(reason)}});
  }

  const Signer& signer_;
  const SessionOptions& options_;
  std::set<std::string> chip_ids_;
  common::Journal journal_;
};

}  // namespace

void serve(const Signer& signer, const SessionOptions& options) {
  const LineSession session(signer, options);
  common::serve_lines(STDIN_FILENO, STDOUT_FILENO, [&](const Request& request) { return session.answer(request); });
}

}  // namespace kelsign

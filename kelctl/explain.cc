#include "kelctl/explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "common/escape.h"
#include "common/file.h"
#include "common/outcome.h"
#include "common/output.h"
#include "kelchk.h"
#include "kelctl/checks.h"

namespace kelctl {
namespace {

// Above every library; of records a phone reads far less.
constexpr size_t kMaxFileLen = 16 << 20;

Findings examine_file(const std::string& path, const Question& question) {
  Findings findings;
  try {
    findings = examine(common::read_file(path, kMaxFileLen), question);
  } catch (const common::Error& error) {
    findings.unreadable = error.what();
  }
  findings.path = path;
  return findings;
}

common::ExitCode gravest(const std::vector<Findings>& files) {
  for (const common::ExitCode code : {common::kUnusable, common::kNo, common::kUndecided}) {
    if (std::any_of(files.begin(), files.end(), [=](const Findings& file) { return verdict_of(file).code == code; })) {
      return code;
    }
  }
  return common::kYes;
}

}  // namespace

Verdict verdict_of(const Findings& findings) {
  if (!findings.unreadable.empty()) return {"unreadable", common::kUnusable};
  const auto has = [&](State state) {
    return std::any_of(findings.checks.begin(), findings.checks.end(),
                       [state](const Check& check) { return check.state == state; });
  };
  if (has(State::kFails)) return {"does not hold", common::kNo};
  if (has(State::kOpen)) return {"undecided", common::kUndecided};
  return {"holds", common::kYes};
}

Findings examine(std::string_view bytes, const Question& question) {
  Findings findings;
  const std::string_view text = bytes.substr(0, std::min<size_t>(bytes.find('\0'), KELCHK_SIGNED_FILE_MAX));
  if (!read_fields(text, findings) && check_certificates(bytes, question, findings)) return findings;
  findings.extent = fmt::format("{} characters", text.size());
  findings.is_longer = bytes.size() > KELCHK_SIGNED_FILE_MAX;
  check_record(text, question, findings);
  return findings;
}

int explain(const ExplainRequest& request) {
  Question question;
  if (!request.root_path.empty()) question.root = load_certificate(request.root_path);
  question.message = request.message;

  std::vector<Findings> files;
  for (const std::string& path : request.paths) {
    const Findings& file = files.emplace_back(examine_file(path, question));
    if (!file.unreadable.empty()) fmt::print(stderr, "kelctl: {}\n", common::escape(file.unreadable));
    if (request.as_json) {
      common::print(as_json(file));
    } else if (file.unreadable.empty()) {
      common::print(as_text(file));
    }
  }
  if (files.size() > 1 && !request.as_json) common::print(as_table(files));
  return gravest(files);
}

}  // namespace kelctl

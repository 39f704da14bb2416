// The commands other than "check".
#include "kelphone/commands.h"

#include <unistd.h>

#include <charconv>
#include <cstring>
#include <iterator>

#include "common/escape.h"
#include "common/file.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "kelchk.h"
#include "kelphone/check.h"
#include "kelphone/lock.h"
#include "kelphone/messages.h"

namespace kelphone {
namespace {

constexpr char kHiddenRemark[] =
    "\nNo vendor process may read the six partition.*.verified.root_digest: their \"false\" says nothing.\n";

// Readies this process for one operation of the library. Returns the owner of the lock.
common::Fd begin(const Options& options) {
  const unsigned wait = options.wait.value_or(kLockWait);
  expect("answer from this phone", wait + kAnswerLimit);
  common::Fd lock = lock_phone(wait);
  if (!lock) common::throw_errno(kLockFolder, "cannot be opened");
  begin_operation();
  return lock;
}

// The values of the report. A value may hold an "&", so it ends where the next name begins.
common::Members values_of(std::string_view report) {
  common::Members values;
  for (size_t i = 0; i < std::size(properties); ++i) {
    const bool is_last = i + 1 == std::size(properties);
    const std::string next = is_last ? "&" : std::string("&") + properties[i + 1] + "=";
    report.remove_prefix(std::strlen(properties[i]) + 1);
    const size_t end = is_last ? report.size() - 1 : report.find(next);
    values.emplace_back(properties[i], report.substr(0, end));
    report.remove_prefix(end + 1);
  }
  return values;
}

std::string as_table(const common::Members& values) {
  constexpr size_t kNameWidth = 43;
  std::string text;
  for (const auto& [name, value] : values) {
    text.append(name).append(kNameWidth - name.size(), ' ').append(common::escape(value)).append("\n");
  }
  return text;
}

std::string answer(int result, std::string_view text = "") {
  return result == 0 ? common::ok_line(text) : common::failed_line(messages().reasons);
}

std::string challenge(const std::string& text) {
  const auto chosen = text.empty() ? KELCHK_CHALLENGE_MAX : parse_number(text, KELCHK_CHALLENGE_MAX);
  if (!chosen) return common::failed_line({"challenge takes 0 to " + std::to_string(KELCHK_CHALLENGE_MAX)});
  unsigned len = *chosen;
  char labelled[KELCHK_CHALLENGE_ANSWER_CAP];
  const int result = kelo_get_rand(labelled, &len);
  return answer(result, g_rand_buf);
}

std::string record(const std::string& request) {
  char out[KELCHK_RECORD_MAX];
  unsigned len = 0;
  const int result = kelo_get_para(request.c_str(), static_cast<unsigned>(request.size()), out, &len);
  return answer(result, {out, len});
}

std::string import_record(const std::string& text) {
  if (g_is_authed == 1) make_store_folders();
  return answer(kelo_import_para_sign(text.c_str(), static_cast<unsigned>(text.size())));
}

std::string answer_to(const common::Request& request) {
  const std::string& text = request.text;
  begin_operation();
  if (request.verb == "challenge") return challenge(text);
  if (request.verb == "respond") return answer(kelo_verify_rand(text.c_str(), static_cast<unsigned>(text.size())));
  if (request.verb == "record") return record(text);
  if (request.verb == "import") return import_record(text);
  return common::failed_line(
      {"unknown request \"" + request.verb + "\": challenge, respond, record or import was expected"});
}

}  // namespace

std::optional<unsigned> parse_number(std::string_view text, unsigned max) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number > max) return {};
  return number;
}

int security(const Options& options) {
  const common::Fd lock = begin(options);
  char report[KELCHK_SECURITY_REPORT_CAP];
  unsigned len = 0;
  if (kelo_bsp_sec_ctrl_get(report, sizeof report, &len) != 0) throw common::Refusal(joined(messages().reasons));
  const bool is_hidden = std::strstr(report, ".verified.root_digest=false&") != nullptr;
  common::Members values = values_of({report, len});
  const std::string table = as_table(values) + (is_hidden ? kHiddenRemark : "");
  for (auto& [name, value] : values) value = common::json_string(value);
  common::print(options.json ? common::json_line(values) : table);
  return common::kYes;
}

int efuse(const Options& options) {
  const common::Fd lock = begin(options);
  const bool is_efused = is_device_efused() == 1;
  common::print((is_efused ? "efused\n" : "not efused\n") + listed(messages().reasons));
  return is_efused ? common::kYes : common::kNo;
}

int authorize(const Options& options) {
  expect("end of the authorization file", kInputLimit);
  const std::string content =
      common::read_file(options.file, KELCHK_SIGNED_FILE_MAX, std::chrono::seconds(kInputLimit));
  if (content.empty()) throw common::Error(options.file + ": is empty; 1 to 4096 bytes were expected");
  const common::Fd lock = begin(options);
  make_store_folders();
  const bool is_done = kelo_import_aufile(content.data(), static_cast<unsigned>(content.size())) == 0;
  common::print(common::painted(is_done ? "ok" : "failed", is_done) + "\n" +
                (is_done ? "" : listed(messages().reasons)));
  return is_done ? common::kYes : common::kNo;
}

// Challenge, login and record live as long as the session.
int serve_session(const Options& options) {
  const common::Fd lock = begin(options);
  expect("request", kInputLimit);
  common::serve_lines(STDIN_FILENO, STDOUT_FILENO, [](const common::Request& request) {
    expect("answer from this phone", kAnswerLimit);
    std::string line = answer_to(request);
    expect("request", kInputLimit);
    return line;
  });
  return common::kYes;
}

}  // namespace kelphone

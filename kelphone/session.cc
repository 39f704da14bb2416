// The phone's side of the line protocol. Challenge, login and record live as long as the session.
#include <unistd.h>

#include <charconv>
#include <string>

#include "common/line_protocol.h"
#include "common/outcome.h"
#include "kelchk.h"
#include "kelphone/check.h"
#include "kelphone/commands.h"
#include "kelphone/lock.h"
#include "kelphone/messages.h"

namespace kelphone {
namespace {

std::string answer(int result, std::string_view text = "") {
  return result == 0 ? common::ok_line(text) : common::failed_line(reasons());
}

std::string challenge(const std::string& text) {
  unsigned len = KELCHK_CHALLENGE_MAX;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, len);
  const bool is_number = error == std::errc() && rest == end && len <= KELCHK_CHALLENGE_MAX;
  if (!text.empty() && !is_number) {
    return common::failed_line({"challenge takes 0 to " + std::to_string(KELCHK_CHALLENGE_MAX)});
  }
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

int serve_session(const Options& options) {
  const Lock lock(options.wait.value_or(kLockWait));
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

#include "kelctl/session.h"

#include <fmt/format.h>

#include <charconv>
#include <string_view>

#include "kelchk.h"
#include "kelctl/log.h"
#include "kelctl/outcome.h"
#include "kelctl/text.h"

namespace kelctl {
namespace {

constexpr size_t kMaxLineLen = 16384;

std::string failed(std::string_view reason) {
  return fmt::format("failed: {}", reason);
}

std::string verdict(int result, std::string_view answer = "") {
  if (result == 0) return answer.empty() ? "ok" : fmt::format("ok {}", answer);
  return failed(fmt::format("{}", fmt::join(reasons(), "; ")));
}

std::string challenge(const std::string& argument) {
  unsigned len = KELCHK_CHALLENGE_MAX;
  const char* const end = argument.data() + argument.size();
  if (!argument.empty()) {
    const auto [rest, error] = std::from_chars(argument.data(), end, len);
    if (error != std::errc() || rest != end || len > KELCHK_CHALLENGE_MAX)
      return failed(fmt::format("challenge takes 0 to {}", KELCHK_CHALLENGE_MAX));
  }
  char answer[KELCHK_CHALLENGE_ANSWER_CAP];
  const int result = kelo_get_rand(answer, &len);
  return verdict(result, g_rand_buf);
}

std::string record(const std::string& request) {
  char answer[KELCHK_RECORD_MAX];
  unsigned len = 0;
  const int result = kelo_get_para(request.c_str(), static_cast<unsigned>(request.size()), answer, &len);
  return verdict(result, escape({answer, len}));
}

std::string answer(const std::string& line) {
  if (line.find('\0') != std::string::npos) return failed("a NUL inside the line");
  const size_t space = line.find(' ');
  const std::string verb = line.substr(0, space);
  const std::string argument = space == std::string::npos ? "" : unescape(std::string_view(line).substr(space + 1));
  const auto argument_len = static_cast<unsigned>(argument.size());
  if (verb == "challenge") return challenge(argument);
  if (verb == "respond") return verdict(kelo_verify_rand(argument.c_str(), argument_len));
  if (verb == "record") return record(argument);
  if (verb == "import") return verdict(kelo_import_para_sign(argument.c_str(), argument_len));
  return failed("unknown request \"" + escape(verb) + "\": challenge, respond, record or import was expected");
}

enum class Line { kRead, kTooLong, kNone };

// Reads on to the end of a line that is too long, without keeping it.
Line read_line(std::FILE* in, std::string& line) {
  line.clear();
  bool is_kept = true;
  int c = std::getc(in);
  if (c == EOF) return Line::kNone;
  for (; c != EOF && c != '\n'; c = std::getc(in)) {
    if (line.size() <= kMaxLineLen) {  // and one more, which may be the carriage return
      line += static_cast<char>(c);
    } else {
      is_kept = false;
    }
  }
  if (line.ends_with('\r')) line.pop_back();
  return is_kept && line.size() <= kMaxLineLen ? Line::kRead : Line::kTooLong;
}

}  // namespace

std::string answer_to(const std::string& line) {
  begin_operation();
  try {
    return answer(line);
  } catch (const Refusal& refusal) {
    return failed(escape(refusal.what()));
  }
}

void serve(std::FILE* in, std::FILE* out) {
  std::string line;
  for (Line read; (read = read_line(in, line)) != Line::kNone;) {
    fmt::print(out, "{}\n",
               read == Line::kRead ? answer_to(line) : failed(fmt::format("a line above {} characters", kMaxLineLen)));
    std::fflush(out);
  }
}

}  // namespace kelctl

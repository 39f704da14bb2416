#include "session.h"

#include <charconv>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>

#include "kelchk.h"

namespace kelctl {
namespace {

constexpr unsigned kMaxChallengeLen = 250;

std::string escape(std::string_view text) {
  std::string line;
  for (const char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else if (c == '\r') {
      line += "\\r";
    } else if (c == '\\') {
      line += "\\\\";
    } else {
      line += c;
    }
  }
  return line;
}

std::string unescape(std::string_view line) {
  std::string text;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\' || i + 1 == line.size()) {
      text += line[i];
      continue;
    }
    const char c = line[++i];
    text += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
  }
  return text;
}

std::string verdict(int result) {
  return result == 0 ? "ok" : "failed: see the log";
}

std::string challenge(const std::string& argument) {
  unsigned len = kMaxChallengeLen;
  const char* const end = argument.data() + argument.size();
  if (!argument.empty()) {
    const auto [rest, error] = std::from_chars(argument.data(), end, len);
    if (error != std::errc() || rest != end || len > kMaxChallengeLen) return "failed: challenge takes 0 to 250";
  }
  char answer[264];
  if (kelo_get_rand(answer, &len) != 0) return verdict(-1);
  return std::string("ok ") + g_rand_buf;
}

std::string record(const std::string& request) {
  char answer[4096];
  unsigned len = 0;
  if (kelo_get_para(request.c_str(), static_cast<unsigned>(request.size()), answer, &len) != 0) return verdict(-1);
  return "ok " + escape({answer, len});
}

std::string answer_to(const std::string& line) {
  const size_t space = line.find(' ');
  const std::string verb = line.substr(0, space);
  const std::string argument = space == std::string::npos ? "" : unescape(std::string_view(line).substr(space + 1));
  const auto argument_len = static_cast<unsigned>(argument.size());
  if (verb == "challenge") return challenge(argument);
  if (verb == "respond") return verdict(kelo_verify_rand(argument.c_str(), argument_len));
  if (verb == "record") return record(argument);
  if (verb == "import") return verdict(kelo_import_para_sign(argument.c_str(), argument_len));
  return "failed: unknown request \"" + escape(verb) + "\": challenge, respond, record or import was expected";
}

}  // namespace

void serve(std::istream& in, std::ostream& out) {
  for (std::string line; std::getline(in, line);) out << answer_to(line) << std::endl;
}

}  // namespace kelctl

#include "tests/support/golden.h"

#include <cstdint>
#include <cstdlib>

#include "tests/support/pki.h"

namespace test {
namespace {

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) text.replace(at, from.size(), to);
}

std::string quoted(const std::string& text) {
  return testing::PrintToString(text) + "\n";
}

}  // namespace

std::string transcript(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) {
    const size_t priority = std::string("346").find(line[0]);
    EXPECT_TRUE(priority != std::string::npos && line[1] == ' ') << "unexpected priority or tag: " << line;
    text += "DIE"[priority] + (" " + quoted(line.substr(2)));
  }
  return text;
}

std::string take_transcript(const std::string& heading) {
  std::string text = "== " + heading + "\n" + transcript(take_log());
  for (const std::string& line : take_log_file()) text += "log file " + quoted(line);
  return text;
}

void expect_golden(const std::string& name, std::string text) {
  const std::string path = TEST_GOLDEN "/" + name;
  replace_all(text, "len=" + std::to_string(default_signer().der.size()), "len={certificate length}");
  replace_all(text, "in_len =" + std::to_string(signed_record(default_signer(), "").size()), "in_len ={input length}");
  replace_all(text, std::to_string(SIZE_MAX), "{SIZE_MAX}");
  if (std::getenv("KELCHK_RENEW_GOLDEN") != nullptr) write_file(path, text);
  EXPECT_EQ(text, read_file(path)) << "as in tests/golden/" << name;
}

}  // namespace test

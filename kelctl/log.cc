#include "kelctl/log.h"

#include <android/log.h>
#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "kelctl/text.h"

namespace kelctl {
namespace {

constexpr std::string_view kLibraryTag = "kelchk";

std::vector<Message> kept;
bool shown = false;

// Without the white space that ends the library's own words: it ends the line, whereas that of an argument is part of a
// value. What comes as a bare "%s" is its own words too.
[[gnu::format(printf, 1, 0)]] std::string format(const char* text, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int len = std::vsnprintf(nullptr, 0, text, again);
  va_end(again);
  std::string formatted(len > 0 ? static_cast<size_t>(len) : 0, '\0');
  std::vsnprintf(formatted.data(), formatted.size() + 1, text, arguments);
  const std::string_view pattern = text;
  const std::string_view words = pattern == "%s" ? std::string_view(formatted) : pattern;
  const size_t space = words.size() - (words.find_last_not_of(" \n") + 1);
  formatted.resize(formatted.size() - std::min(space, formatted.size()));
  return formatted;
}

// One write for a line, so that the lines of several processes do not mix.
void show(int priority, std::string_view tag, std::string_view text) {
  constexpr std::string_view kLetters = "??VDIWEF";
  const size_t known = priority > 0 && priority < static_cast<int>(kLetters.size()) ? static_cast<size_t>(priority) : 0;
  const std::string letter(1, kLetters[known]);
  const std::string line =
      fmt::format("{} {}: {}\n", priority >= ANDROID_LOG_ERROR ? bad(letter, stderr) : letter, tag, escape(text));
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

// Written at error priority, yet said again by another message, or whether or not something is wrong.
constexpr std::string_view kSmallTalk[] = {"EVP_DecodeBase64 t_len=",
                                           "EVP_DigestVerifyFinal",
                                           "mac err",
                                           "check_au_file_path ret=",
                                           "Unable to open the log file",
                                           "sub certificate err =0",
                                           "sub certificate err =error:00000000"};

// Below error priority, yet part of the reason: the fault of a certificate, and whose authorization was looked for.
constexpr std::string_view kTelling[] = {"kelo_X509_verify_cert ret = ", "rid="};

bool is_any_of(const std::string& text, const auto& beginnings) {
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [&](std::string_view beginning) { return text.starts_with(beginning); });
}

bool is_reason(const Message& message) {
  if (message.priority >= ANDROID_LOG_ERROR) return !is_any_of(message.text, kSmallTalk);
  return is_any_of(message.text, kTelling) && !message.text.ends_with(" = ok");
}

}  // namespace

void show_messages() {
  shown = true;
}

void begin_operation() {
  kept.clear();
}

const std::vector<Message>& messages() {
  return kept;
}

std::vector<std::string> reasons() {
  std::vector<std::string> lines;
  for (const Message& message : kept) {
    if (is_reason(message)) lines.push_back(escape(message.text));
  }
  return lines;
}

void report_failure() {
  if (shown) return;
  std::fflush(stdout);
  for (const std::string& line : reasons()) fmt::print(stderr, "  {}\n", line);
}

}  // namespace kelctl

extern "C" int __android_log_print(int priority, const char* tag, const char* text, ...) {
  const int saved_errno = errno;  // callers report errno after they have logged something else
  va_list arguments;
  va_start(arguments, text);
  const std::string message = kelctl::format(text, arguments);
  va_end(arguments);
  const std::string_view known_tag = tag != nullptr ? tag : "";
  if (kelctl::shown) kelctl::show(priority, known_tag, message);
  if (known_tag == kelctl::kLibraryTag) kelctl::kept.push_back({priority, message});
  errno = saved_errno;
  return 1;
}

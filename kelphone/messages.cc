#include "kelphone/messages.h"

#include <android/log.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "common/escape.h"

namespace kelphone {
namespace {

std::vector<Message> kept;
bool are_shown = false;

[[gnu::format(printf, 1, 0)]] std::string format(const char* text, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int len = std::vsnprintf(nullptr, 0, text, again);
  va_end(again);
  std::string formatted(len > 0 ? static_cast<size_t>(len) : 0, '\0');
  static_cast<void>(std::vsnprintf(formatted.data(), formatted.size() + 1, text, arguments));
  return formatted;
}

// Without the white space that ends the library's own words |pattern|, which only ends the line. That of an argument
// belongs to a value and stays. Words that come as the argument of a bare "%s" are the library's own, too.
std::string trimmed(const std::string& text, std::string_view pattern) {
  const std::string_view words = pattern == "%s" ? std::string_view(text) : pattern;
  const size_t space = words.size() - (words.find_last_not_of(" \n") + 1);
  return text.substr(0, text.size() - std::min(space, text.size()));
}

// One write for a line, so that the lines of several processes do not mix.
void show(int priority, std::string_view tag, std::string_view text) {
  constexpr std::string_view kLetters = "??VDIWEF";
  const size_t known = priority > 0 && priority < static_cast<int>(kLetters.size()) ? static_cast<size_t>(priority) : 0;
  const std::string line = kLetters[known] + (" " + common::escape(tag)) + ": " + common::escape(text) + "\n";
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

// Logged as errors, although another message repeats them or nothing is wrong.
constexpr std::string_view kNoReasons[] = {"EVP_DecodeBase64 t_len=",
                                           "EVP_DigestVerifyFinal",
                                           "mac err",
                                           "check_au_file_path ret=",
                                           "Unable to open the log file",
                                           "sub certificate err =0",
                                           "sub certificate err =error:00000000"};

// Logged below error priority, although they belong to the reason.
constexpr std::string_view kQuietReasons[] = {"kelo_X509_verify_cert ret = ", "rid="};

bool begins_with_any(const std::string& text, const auto& beginnings) {
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [&](std::string_view beginning) { return text.starts_with(beginning); });
}

bool is_reason(const Message& message) {
  if (message.priority >= ANDROID_LOG_ERROR) return !begins_with_any(message.text, kNoReasons);
  return begins_with_any(message.text, kQuietReasons) && !message.text.ends_with(" = ok");
}

}  // namespace

void show_messages() {
  are_shown = true;
}

void begin_operation() {
  kept.clear();
}

const std::vector<Message>& messages() {
  return kept;
}

std::vector<std::string> texts() {
  std::vector<std::string> all;
  all.reserve(kept.size());
  for (const Message& message : kept) all.push_back(message.text);
  return all;
}

std::vector<std::string> reasons() {
  std::vector<std::string> found;
  for (const Message& message : kept) {
    if (is_reason(message)) found.push_back(message.text);
  }
  return found;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string line;
  for (const std::string& text : texts) line.append(line.empty() ? "" : "; ").append(text);
  return line;
}

std::string listed(const std::vector<std::string>& texts) {
  std::string lines;
  if (are_shown) return lines;
  for (const std::string& text : texts) lines.append("  ").append(common::escape(text)).append("\n");
  return lines;
}

void log_line(int priority, const std::string& text) {
  __android_log_write(priority, "kelphone", common::escape(text).c_str());
}

}  // namespace kelphone

// Vendor libraries log through it as well, maybe from threads of their own: only the library's messages are kept, which
// come from one thread.
extern "C" [[gnu::visibility("default")]] int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const int saved_errno = errno;  // callers report errno after they have logged something else
  va_list arguments;
  va_start(arguments, fmt);
  const std::string message = kelphone::format(fmt, arguments);
  va_end(arguments);
  const std::string_view known_tag = tag != nullptr ? tag : "";
  const std::string line = kelphone::trimmed(message, fmt);
  if (kelphone::are_shown) kelphone::show(prio, known_tag, line);
  if (known_tag == "kelchk") kelphone::kept.push_back({prio, line});
  const int result = __android_log_write(prio, tag, message.c_str());
  errno = saved_errno;
  return result;
}

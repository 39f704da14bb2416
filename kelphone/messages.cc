#include "kelphone/messages.h"

#include <android/log.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "common/escape.h"

namespace kelphone {
namespace {

Messages kept;
bool are_shown = false;

// Messages whose priority does not say whether they explain a failure, by how they begin. The errors among them are
// repeated by another message, or nothing is wrong.
struct Exception {
  std::string_view beginning;
  bool is_reason = false;
};

constexpr Exception kExceptions[] = {
    {"kelo_X509_verify_cert ret = ok"},
    {"kelo_X509_verify_cert ret = ", true},
    {"rid=", true},
    {"EVP_DecodeBase64 t_len="},
    {"EVP_DigestVerifyFinal"},
    {"mac err"},
    {"check_au_file_path ret="},
    {"Unable to open the log file"},
    {"sub certificate err =0"},
    {"sub certificate err =error:00000000"},
};

bool is_reason(int priority, const std::string& text) {
  for (const Exception& exception : kExceptions) {
    if (text.starts_with(exception.beginning)) return exception.is_reason;
  }
  return priority >= ANDROID_LOG_ERROR;
}

// Without the white space that ends the library's own words |pattern|. That of an argument belongs to a value and
// stays. Words that come as the argument of a bare "%s" are the library's own, too.
std::string trimmed(const std::string& text, std::string_view pattern) {
  const std::string_view words = pattern == "%s" ? std::string_view(text) : pattern;
  const size_t space = words.size() - (words.find_last_not_of(" \n") + 1);
  return text.substr(0, text.size() - std::min(space, text.size()));
}

// One write for a line, so that the lines of several processes do not mix.
void show(int priority, std::string_view tag, std::string_view text) {
  const char letter = priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_FATAL ? "??VDIWEF"[priority] : '?';
  const std::string line = letter + (" " + common::escape(tag)) + ": " + common::escape(text) + "\n";
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

// Vendor libraries log as well, maybe from threads of their own: only the library's messages are kept, which come from
// one thread.
void receive(int priority, std::string_view tag, const std::string& text) {
  if (are_shown) show(priority, tag, text);
  if (tag != "kelchk") return;
  kept.all.push_back(text);
  if (is_reason(priority, text)) kept.reasons.push_back(text);
}

}  // namespace

const Messages& messages() {
  return kept;
}

void begin_operation() {
  kept = {};
}

void show_messages() {
  are_shown = true;
}

std::string rest_of(const Lines& messages, std::string_view beginning) {
  const auto found = std::find_if(messages.rbegin(), messages.rend(),
                                  [&](const std::string& message) { return message.starts_with(beginning); });
  return found != messages.rend() ? found->substr(beginning.size()) : "";
}

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text.append(text.empty() ? "" : "; ").append(line);
  return text;
}

std::string listed(const Lines& lines) {
  std::string text;
  if (are_shown) return text;
  for (const std::string& line : lines) text.append("  ").append(common::escape(line)).append("\n");
  return text;
}

}  // namespace kelphone

extern "C" [[gnu::visibility("default")]] int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const int saved_errno = errno;  // callers report errno after they have logged something else
  char text[8192];                // twice what the system's log takes
  va_list arguments;
  va_start(arguments, fmt);
  if (std::vsnprintf(text, sizeof text, fmt, arguments) < 0) text[0] = '\0';
  va_end(arguments);
  kelphone::receive(prio, tag != nullptr ? tag : "", kelphone::trimmed(text, fmt));
  const int result = __android_log_write(prio, tag, text);
  errno = saved_errno;
  return result;
}

#include "common/line_protocol.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/escape.h"
#include "common/file.h"
#include "common/outcome.h"

namespace common {
namespace {

constexpr std::string_view kFailed = "failed: ";

const std::string kTooLong = "the line is longer than the " + std::to_string(kMaxLineLen) + " bytes that are accepted";

void require_line(std::string_view line) {
  if (line.size() > kMaxLineLen) throw Refusal(kTooLong);
  if (line.find('\0') != std::string_view::npos) throw Refusal("the line has a NUL inside");
}

std::string answer_to(std::string_view line, const std::function<std::string(const Request& request)>& answer) {
  try {
    const std::string text = answer(parse_request(line));
    return text.size() <= kMaxLineLen ? text : failed_line({"the answer is longer than a line may be"});
  } catch (const Refusal& refusal) {
    return failed_line({refusal.what()});
  }
}

void write_line(int out, std::string line) {
  line += '\n';
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t count = ::write(out, rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw_errno("the answer", "cannot be written");
    rest.remove_prefix(static_cast<size_t>(count));
  }
}

bool read_more(int in, LineBuffer& lines) {
  char bytes[4096];
  ssize_t count = -1;
  do count = ::read(in, bytes, sizeof bytes);
  while (count < 0 && errno == EINTR);
  if (count < 0) throw_errno("the request", "cannot be read");
  lines.add({bytes, static_cast<size_t>(count)});
  return count > 0;
}

}  // namespace

std::string encode_text(std::string_view text) {
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

std::string decode_text(std::string_view line) {
  std::string text;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      text += line[i];
      continue;
    }
    const char c = ++i < line.size() ? line[i] : ' ';
    if (c != 'n' && c != 'r' && c != '\\') throw Refusal("a backslash may only be part of \\n, \\r and \\\\");
    text += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
  }
  return text;
}

Request parse_request(std::string_view line) {
  require_line(line);
  const size_t space = std::min(line.find(' '), line.size());
  if (space == 0) throw Refusal("a request begins with its verb");
  return {std::string(line.substr(0, space)), decode_text(line.substr(std::min(space + 1, line.size())))};
}

Answer parse_answer(std::string_view line) {
  require_line(line);
  if (line == "ok") return {true, ""};
  if (line.starts_with("ok ")) return {true, decode_text(line.substr(3))};
  if (line.starts_with(kFailed)) return {false, std::string(line.substr(kFailed.size()))};
  throw Refusal("an answer begins with \"ok\" or \"failed: \"");
}

std::string ok_line(std::string_view text) {
  return text.empty() ? "ok" : "ok " + encode_text(text);
}

std::string failed_line(const std::vector<std::string>& reasons) {
  std::string line(kFailed);
  for (const std::string& reason : reasons) line += (line.size() > kFailed.size() ? "; " : "") + escape(reason);
  if (line.size() > kMaxLineLen) line.replace(kMaxLineLen - 3, std::string::npos, "...");
  return line;
}

LineBuffer::Next LineBuffer::take(std::string& line) {
  const size_t end = unread_.find('\n');
  const bool is_complete = end != std::string::npos;
  if (!is_complete && unread_.size() <= kMaxLineLen + 1 && !is_passing_over_) return Next::kNone;

  const bool was_passing_over = is_passing_over_;
  is_passing_over_ = !is_complete;
  line = unread_.substr(0, std::min(end, kMaxLineLen + 2));
  unread_.erase(0, is_complete ? end + 1 : end);
  if (was_passing_over) return is_complete ? take(line) : Next::kNone;
  if (is_complete && line.ends_with('\r')) line.pop_back();
  return line.size() <= kMaxLineLen ? Next::kLine : Next::kTooLong;
}

void serve_lines(int in, int out, const std::function<std::string(const Request& request)>& answer) {
  LineBuffer lines;
  std::string line;
  while (read_more(in, lines)) {
    for (LineBuffer::Next next; (next = lines.take(line)) != LineBuffer::Next::kNone;) {
      write_line(out, next == LineBuffer::Next::kLine ? answer_to(line, answer) : failed_line({kTooLong}));
    }
  }
  if (lines.is_inside_line()) write_line(out, failed_line({"the last line has no line break; it may have been cut"}));
}

}  // namespace common

#include "common/line_protocol.h"

#include <algorithm>
#include <utility>

#include "common/escape.h"
#include "common/file.h"
#include "common/outcome.h"

namespace common {
namespace {

constexpr std::string_view kFailed = "failed: ";

// What is escaped, and the letter that stands for each.
constexpr std::string_view kEscaped = "\n\r\\";
constexpr std::string_view kLetters = "nr\\";

// What encode_text() made |line| of. Throws Refusal over any other escape.
std::string decode_text(std::string_view line) {
  std::string text;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      text += line[i];
      continue;
    }
    const size_t which = ++i < line.size() ? kLetters.find(line[i]) : std::string_view::npos;
    if (which == std::string_view::npos) throw Refusal(R"(a backslash may only be part of \n, \r and \\)");
    text += kEscaped[which];
  }
  return text;
}

void require_line(std::string_view line) {
  if (line.size() > kMaxLineLen) {
    throw Refusal("the line is longer than the " + std::to_string(kMaxLineLen) + " bytes that are accepted");
  }
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

}  // namespace

std::string encode_text(std::string_view text) {
  std::string line;
  for (const char c : text) {
    const size_t which = kEscaped.find(c);
    if (which != std::string_view::npos) line += '\\';
    line += which != std::string_view::npos ? kLetters[which] : c;
  }
  return line;
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
  throw Refusal(R"(an answer begins with "ok" or "failed: ")");
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

void LineBuffer::add(std::string_view bytes) {
  for (const char c : bytes) {
    if (c == '\n') {
      lines_.push(std::exchange(unfinished_, ""));
    } else if (unfinished_.size() < kMaxLineLen + 2) {  // a carriage return may be dropped
      unfinished_ += c;
    }
  }
}

bool LineBuffer::take(std::string& line) {
  if (lines_.empty()) return false;
  line = std::move(lines_.front());
  lines_.pop();
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

void serve_lines(int in, int out, const std::function<std::string(const Request& request)>& answer) {
  const auto write_answer = [out](const std::string& text) {
    if (!write_all(out, text + "\n")) throw_errno("the answer", "cannot be written");
  };
  LineBuffer lines;
  std::string bytes;
  std::string line;
  do {
    if (!read_some(in, bytes)) throw_errno("the request", "cannot be read");
    lines.add(bytes);
    while (lines.take(line)) write_answer(answer_to(line, answer));
  } while (!bytes.empty());
  if (lines.unfinished().empty()) return;
  write_answer(failed_line({"the last line has no line break; it may have been cut"}));
}

}  // namespace common

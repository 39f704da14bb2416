// The line protocol between the programs: a request VERB [TEXT] on a line, and on the next line of the other direction
// "ok [TEXT]" or "failed: REASON[; REASON...]".
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace common {

// Bytes of a line without its line break.
inline constexpr size_t kMaxLineLen = 16384;

// |text| as it stands in a line: a line break is written "\n", a carriage return "\r" and a backslash "\\".
std::string encode_text(std::string_view text);

// What encode_text() made |line| of. Throws Refusal over any other escape.
std::string decode_text(std::string_view line);

struct Request {
  std::string verb;
  std::string text;  // decoded
};

struct Answer {
  bool ok = false;
  std::string text;  // decoded; when it is not ok, the reasons, as they came
};

// Both throw Refusal over a line that is none.
Request parse_request(std::string_view line);
Answer parse_answer(std::string_view line);

std::string ok_line(std::string_view text = "");

// Each reason is escaped (escape.h).
std::string failed_line(const std::vector<std::string>& reasons);

// Answers each line that |in| holds on |out| until |in| ends. |answer| returns the whole answer line; a Refusal that it
// throws becomes a "failed: ". A line that is too long or holds a NUL is answered by "failed: " and read to its end,
// without keeping it. Throws Error when reading fails or an answer cannot be written.
void serve_lines(int in, int out, const std::function<std::string(const Request& request)>& answer);

}  // namespace common

// The line protocol between the programs: a request VERB [TEXT] on a line, and on the next line of the other direction
// "ok [TEXT]" or "failed: REASON[; REASON...]". A carriage return that ends a line does not count.
#pragma once

#include <functional>
#include <queue>
#include <string>
#include <string_view>
#include <vector>

namespace common {

// Bytes of a line without its line break.
inline constexpr size_t kMaxLineLen = 16384;

// |text| as it stands in a line: a line break is written "\n", a carriage return "\r" and a backslash "\\".
std::string encode_text(std::string_view text);

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

// Each reason is escaped (escape.h). What makes the line too long is left out.
std::string failed_line(const std::vector<std::string>& reasons);

// Cuts what arrives into lines. Of a line that is too long it keeps a byte too many, and drops the rest.
class LineBuffer {
 public:
  void add(std::string_view bytes);

  // Moves the next complete line to |line|, without its line break, or returns false.
  bool take(std::string& line);

  // The line that has begun and is not complete.
  [[nodiscard]] const std::string& unfinished() const { return unfinished_; }

 private:
  std::queue<std::string> lines_;
  std::string unfinished_;
};

// Answers each line that |in| holds on |out| until |in| ends. |answer| returns the whole answer line; a Refusal that it
// throws becomes a "failed: ", and so do a line that is no request or too long, an answer that is too long and a last
// line without a line break, which may have been cut. Throws Error when reading fails or an answer cannot be written.
void serve_lines(int in, int out, const std::function<std::string(const Request& request)>& answer);

}  // namespace common

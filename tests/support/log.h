// What the library logs, kept for comparison.
#pragma once

#include <string>
#include <vector>

namespace test {

using Lines = std::vector<std::string>;

// One after the other.
inline Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

// Returns the messages of the Android log since the last call, such as "6 read_rid err": priority, space, text, with
// line breaks as they are. A message under another tag than the library's begins with that tag, in brackets.
Lines take_log();

// Returns the lines of the library's log file and removes it. No file gives no lines.
Lines take_log_file();

}  // namespace test

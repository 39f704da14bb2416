// Untrusted text, made safe for a terminal, a log or a JSON file.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace common {

// |text| in printable ASCII: every other byte is written \xHH, and a backslash is doubled, so that no two texts become
// one.
std::string escape(std::string_view text);

// |text| as a JSON string with its quotes: ASCII only, in the form of escape(), whose backslashes JSON doubles once
// more.
std::string json_string(std::string_view text);

// An object of names and JSON values, on a line.
using Members = std::vector<std::pair<std::string, std::string>>;
std::string json_line(const Members& members);

}  // namespace common

// Text for people and for the line mode.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace kelctl {

// |text| on one line: a line break is written "\n", a carriage return "\r" and a backslash "\\".
std::string escape(std::string_view text);

// What escape() made |line| of. Throws Refusal over any other escape.
std::string unescape(std::string_view line);

// The words in green or red when |stream| is a terminal.
std::string good(std::string_view words, std::FILE* stream = stdout);
std::string bad(std::string_view words, std::FILE* stream = stdout);

}  // namespace kelctl

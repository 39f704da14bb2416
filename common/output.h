// Results on standard output: one that cannot be written is an error.
#pragma once

#include <string>
#include <string_view>

namespace common {

// Writes |text| to standard output at once. Throws Error when that fails.
void print(std::string_view text);

// Closes standard output; the last thing that a program does. Throws Error when what it printed may be lost.
void close_output();

// |words| in green or red when the stream is a terminal, else as they are.
enum class Stream { kOutput = 1, kError = 2 };
std::string good(std::string_view words, Stream stream = Stream::kOutput);
std::string bad(std::string_view words, Stream stream = Stream::kOutput);

}  // namespace common

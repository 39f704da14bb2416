#include "kelctl/text.h"

#include <fmt/color.h>
#include <unistd.h>

#include "kelctl/outcome.h"

namespace kelctl {
namespace {

std::string paint(fmt::terminal_color colour, std::string_view words, std::FILE* stream) {
  return ::isatty(::fileno(stream)) == 1 ? fmt::format(fmt::fg(colour), "{}", words) : std::string(words);
}

}  // namespace

std::string escape(std::string_view text) {
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

std::string unescape(std::string_view line) {
  std::string text;
  for (size_t i = 0; i < line.size(); ++i) {
    if (line[i] != '\\') {
      text += line[i];
      continue;
    }
    const char c = ++i < line.size() ? line[i] : ' ';
    if (c != 'n' && c != 'r' && c != '\\') throw Refusal("a backslash stands only in \\n, \\r and \\\\");
    text += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
  }
  return text;
}

std::string good(std::string_view words, std::FILE* stream) {
  return paint(fmt::terminal_color::green, words, stream);
}

std::string bad(std::string_view words, std::FILE* stream) {
  return paint(fmt::terminal_color::red, words, stream);
}

}  // namespace kelctl

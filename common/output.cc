#include "common/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "common/file.h"

namespace common {
namespace {

std::string paint(const char* colour, std::string_view words, Stream stream) {
  if (::isatty(static_cast<int>(stream)) != 1) return std::string(words);
  return colour + std::string(words) + "\x1b[0m";
}

}  // namespace

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
    throw_errno("standard output", "cannot be written");
}

void close_output() {
  // Output that was closed from the start loses nothing: print() has failed if there was anything to print.
  if (std::fclose(stdout) != 0 && errno != EBADF) throw_errno("standard output", "cannot be written");
}

std::string good(std::string_view words, Stream stream) {
  return paint("\x1b[32m", words, stream);
}

std::string bad(std::string_view words, Stream stream) {
  return paint("\x1b[31m", words, stream);
}

}  // namespace common

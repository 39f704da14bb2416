// Text in fixed buffers.
#pragma once

#include <string.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace kelchk {

// A buffer for one value or one signed message. Callers zero it before they pass it to a function that fills it, so
// that text copied without a terminator is terminated.
inline constexpr size_t kValueBufferCap = 2048;
using ValueBuffer = char[kValueBufferCap];

// The text in |buffer|, up to its first NUL or its end.
template <size_t capacity>
[[nodiscard]] std::string_view text_of(const char (&buffer)[capacity]) noexcept {
  return {buffer, strnlen(buffer, capacity)};
}

// Builds text in a caller's buffer, which is terminated after every step. Text that does not fit is cut, and fits()
// then returns false.
class TextWriter {
 public:
  template <size_t capacity>
  explicit TextWriter(char (&buffer)[capacity]) noexcept : TextWriter(buffer, capacity) {}

  // |capacity| counts the terminator and is at least 1.
  TextWriter(char* buffer, size_t capacity) noexcept : buffer_(buffer), capacity_(capacity) { buffer_[0] = '\0'; }

  void append(std::string_view text) noexcept;
  void append(std::initializer_list<const char*> texts) noexcept;

  [[nodiscard]] bool fits() const noexcept { return fits_; }
  [[nodiscard]] size_t length() const noexcept { return length_; }

 private:
  char* buffer_;
  size_t capacity_;
  size_t length_ = 0;
  bool fits_ = true;
};

}  // namespace kelchk

// Texts in fixed buffers.
#pragma once

#include <string.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace kelchk {

// The buffer in which one value or one signed message is gathered. Whoever hands one to a function that
// fills it has set it to zeros, so that a text copied into it without a terminator ends all the same.
inline constexpr size_t kTextCap = 2048;
using Text = char[kTextCap];

// The text in |buffer|, which may fill it without a terminator.
template <size_t capacity>
std::string_view text_of(const char (&buffer)[capacity]) noexcept {
  return {buffer, strnlen(buffer, capacity)};
}

// Builds a text in a caller's buffer, terminated at every moment. What does not fit is cut at the buffer's end, and
// fits() tells.
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

#include "core/text.h"

#include <stdarg.h>
#include <stdio.h>

namespace kelchk {

void TextWriter::append(const char* format, ...) noexcept {
  const size_t room = capacity_ - length_;
  va_list arguments;
  va_start(arguments, format);
  const int formatted = vsnprintf(buffer_ + length_, room, format, arguments);
  va_end(arguments);
  if (formatted >= 0 && static_cast<size_t>(formatted) < room) {
    length_ += static_cast<size_t>(formatted);
    return;
  }
  fits_ = false;
  length_ += strnlen(buffer_ + length_, room - 1);
  buffer_[length_] = '\0';
}

}  // namespace kelchk

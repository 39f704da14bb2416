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
  // A negative count, of a text that cannot be formatted, is larger than any room.
  if (static_cast<size_t>(formatted) >= room) fits_ = false;
  length_ = fits_ ? length_ + static_cast<size_t>(formatted) : capacity_ - 1;
}

}  // namespace kelchk

#include "core/text.h"

namespace kelchk {

void TextWriter::append(std::string_view text) noexcept {
  const size_t room = capacity_ - 1 - length_;
  const size_t len = text.size() <= room ? text.size() : room;
  if (len != text.size()) fits_ = false;
  memcpy(buffer_ + length_, text.data(), len);
  length_ += len;
  buffer_[length_] = '\0';
}

void TextWriter::append(std::initializer_list<const char*> texts) noexcept {
  for (const char* const text : texts) append(std::string_view(text));
}

}  // namespace kelchk

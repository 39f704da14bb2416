#include "core/text.h"

namespace kelchk {

void TextWriter::append(std::string_view text) noexcept {
  const size_t room = capacity_ - 1 - length_;
  if (text.size() > room) {
    fits_ = false;
    text.remove_suffix(text.size() - room);
  }
  memcpy(buffer_ + length_, text.data(), text.size());
  length_ += text.size();
  buffer_[length_] = '\0';
}

void TextWriter::append(std::initializer_list<const char*> texts) noexcept {
  for (const char* const text : texts) append(std::string_view(text));
}

}  // namespace kelchk

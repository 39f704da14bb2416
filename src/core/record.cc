#include "core/record.h"

#include <string.h>

namespace kelchk {

size_t get_value_by_key(std::string_view record, const char* key, char* value, size_t capacity) noexcept {
  value[0] = '\0';
  const size_t key_len = strlen(key);
  if (key_len == 0) return 0;

  // No key contains "&", so a key can only match at the start of a field.
  const char* const end = record.data() + record.size();
  for (const char* field = record.data(); field < end;) {
    const void* const separator = memchr(field, '&', static_cast<size_t>(end - field));
    const char* const field_end = separator != nullptr ? static_cast<const char*>(separator) : end;
    const auto field_len = static_cast<size_t>(field_end - field);
    if (field_len > key_len && field[key_len] == '=' && memcmp(field, key, key_len) == 0) {
      const size_t value_len = field_len - key_len - 1;
      if (value_len < capacity) {
        memcpy(value, field + key_len + 1, value_len);
        value[value_len] = '\0';
        return value_len;
      }
    }
    if (field_end == end) break;
    field = field_end + 1;
  }
  return 0;
}

}  // namespace kelchk

// The key=value& record, the form of every text that crosses the library's boundary.
#pragma once

#include <cstddef>
#include <string_view>

namespace kelchk {

// get_value_by_key copies the value of |key| from |record| to |value|, a buffer of |capacity| bytes, and returns its
// length. A key matches only as a whole key, at the start or right after "&". The first value that fits wins, so one
// that is too long is passed over. Nothing found, an empty value and an empty |key| all give the empty text and 0.
size_t get_value_by_key(std::string_view record, const char* key, char* value, size_t capacity) noexcept;

template <size_t capacity>
size_t get_value_by_key(std::string_view record, const char* key, char (&value)[capacity]) noexcept {
  return get_value_by_key(record, key, value, capacity);
}

}  // namespace kelchk

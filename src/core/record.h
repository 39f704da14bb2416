// The key=value& record, the format of all text that crosses the library's boundary.
#pragma once

#include <cstddef>
#include <string_view>

namespace kelchk {

// get_value_by_key copies the value of |key| from |record| to |value|, a buffer of |capacity| bytes, and returns its
// length. A key matches only as a whole, at the start or right after "&". Values that do not fit are skipped; the first
// that fits is taken. When there is none, or it or |key| is empty, |value| is empty and the result 0.
size_t get_value_by_key(std::string_view record, const char* key, char* value, size_t capacity) noexcept;

template <size_t capacity>
size_t get_value_by_key(std::string_view record, const char* key, char (&value)[capacity]) noexcept {
  return get_value_by_key(record, key, value, capacity);
}

}  // namespace kelchk

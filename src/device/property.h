// System properties.
#pragma once

#include "core/text.h"

namespace kelchk {

// Reads a system property into |out|. Returns false, with empty text, when it is absent; a property that is set to
// "false" looks the same.
[[nodiscard]] bool read_property(const char* name, ValueBuffer& out) noexcept;

// A system property, read once on construction. When it is absent or unreadable, its value is |fallback|, a short word;
// a property that is set to that word looks the same.
struct Property {
  explicit Property(const char* name, const char* fallback = "false") noexcept;

  // Compares whole words: "normal" is not a prefix.
  [[nodiscard]] bool is(const char* word) const noexcept;
  [[nodiscard]] bool absent() const noexcept { return is("false"); }

  char value[128] = {};
  int result;  // of property_get; negative when the property is unreadable
};

}  // namespace kelchk

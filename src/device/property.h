// System properties.
#pragma once

#include "core/text.h"

namespace kelchk {

// Reads a system property into |out|. False, with the empty text, when it is absent; one that is set to "false" cannot
// be told from that.
[[nodiscard]] bool read_property(const char* name, Text& out) noexcept;

// One system property, as it was when this was made. An absent property, or one that the system cannot read, has the
// value "false" or the |fallback| that is given, which is a short word; one that is set to it cannot be told from that.
struct Property {
  explicit Property(const char* name, const char* fallback = "false") noexcept;

  // Compares whole words: "normal" is not a prefix.
  [[nodiscard]] bool is(const char* word) const noexcept;
  [[nodiscard]] bool absent() const noexcept { return is("false"); }

  char value[128] = {};
  int result;  // as the system gave it; negative when it could not look
};

}  // namespace kelchk

// The canonical content of a device parameter record: the text that its signature covers. Free of anything of the
// phone, so that the programs use the same code.
#pragma once

#include <string_view>

#include "core/text.h"

namespace kelchk {

struct ContentVerdict {
  bool complete = false;
  const char* missing_key = nullptr;  // the first key without a value; null when the values are too long together
};

// Writes the values of |record|, in the order of kRecordKeys and without separators, to |out|. Logs nothing. Content
// that is not complete is of no use.
[[nodiscard]] ContentVerdict write_canonical_content(std::string_view record, ValueBuffer& out) noexcept;

}  // namespace kelchk

#include "records/canonical_content.h"

#include "core/record.h"
#include "kelchk.h"
#include "records/record_keys.h"

namespace kelchk {

static_assert(kValueBufferCap == KELCHK_CANONICAL_CONTENT_MAX + 1);

ContentVerdict write_canonical_content(std::string_view record, ValueBuffer& out) noexcept {
  TextWriter content(out);
  for (const char* const key : kRecordKeys) {
    ValueBuffer value;
    const size_t len = get_value_by_key(record, key, value);
    if (len == 0) return {.missing_key = key};
    content.append({value, len});
    if (!content.fits()) return {};
  }
  return {.complete = true};
}

}  // namespace kelchk

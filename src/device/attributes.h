// The attributes of software and product. Each getter writes its text to a buffer of zeros and returns 0,
// or -1 after logging why, unless said otherwise.
#pragma once

#include "core/text.h"
#include "kelchk.h"

namespace kelchk {

// The build's incremental version, whose date part tells one build from the next. Logs nothing.
[[nodiscard]] int get_build_time(Text& out) noexcept;

// The build type: kelchk.h. Logs nothing.
[[nodiscard]] inline int get_build_type(Text& out) noexcept {
  return ::get_build_type(&out[0]);
}

// The brand: "ro.product.brand" up to its first separator.
[[nodiscard]] int get_device_brand(Text& out) noexcept;

// The model: "MDF1" and "ro.product.device" from behind its last separator on.
[[nodiscard]] int get_device_name(Text& out) noexcept;

// The hash of the country configuration, 64 characters.
[[nodiscard]] int get_black_country_sha(Text& out) noexcept;

}  // namespace kelchk

// Attributes of the software and the product. Each getter writes its text to a zeroed buffer and returns 0, or returns
// -1 after logging why, unless its comment says otherwise.
#pragma once

#include "core/text.h"
#include "kelchk.h"

namespace kelchk {

// The build's incremental version, which begins with its date. Logs nothing.
[[nodiscard]] int get_build_time(ValueBuffer& out) noexcept;

// The build type, as ::get_build_type of kelchk.h gives it. Logs nothing.
[[nodiscard]] inline int get_build_type(ValueBuffer& out) noexcept {
  return ::get_build_type(&out[0]);
}

// The brand: "ro.product.brand" up to its separator.
[[nodiscard]] int get_device_brand(ValueBuffer& out) noexcept;

// The model: "MDF1" and what follows the last separator in "ro.product.device".
[[nodiscard]] int get_device_name(ValueBuffer& out) noexcept;

// The hash of the country configuration, 64 characters.
[[nodiscard]] int get_black_country_sha(ValueBuffer& out) noexcept;

}  // namespace kelchk

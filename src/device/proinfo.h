// MediaTek's product-information partition.
#pragma once

namespace kelchk {

// Reads |size| bytes from byte |offset| of the partition into |buf|. Returns 0, or -1, when |buf| may hold a part.
[[nodiscard]] int get_product_info(char* buf, int offset, int size) noexcept;

}  // namespace kelchk

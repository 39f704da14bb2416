// MediaTek's product-information partition.
#pragma once

namespace kelchk {

// Reads |size| bytes at byte |offset| of the partition into |buf|. Returns 0, or -1, when |buf| may hold some of them.
[[nodiscard]] int get_product_info(char* buf, int offset, int size) noexcept;

}  // namespace kelchk

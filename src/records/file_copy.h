#pragma once

namespace kelchk {

// copy_file_sync overwrites |destination| in place with the content of |source| and flushes it to storage. Returns 0,
// or -1 after logging why. A read error ends the copy like the end of |source|.
[[nodiscard]] int copy_file_sync(const char* source, const char* destination) noexcept;

}  // namespace kelchk

#pragma once

namespace kelchk {

// copy_file_sync rewrites |destination| in place with what |source| holds and flushes it to storage. Returns 0, or -1
// after logging why; a source that fails to read counts as ended.
[[nodiscard]] int copy_file_sync(const char* source, const char* destination) noexcept;

}  // namespace kelchk

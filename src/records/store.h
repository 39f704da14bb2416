// The two store directories.
#pragma once

#include "kelchk.h"

namespace kelchk {

inline constexpr char PARA_FILE_PATH_BK[] = KELCHK_STORE_BACKUP;

struct StorePath {
  char text[128];
};

// Selects the primary store directory by chip family, which is logged, and writes its path to PARA_FILE_PATH.
void select_store_directory() noexcept;

// The path of the file |name| in the selected primary store directory, and in the backup store directory.
[[nodiscard]] StorePath primary_path(const char* name) noexcept;
[[nodiscard]] StorePath backup_path(const char* name) noexcept;

}  // namespace kelchk

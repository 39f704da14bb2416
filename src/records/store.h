// The two store directories.
#pragma once

namespace kelchk {

inline constexpr char PARA_FILE_PATH_BK[] = "/kelofs/startPara/";

struct StorePath {
  char text[128];
};

// Selects the primary store directory into PARA_FILE_PATH by chip family, which is logged.
void select_store_directory() noexcept;

// The path of the file |name| in the selected primary and in the backup store directory.
[[nodiscard]] StorePath primary_path(const char* name) noexcept;
[[nodiscard]] StorePath backup_path(const char* name) noexcept;

}  // namespace kelchk

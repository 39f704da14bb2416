#include "records/store.h"

#include <string.h>

#include "core/text.h"
#include "kelchk.h"

namespace kelchk {
namespace {

StorePath path_in(const char* directory, const char* name) noexcept {
  StorePath path;
  TextWriter(path.text).append({directory, name});
  return path;
}

}  // namespace

void select_store_directory() noexcept {
  memset(PARA_FILE_PATH, 0, sizeof PARA_FILE_PATH);
  TextWriter(PARA_FILE_PATH).append(is_mt_chip() ? KELCHK_STORE_MEDIATEK : KELCHK_STORE_UNISOC);
}

StorePath primary_path(const char* name) noexcept {
  return path_in(PARA_FILE_PATH, name);
}

StorePath backup_path(const char* name) noexcept {
  return path_in(PARA_FILE_PATH_BK, name);
}

}  // namespace kelchk

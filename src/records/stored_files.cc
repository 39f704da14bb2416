// The check of the stored files, which repairs a damaged copy from the other.
#include <string.h>

#include <string_view>

#include "core/file.h"
#include "core/log.h"
#include "core/text.h"
#include "kelchk.h"
#include "records/file_copy.h"
#include "records/signed_file.h"
#include "records/store.h"

namespace kelchk {
namespace {

constexpr char kBanner[] = "libkelchk_ver_20240429_01";

// The checks' names in their messages.
constexpr char kAuCheck[] = "check_au_file";
constexpr char kParaCheck[] = "check_para_file";

// Reads the beginning of the stored file |path|, as much as |text| holds. A file that fails to read counts as empty.
// Returns -1 with |text| untouched when the file cannot be opened, after logging that.
[[nodiscard]] int read_stored_text(const char* check, const char* path, char (&text)[KELCHK_SIGNED_FILE_MAX]) noexcept {
  const Fd file(open_stored_to_read(path));
  if (!file) {
    log_error("%s open path error =%s ", check, path);
    return -1;
  }
  memset(text, 0, sizeof text);
  if (::read(file.get(), text, sizeof text) < 0) text[0] = '\0';
  return 0;
}

[[nodiscard]] int check_au_file_path(const char* path) noexcept {
  char text[KELCHK_SIGNED_FILE_MAX];
  if (read_stored_text(kAuCheck, path, text) != 0) return -1;
  return verify_authorization(text_of(text), Purpose::kAuthorizationCheck);
}

// Leaves the file's text in g_para_buf, where the verification expects the record.
[[nodiscard]] int check_para_file_path(const char* path) noexcept {
  if (read_stored_text(kParaCheck, path, g_para_buf) != 0) return -1;
  return verify_parameters(text_of(g_para_buf), Purpose::kParameterCheck);
}

void log_failed_copy(const char* check, const StorePath& copy) noexcept {
  log_error("%s_path err  path =%s \n", check, copy.text);
}

// Checks the primary copy and, when that fails, the backup; then repairs the failing or missing copy from the valid
// one. A failed repair does not change the result, because the valid copy remains.
[[nodiscard]] int check_copies(const char* check, int (*check_path)(const char* path) noexcept,
                               const StorePath& primary, const StorePath& backup) noexcept {
  if (check_path(primary.text) == 0) {
    if (::access(backup.text, F_OK) != 0) static_cast<void>(copy_file_sync(primary.text, backup.text));
    return 0;
  }
  log_failed_copy(check, primary);
  if (check_path(backup.text) != 0) return -1;
  static_cast<void>(copy_file_sync(backup.text, primary.text));
  return 0;
}

[[nodiscard]] int check_au_file() noexcept {
  select_store_directory();
  const StorePath primary = primary_path(KELCHK_AUTHORIZATION_FILE);
  const int result = check_copies(kAuCheck, check_au_file_path, primary, backup_path(KELCHK_AUTHORIZATION_FILE));
  // An error by priority only: it is logged for a valid file too.
  log_error("%s_path ret=%d  path =%s \n", kAuCheck, result, primary.text);
  log_info("%s ret =%d \n", kAuCheck, result);
  return result;
}

[[nodiscard]] int check_para_file() noexcept {
  select_store_directory();
  const StorePath backup = backup_path(KELCHK_PARAMETER_FILE);
  const int result = check_copies(kParaCheck, check_para_file_path, primary_path(KELCHK_PARAMETER_FILE), backup);
  if (result != 0) log_failed_copy(kParaCheck, backup);
  log_info("%s ret =%d \n", kParaCheck, result);
  return result;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int kelo_is_para_correct() noexcept {
  log_info("%s", kBanner);
  if (check_au_file() == 0) return 0;
  return check_para_file();
}

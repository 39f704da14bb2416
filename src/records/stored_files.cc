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

constexpr char kVersion[] = "libkelchk_ver_20240429_01";

// Each check is named in its messages.
constexpr char kAuCheck[] = "check_au_file";
constexpr char kParaCheck[] = "check_para_file";

// Reads the stored file |path| as text, of which only the first 4096 bytes count. A file that fails to read is empty.
// False when it cannot be opened, after logging that; |text| is then untouched.
[[nodiscard]] bool read_stored_text(const char* check, const char* path, char (&text)[kSignedFileCap]) noexcept {
  const Fd file(open_stored_to_read(path));
  if (!file) {
    log_error("%s open path error =%s ", check, path);
    return false;
  }
  memset(text, 0, sizeof text);
  if (::read(file.get(), text, sizeof text) < 0) text[0] = '\0';
  return true;
}

[[nodiscard]] int check_au_file_path(const char* path) noexcept {
  char text[kSignedFileCap];
  if (!read_stored_text(kAuCheck, path, text)) return -1;
  return verify_au_record(text_of(text), {.decoded_len_priority = ANDROID_LOG_DEBUG});
}

// Leaves the file's text in g_para_buf, where the verification finds the record.
[[nodiscard]] int check_para_file_path(const char* path) noexcept {
  if (!read_stored_text(kParaCheck, path, g_para_buf)) return -1;
  return verify_para_record(text_of(g_para_buf),
                            {.chain_report = ChainReport::kCombined, .decoded_len_priority = ANDROID_LOG_DEBUG});
}

void log_failed_copy(const char* check, const StorePath& copy) noexcept {
  log_error("%s_path err  path =%s \n", check, copy.text);
}

// Judges the primary copy and, when that fails, the backup; then makes the failing or missing one anew from the good
// one. A repair that fails does not change the answer: the good copy is still there.
[[nodiscard]] int check_copies(const char* check, int (*check_path)(const char* path) noexcept,
                               const StorePath& primary, const StorePath& backup) noexcept {
  int result = check_path(primary.text);
  if (result == 0) {
    const bool backed_up = ::access(backup.text, F_OK) == 0;
    if (!backed_up) static_cast<void>(copy_file_sync(primary.text, backup.text));
    return 0;
  }
  log_failed_copy(check, primary);
  result = check_path(backup.text);
  if (result == 0) static_cast<void>(copy_file_sync(backup.text, primary.text));
  return result;
}

[[nodiscard]] int check_au_file() noexcept {
  select_store_directory();
  const StorePath primary = primary_path(kAuFileName);
  const int result = check_copies(kAuCheck, check_au_file_path, primary, backup_path(kAuFileName));
  // At this priority also when the file is valid.
  log_error("%s_path ret=%d  path =%s \n", kAuCheck, result, primary.text);
  log_info("%s ret =%d \n", kAuCheck, result);
  return result;
}

[[nodiscard]] int check_para_file() noexcept {
  select_store_directory();
  const StorePath backup = backup_path(kParaFileName);
  const int result = check_copies(kParaCheck, check_para_file_path, primary_path(kParaFileName), backup);
  if (result != 0) log_failed_copy(kParaCheck, backup);
  log_info("%s ret =%d \n", kParaCheck, result);
  return result;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int kelo_is_para_correct() noexcept {
  log_info("%s", kVersion);
  if (check_au_file() == 0) return 0;
  return check_para_file();
}

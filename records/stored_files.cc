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

// Reads the stored file |path| as text, of which only the first 4096 bytes count. A file that fails to read is empty.
// False when it cannot be opened; |text| is then untouched.
[[nodiscard]] bool read_stored_text(const char* path, char (&text)[kSignedFileCap]) noexcept {
  const Fd file(open_to_read(path));
  if (!file) return false;
  memset(text, 0, sizeof text);
  if (::read(file.get(), text, sizeof text) < 0) text[0] = '\0';
  return true;
}

[[nodiscard]] int check_au_file_path(const char* path) noexcept {
  char text[kSignedFileCap];
  if (!read_stored_text(path, text)) {
    log_error("check_au_file open path error =%s ", path);
    return -1;
  }
  return verify_au_record(text_of(text), {.decoded_len_priority = ANDROID_LOG_DEBUG});
}

// Leaves the file's text in g_para_buf, where the verification finds the record.
[[nodiscard]] int check_para_file_path(const char* path) noexcept {
  if (!read_stored_text(path, g_para_buf)) {
    log_error("check_para_file open path error =%s ", path);
    return -1;
  }
  return verify_para_record(text_of(g_para_buf),
                            {.chain_report = ChainReport::kCombined, .decoded_len_priority = ANDROID_LOG_DEBUG});
}

struct Copies {
  StorePath primary;
  StorePath backup;
};

// Judges the primary copy and, when that fails, the backup; then makes the failing or missing one anew from the good
// one. A repair that fails does not change the answer: the good copy is still there.
[[nodiscard]] int check_copies(const Copies& copies, int (*check)(const char* path) noexcept,
                               const char* check_name) noexcept {
  int result = check(copies.primary.text);
  if (result == 0) {
    const bool backed_up = ::access(copies.backup.text, F_OK) == 0;
    if (!backed_up) static_cast<void>(copy_file_sync(copies.primary.text, copies.backup.text));
    return 0;
  }
  log_error("%s err  path =%s \n", check_name, copies.primary.text);
  result = check(copies.backup.text);
  if (result == 0) static_cast<void>(copy_file_sync(copies.backup.text, copies.primary.text));
  return result;
}

[[nodiscard]] Copies copies_of(const char* name) noexcept {
  select_store_directory();
  return {primary_path(name), backup_path(name)};
}

[[nodiscard]] int check_au_file() noexcept {
  const Copies copies = copies_of(kAuFileName);
  const int result = check_copies(copies, check_au_file_path, "check_au_file_path");
  // At this priority also when the file is valid.
  log_error("check_au_file_path ret=%d  path =%s \n", result, copies.primary.text);
  log_info("check_au_file ret =%d \n", result);
  return result;
}

[[nodiscard]] int check_para_file() noexcept {
  const Copies copies = copies_of(kParaFileName);
  const int result = check_copies(copies, check_para_file_path, "check_para_file_path");
  if (result != 0) log_error("check_para_file_path err  path =%s \n", copies.backup.text);
  log_info("check_para_file ret =%d \n", result);
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

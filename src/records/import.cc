// The import of signed files: write aside, verify, put in force, copy to the backup store directory.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

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

constexpr mode_t kDirectoryMode = 0666;

// Makes the store directory |path| when it is missing; its parents must be there. A failure shows when a file in it
// cannot be opened.
void make_directory(const char* name, const char* path) noexcept {
  struct stat status;
  if (::stat(path, &status) == 0 || ::mkdir(path, kDirectoryMode) == 0) return;
  log_error("mkdir %s error =%s ", name, path);
}

// A FIFO that somebody reads can be opened for writing. It would take the content, lose it, and end up in force.
[[nodiscard]] bool is_file(const Fd& fd) noexcept {
  struct stat status;
  return ::fstat(fd.get(), &status) == 0 && !S_ISFIFO(status.st_mode);
}

// Writes |content| to a file beside the final one and flushes it, so that it is complete before anything is verified.
// The messages name |operation| and the caller's own |in_len|.
[[nodiscard]] bool write_temporary(const char* operation, const StorePath& path, std::string_view content,
                                   unsigned in_len) noexcept {
  make_directory("PARA_FILE_PATH", PARA_FILE_PATH);
  make_directory("PARA_FILE_PATH_BK", PARA_FILE_PATH_BK);

  const Fd file(open_stored_to_replace(path.text));
  if (!file || !is_file(file)) {
    log_error("%s open path error =%s ", operation, path.text);
    return false;
  }
  const auto written = static_cast<size_t>(::write(file.get(), content.data(), content.size()));
  if (written != content.size()) {
    log_error("%s write error in_len =%u , w_len =%zu", operation, in_len, written);
    return false;
  }
  ::fsync(file.get());
  return true;
}

// Moves the verified file over the final one, in one step and for good, and then renews the backup copy.
[[nodiscard]] int put_in_force(const StorePath& temporary, const char* name) noexcept {
  select_store_directory();
  const StorePath primary = primary_path(name);
  if (::rename(temporary.text, primary.text) != 0) {
    log_error("rename ERR  file_path_t=%s , file_path=%s\n", temporary.text, primary.text);
    return -1;
  }
  ::sync();
  const int result = copy_file_sync(primary.text, backup_path(name).text);
  if (result != 0) {
    log_error("copy_file_sync err =%d \n", result);
    return -1;
  }
  return 0;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int kelo_import_aufile(const void* in, unsigned int in_len) noexcept {
  if (in == nullptr || in_len == 0 || in_len > kSignedFileCap) return fail("in is null or in_len is 0");
  const auto* const bytes = static_cast<const char*>(in);
  select_store_directory();
  const StorePath temporary = primary_path("auFile_tmp.dat");
  if (!write_temporary("kelo_import_aufile", temporary, {bytes, in_len}, in_len)) return -1;

  // Read as text within what was stored, so that what is verified is what is stored.
  const std::string_view record(bytes, strnlen(bytes, in_len));
  if (verify_au_record(record, {.decoded_len_priority = ANDROID_LOG_ERROR, .logs_rid_len = true}) != 0) {
    return -1;
  }
  return put_in_force(temporary, kAuFileName);
}

int kelo_import_para_sign(const char* in, unsigned int in_len) noexcept {
  if (in == nullptr || in_len == 0 || g_is_authed == 0) return fail("in == NULL || in_len == 0");
  char content[kSignedFileCap];
  TextWriter writer(content);
  const std::string_view record = text_of(g_para_buf);
  writer.append(record);
  writer.append({"&", in});
  if (!writer.fits()) return fail("kelo_import_para_sign content too long");
  select_store_directory();
  const StorePath temporary = primary_path("startPara_tmp.dat");
  if (!write_temporary("kelo_import_para_sign", temporary, {content, writer.length()}, in_len)) return -1;

  if (verify_para_record(in, {.decoded_len_priority = ANDROID_LOG_DEBUG}) != 0) return -1;
  return put_in_force(temporary, kParaFileName);
}

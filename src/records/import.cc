// The import of signed files: write a temporary file, verify it, put it in force, copy it to the backup store
// directory.
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

// Makes the store directory |path| when it is missing, but not its parents. A failure only shows when a file in it
// cannot be opened.
void make_directory(const char* name, const char* path) noexcept {
  struct stat status;
  if (::stat(path, &status) == 0 || ::mkdir(path, kDirectoryMode) == 0) return;
  log_error("mkdir %s error =%s ", name, path);
}

// A FIFO opens for writing when somebody reads it. It would swallow the content and then be renamed into place.
[[nodiscard]] bool is_usable(const Fd& file) noexcept {
  struct stat status;
  return file && ::fstat(file.get(), &status) == 0 && !S_ISFIFO(status.st_mode);
}

// Writes |content| to a temporary file in the primary store directory and flushes it, so that the file is complete
// before anything is verified. The messages name |operation| and the caller's own |in_len|.
[[nodiscard]] int write_temporary(const char* operation, const StorePath& path, std::string_view content,
                                  unsigned in_len) noexcept {
  make_directory("PARA_FILE_PATH", PARA_FILE_PATH);
  make_directory("PARA_FILE_PATH_BK", PARA_FILE_PATH_BK);

  const Fd file(open_stored_to_replace(path.text));
  if (!is_usable(file)) {
    log_error("%s open path error =%s ", operation, path.text);
    return -1;
  }
  const auto written = static_cast<size_t>(::write(file.get(), content.data(), content.size()));
  if (written != content.size()) {
    log_error("%s write error in_len =%u , w_len =%zu", operation, in_len, written);
    return -1;
  }
  ::fsync(file.get());
  return 0;
}

// Writes the record in g_para_buf and |signer_fields| to a temporary file, whose path is left in |temporary|.
[[nodiscard]] int write_parameter_file(const char* signer_fields, unsigned in_len, StorePath& temporary) noexcept {
  char content[KELCHK_SIGNED_FILE_MAX];
  TextWriter writer(content);
  writer.append(text_of(g_para_buf));
  writer.append({"&", signer_fields});
  if (!writer.fits()) return log_failure("kelo_import_para_sign content too long");
  select_store_directory();
  temporary = primary_path(KELCHK_PARAMETER_TEMPORARY);
  return write_temporary("kelo_import_para_sign", temporary, {content, writer.length()}, in_len);
}

// Renames the verified file over the stored one, flushes that, and then renews the backup copy.
[[nodiscard]] int put_in_force(const StorePath& temporary, const char* name) noexcept {
  select_store_directory();
  const StorePath primary = primary_path(name);
  if (::rename(temporary.text, primary.text) != 0) {
    log_error("rename ERR  file_path_t=%s , file_path=%s\n", temporary.text, primary.text);
    return -1;
  }
  ::sync();
  const int result = copy_file_sync(primary.text, backup_path(name).text);
  if (result == 0) return 0;
  log_error("copy_file_sync err =%d \n", result);
  return -1;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int kelo_import_aufile(const void* in, unsigned int in_len) noexcept {
  if (in == nullptr || in_len == 0 || in_len > KELCHK_SIGNED_FILE_MAX) return log_failure("in is null or in_len is 0");
  const auto* const bytes = static_cast<const char*>(in);
  select_store_directory();
  const StorePath temporary = primary_path(KELCHK_AUTHORIZATION_TEMPORARY);
  if (write_temporary("kelo_import_aufile", temporary, {bytes, in_len}, in_len) != 0) return -1;

  // The text ends within the stored bytes, so that what is verified is what is stored.
  const std::string_view record(bytes, strnlen(bytes, in_len));
  if (verify_authorization(record, Purpose::kAuthorizationImport) != 0) return -1;
  return put_in_force(temporary, KELCHK_AUTHORIZATION_FILE);
}

int kelo_import_para_sign(const char* in, unsigned int in_len) noexcept {
  if (in == nullptr || in_len == 0 || g_is_authed == 0) return log_failure("in == NULL || in_len == 0");
  StorePath temporary;
  if (write_parameter_file(in, in_len, temporary) != 0) return -1;
  if (verify_parameters(in, Purpose::kParameterImport) != 0) return -1;
  return put_in_force(temporary, KELCHK_PARAMETER_FILE);
}

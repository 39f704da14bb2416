#include "tests/fuzz/fuzz.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "core/record.h"
#include "kelchk.h"

namespace {

std::string properties_record;

int lowest_free_descriptor() {
  const int fd = ::dup(STDERR_FILENO);
  ::close(fd);
  return fd;
}

}  // namespace

// Formats each line, so that the sanitizers check what its arguments point to.
int __android_log_print(int, const char*, const char* format, ...) {
  char line[8192];
  va_list arguments;
  va_start(arguments, format);
  const int len = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  return len;
}

int property_get(const char* key, char* value, const char* default_value) {
  char found[PROPERTY_VALUE_MAX] = {};
  kelchk::get_value_by_key(properties_record, key, found);
  std::strcpy(value, found[0] != '\0' ? found : default_value);
  return static_cast<int>(std::strlen(value));
}

void sync() noexcept {}
int fsync(int) {
  return 0;
}

namespace fuzz {

void make_phone(phone::Chip chip) {
  const phone::Identity identity = phone::default_identity(chip);
  phone::make("/", identity, PHONE_VENDOR_LIBRARIES);
  std::filesystem::create_directories(chip == phone::Chip::kMediaTek ? KELCHK_STORE_MEDIATEK : KELCHK_STORE_UNISOC);
  std::filesystem::create_directories(KELCHK_STORE_BACKUP);
  for (const char* folder : {"/vendor/lib", "/vendor/lib64"}) {
    std::filesystem::copy(PHONE_VENDOR_LIBRARIES, folder, std::filesystem::copy_options::overwrite_existing);
  }
  properties_record.clear();
  for (const auto& [name, value] : identity.properties) properties_record.append(name + "=" + value + "&");
}

void set_properties(std::string_view record) {
  properties_record = record;
}

void write_file(const std::string& path, std::string_view content) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0 || ::write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) std::abort();
  ::close(fd);
}

LibraryRun::LibraryRun() : free_descriptor_(lowest_free_descriptor()) {
  std::memset(g_rand_buf, 0, sizeof g_rand_buf);
  std::memset(g_factory_pem, 0, sizeof g_factory_pem);
  std::memset(g_factor_der, 0, sizeof g_factor_der);
  std::memset(g_para_buf, 0, sizeof g_para_buf);
  std::memset(g_log_buf, 0, sizeof g_log_buf);
  std::memset(PARA_FILE_PATH, 0, sizeof PARA_FILE_PATH);
  std::memset(g_sprd_imei, 0, sizeof g_sprd_imei);
  g_is_authed = 0;
}

LibraryRun::~LibraryRun() {
  if (lowest_free_descriptor() != free_descriptor_) std::abort();
}

void request_record(std::string_view request) {
  g_is_authed = 1;
  const std::string text(request);
  const auto record = std::make_unique<char[]>(KELCHK_RECORD_MAX);
  unsigned len = 0;
  kelo_get_para(text.c_str(), static_cast<unsigned>(text.size()), record.get(), &len);
}

}  // namespace fuzz

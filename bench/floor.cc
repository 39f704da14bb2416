#include "bench/floor.h"

#include <cutils/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/base64.h>
#include <openssl/bio.h>
#include <openssl/digest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string_view>

#include "kelchk.h"

namespace floors {
namespace {

using phone::Chip;

constexpr size_t kFileCap = 4096;
constexpr size_t kSignatureTextLen = 344;
constexpr size_t kSignatureLen = 256;

std::string root_pem;

// ---- The system ----

// An absent property counts as "false".
bool ask(const char* property) {
  char value[PROPERTY_VALUE_MAX];
  return property_get(property, value, "false") > 0;
}

bool read_file(const char* path, void* buffer, size_t size) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t count = ::read(fd, buffer, size);
  ::close(fd);
  return count > 0;
}

int open_to_replace(const std::string& path) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

bool write_all(int fd, std::string_view bytes) {
  return ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool copy_file(const std::string& source, const std::string& destination) {
  char buffer[kFileCap];
  const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = open_to_replace(destination);
  bool ok = in >= 0 && out >= 0;
  for (ssize_t count = 0; ok && (count = ::read(in, buffer, sizeof buffer)) > 0;) {
    ok = write_all(out, {buffer, static_cast<size_t>(count)});
  }
  ::sync();
  ::close(out);
  ::close(in);
  return ok;
}

// ---- The phone ----

bool ask_chip() {
  return ask("ro.hardware");
}

struct NvramFile {
  int fd, reserved[3];
};

bool read_nvram(const char* name, void* buffer, size_t size) {
  void* const library = ::dlopen("/vendor/lib64/libnvram.so", RTLD_LAZY);
  if (library == nullptr) return false;
  const auto get_file = reinterpret_cast<NvramFile (*)(int, int*, int*, bool)>(::dlsym(library, "NVM_GetFileDesc"));
  const auto get_id = reinterpret_cast<int (*)(const char*)>(::dlsym(library, "NVM_GetLIDByName"));
  int record_size = 0;
  int record_count = 0;
  const int fd = get_file(get_id(name), &record_size, &record_count, true).fd;
  const bool ok = ::read(fd, buffer, size) == static_cast<ssize_t>(size);
  ::close(fd);
  ::dlclose(library);
  return ok;
}

bool read_proinfo(off_t offset, size_t size) {
  char bytes[16];
  const int fd = ::open("/dev/block/by-name/proinfo", O_RDONLY | O_CLOEXEC);
  if (fd < 0 || ::lseek(fd, offset, SEEK_SET) != offset) return false;
  const ssize_t count = ::read(fd, bytes, size);
  ::close(fd);
  return count == static_cast<ssize_t>(size);
}

bool hash_country(Chip chip) {
  if (!ask_chip()) return false;
  char bytes[1509];
  size_t hashed = sizeof bytes;
  if (chip == Chip::kMediaTek) {
    if (!read_nvram("/vendor/nvdata/APCFG/APRDEB/ANTI_CS", bytes, hashed)) return false;
  } else {
    if (!read_file("/mnt/vendor/productinfo/finstatus/finstatus.prop", bytes, hashed)) return false;
    hashed = 12;  // the last three words of the simulated phone's text
  }
  SHA256_CTX sha;
  unsigned char digest[SHA256_DIGEST_LENGTH];
  return SHA256_Init(&sha) && SHA256_Update(&sha, bytes, hashed) && SHA256_Final(digest, &sha);
}

bool read_rid(Chip chip) {
  char bytes[257];
  if (!ask_chip()) return false;
  if (chip == Chip::kMediaTek) return read_file("/proc/rid", bytes, 16);
  return read_file("/sys/kelonix/hwinfo/chip_uid", bytes, sizeof bytes);
}

bool read_imei(Chip chip) {
  if (!ask_chip()) return false;
  if (chip == Chip::kMediaTek) return read_proinfo(64, 8);
  if (!ask("ro.bootmode")) return false;
  void* const library = ::dlopen("/vendor/lib/libatci.so", RTLD_LAZY);  // it stays loaded
  if (library == nullptr) return false;
  char answer[256];
  return reinterpret_cast<int (*)(int, const char*, char*, int)>(::dlsym(library, "sendATCmd"))(0, "AT+CGSN", answer,
                                                                                                sizeof answer) == 0;
}

bool read_mac(Chip chip) {
  char bytes[127];
  if (!ask_chip()) return false;
  if (chip == Chip::kMediaTek) return read_nvram("/mnt/vendor/nvdata/APCFG/APRDEB/WIFI", bytes, 10);
  return read_file("/mnt/vendor/wifimac.txt", bytes, sizeof bytes);
}

bool read_psn(Chip chip) {
  if (!ask_chip()) return false;
  if (chip == Chip::kMediaTek) return read_proinfo(0, 16);
  char bytes[20];
  return ask("ro.vendor.product.partitionpath") && read_file("/dev/block/by-name/miscdata", bytes, sizeof bytes);
}

bool ask_build() {
  return ask("ro.build.type") && ask("ro.vendor.kelo.userroot") && ask("ro.debuggable") &&
         ask("ro.system.build.version.incremental");
}

bool ask_product() {
  return ask("ro.product.brand") && ask("ro.product.device");
}

// What a stored record is held against.
bool read_checked_fields(Chip chip) {
  const bool ok = ask_build() && hash_country(chip) && read_rid(chip) && ask_product() && read_mac(chip) &&
                  read_psn(chip) && ask_chip();
  return ok && (chip == Chip::kMediaTek || (ask("ro.bootmode") && read_imei(chip)));
}

// ---- The crypto library ----

bool verify_chain(X509* root, X509* signer) {
  X509_STORE* const store = X509_STORE_new();
  const bool added = X509_STORE_add_cert(store, root) == 1;
  X509_STORE_CTX* const context = X509_STORE_CTX_new();
  const bool ok = added && X509_STORE_CTX_init(context, store, signer, nullptr) == 1 &&
                  X509_verify_cert(context) == 1 && X509_STORE_CTX_get_error(context) == X509_V_OK;
  X509_STORE_CTX_free(context);
  X509_STORE_free(store);
  return ok;
}

bool verify_signature(X509* signer, std::string_view message, const unsigned char* signature) {
  EVP_PKEY* const key = X509_get_pubkey(signer);
  EVP_MD_CTX* const context = EVP_MD_CTX_create();
  const bool ok = EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key) == 1 &&
                  EVP_DigestVerifyUpdate(context, message.data(), message.size()) == 1 &&
                  EVP_DigestVerifyFinal(context, signature, kSignatureLen) == 1;
  EVP_MD_CTX_destroy(context);
  EVP_PKEY_free(key);
  return ok;
}

// |read_message| reads what the message is made of.
template <typename ReadMessage>
bool verify(const char* text, const SignedText& layout, ReadMessage read_message) {
  BIO* const pem = BIO_new_mem_buf(root_pem.c_str(), -1);
  X509* const root = PEM_read_bio_X509(pem, nullptr, nullptr, nullptr);
  BIO_free(pem);
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text);
  unsigned char der[kFileCap];
  size_t der_len = 0;
  bool ok = EVP_DecodeBase64(der, &der_len, sizeof der, bytes + layout.certificate_at, layout.certificate_len) == 1;
  const unsigned char* start = der;
  X509* const signer = d2i_X509(nullptr, &start, static_cast<long>(der_len));
  ok = ok && root != nullptr && signer != nullptr && read_message();
  unsigned char signature[kSignatureTextLen];
  size_t signature_len = 0;
  ok = ok && EVP_DecodeBase64(signature, &signature_len, sizeof signature, bytes + layout.signature_at,
                              kSignatureTextLen) == 1;
  ok = ok && verify_chain(root, signer) && verify_signature(signer, layout.message, signature);
  X509_free(signer);
  X509_free(root);
  return ok;
}

// ---- The stores ----

bool write_temporary(const StoredFile& file) {
  struct stat status;
  if (!ask_chip() || ::stat(file.primary_folder.c_str(), &status) != 0) return false;
  if (::stat(file.backup_folder.c_str(), &status) != 0) return false;
  const int fd = open_to_replace(file.temporary);
  const bool ok = write_all(fd, file.content);
  ::fsync(fd);
  ::close(fd);
  return ok;
}

bool put_in_force(const StoredFile& file) {
  if (!ask_chip() || ::rename(file.temporary.c_str(), file.primary.c_str()) != 0) return false;
  ::sync();
  return copy_file(file.primary, file.backup);
}

bool is_missing(const std::string& path) {
  char text[kFileCap];
  return !read_file(path.c_str(), text, sizeof text);
}

}  // namespace

void set_root_certificate(const std::string& pem) {
  root_pem = pem;
}

bool get_rand(size_t len) {
  char bytes[256];
  return read_file("/dev/urandom", bytes, len);
}

bool verify_rand(const char* response, const SignedText& layout) {
  return verify(response, layout, [] { return true; });
}

bool get_para(Chip chip) {
  return ask_chip() && ask_build() && hash_country(chip) && read_rid(chip) && ask_product() && read_imei(chip) &&
         read_mac(chip) && read_psn(chip) && ::time(nullptr) != 0;
}

bool import_aufile(Chip chip, const StoredFile& file) {
  return write_temporary(file) && verify(file.content.c_str(), file.layout, [chip] { return read_rid(chip); }) &&
         put_in_force(file);
}

bool import_para_sign(Chip chip, const StoredFile& file) {
  return write_temporary(file) && verify(file.content.c_str(), file.layout, [] { return true; }) &&
         read_checked_fields(chip) && put_in_force(file);
}

bool check_au_file(Chip chip, const StoredFile& file) {
  char text[kFileCap];
  return ask_chip() && read_file(file.primary.c_str(), text, sizeof text) &&
         verify(text, file.layout, [chip] { return read_rid(chip); }) && ::access(file.backup.c_str(), F_OK) == 0;
}

bool check_para_file(Chip chip, const StoredFile& missing, const StoredFile& file) {
  char text[kFileCap];
  return ask_chip() && is_missing(missing.primary) && is_missing(missing.backup) && ask_chip() &&
         read_file(file.primary.c_str(), text, sizeof text) && verify(text, file.layout, [] { return true; }) &&
         read_checked_fields(chip) && ::access(file.backup.c_str(), F_OK) == 0;
}

bool repair_au_file(Chip chip, const StoredFile& file) {
  char text[kFileCap];
  return ask_chip() && read_file(file.primary.c_str(), text, sizeof text) &&
         read_file(file.backup.c_str(), text, sizeof text) &&
         verify(text, file.layout, [chip] { return read_rid(chip); }) && copy_file(file.backup, file.primary);
}

bool get_security_report() {
  bool ok = true;
  for (const char* const name : properties) ok = ask(name) && ok;
  return ok;
}

}  // namespace floors

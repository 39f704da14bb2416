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

#include <ctime>
#include <memory>
#include <string_view>

#include "common/fd.h"
#include "kelchk.h"

namespace floors {
namespace {

using common::Fd;
using phone::Chip;

constexpr size_t kFileCap = KELCHK_SIGNED_FILE_MAX;
constexpr size_t kSignatureLen = KELCHK_SIGNATURE_LEN;
constexpr size_t kSignatureTextLen = (kSignatureLen + 2) / 3 * 4;  // in base64

std::string root_pem;

// ---- The system ----

// An absent property counts as "false".
bool read_property(const char* property) {
  char value[PROPERTY_VALUE_MAX];
  return property_get(property, value, "false") > 0;
}

bool read_file(const char* path, void* buffer, size_t size) {
  const Fd file(::open(path, O_RDONLY | O_CLOEXEC));
  return file && ::read(file.get(), buffer, size) > 0;
}

Fd open_to_replace(const std::string& path) {
  return Fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

bool write_all(const Fd& file, std::string_view bytes) {
  return ::write(file.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

bool copy_file(const std::string& source, const std::string& destination) {
  char buffer[kFileCap];
  const Fd in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  const Fd out = open_to_replace(destination);
  bool ok = in && out;
  for (ssize_t count = 0; ok && (count = ::read(in.get(), buffer, sizeof buffer)) > 0;) {
    ok = write_all(out, {buffer, static_cast<size_t>(count)});
  }
  ::sync();
  return ok;
}

// ---- The phone ----

bool read_chip_family() {
  return read_property("ro.hardware");
}

struct NvramFile {
  int fd, reserved[3];
};

struct UnloadLibrary {
  void operator()(void* library) const { ::dlclose(library); }
};
using VendorLibrary = std::unique_ptr<void, UnloadLibrary>;

bool read_nvram(const char* name, void* buffer, size_t size) {
  const VendorLibrary library(::dlopen("/vendor/lib64/libnvram.so", RTLD_LAZY));
  if (!library) return false;
  const auto get_file =
      reinterpret_cast<NvramFile (*)(int, int*, int*, bool)>(::dlsym(library.get(), "NVM_GetFileDesc"));
  const auto get_id = reinterpret_cast<int (*)(const char*)>(::dlsym(library.get(), "NVM_GetLIDByName"));
  int record_size = 0;
  int record_count = 0;
  const Fd record(get_file(get_id(name), &record_size, &record_count, true).fd);
  return ::read(record.get(), buffer, size) == static_cast<ssize_t>(size);
}

bool read_proinfo(off_t offset, size_t size) {
  char bytes[16];
  const Fd partition(::open("/dev/block/by-name/proinfo", O_RDONLY | O_CLOEXEC));
  return partition && ::lseek(partition.get(), offset, SEEK_SET) == offset &&
         ::read(partition.get(), bytes, size) == static_cast<ssize_t>(size);
}

bool hash_country(Chip chip) {
  if (!read_chip_family()) return false;
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
  if (!read_chip_family()) return false;
  if (chip == Chip::kMediaTek) return read_file("/proc/rid", bytes, 16);
  return read_file("/sys/kelonix/hwinfo/chip_uid", bytes, sizeof bytes);
}

bool read_imei(Chip chip) {
  if (!read_chip_family()) return false;
  if (chip == Chip::kMediaTek) return read_proinfo(64, 8);
  if (!read_property("ro.bootmode")) return false;
  void* const library = ::dlopen("/vendor/lib/libatci.so", RTLD_LAZY);  // it stays loaded
  if (library == nullptr) return false;
  const auto send = reinterpret_cast<int (*)(int, const char*, char*, int)>(::dlsym(library, "sendATCmd"));
  char answer[256];
  return send(0, "AT+CGSN", answer, sizeof answer) == 0;
}

bool read_mac(Chip chip) {
  char bytes[127];
  if (!read_chip_family()) return false;
  if (chip == Chip::kMediaTek) return read_nvram("/mnt/vendor/nvdata/APCFG/APRDEB/WIFI", bytes, 10);
  return read_file("/mnt/vendor/wifimac.txt", bytes, sizeof bytes);
}

bool read_psn(Chip chip) {
  if (!read_chip_family()) return false;
  if (chip == Chip::kMediaTek) return read_proinfo(0, 16);
  char bytes[20];
  return read_property("ro.vendor.product.partitionpath") &&
         read_file("/dev/block/by-name/miscdata", bytes, sizeof bytes);
}

bool read_build() {
  return read_property("ro.build.type") && read_property("ro.vendor.kelo.userroot") && read_property("ro.debuggable") &&
         read_property("ro.system.build.version.incremental");
}

bool read_product() {
  return read_property("ro.product.brand") && read_property("ro.product.device");
}

// What a stored record is compared with.
bool read_checked_fields(Chip chip) {
  const bool ok = read_build() && hash_country(chip) && read_rid(chip) && read_product() && read_mac(chip) &&
                  read_psn(chip) && read_chip_family();
  return ok && (chip == Chip::kMediaTek || (read_property("ro.bootmode") && read_imei(chip)));
}

// ---- The crypto library ----

bool verify_chain(X509* root, X509* signer) {
  const bssl::UniquePtr<X509_STORE> store(X509_STORE_new());
  const bool added = X509_STORE_add_cert(store.get(), root) == 1;
  const bssl::UniquePtr<X509_STORE_CTX> context(X509_STORE_CTX_new());
  return added && X509_STORE_CTX_init(context.get(), store.get(), signer, nullptr) == 1 &&
         X509_verify_cert(context.get()) == 1 && X509_STORE_CTX_get_error(context.get()) == X509_V_OK;
}

bool verify_signature(X509* signer, std::string_view message, const unsigned char* signature) {
  const bssl::UniquePtr<EVP_PKEY> key(X509_get_pubkey(signer));
  const bssl::UniquePtr<EVP_MD_CTX> context(EVP_MD_CTX_create());
  return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) == 1 &&
         EVP_DigestVerifyUpdate(context.get(), message.data(), message.size()) == 1 &&
         EVP_DigestVerifyFinal(context.get(), signature, kSignatureLen) == 1;
}

bssl::UniquePtr<X509> parse_root() {
  const bssl::UniquePtr<BIO> pem(BIO_new_mem_buf(root_pem.c_str(), -1));
  return bssl::UniquePtr<X509>(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
}

bssl::UniquePtr<X509> parse_signer(const unsigned char* text, size_t len) {
  unsigned char der[kFileCap];
  size_t der_len = 0;
  if (EVP_DecodeBase64(der, &der_len, sizeof der, text, len) != 1) return nullptr;
  const unsigned char* start = der;
  return bssl::UniquePtr<X509>(d2i_X509(nullptr, &start, static_cast<long>(der_len)));
}

// |read_message| reads what the message is made of.
template <typename ReadMessage>
bool verify(const char* text, const SignedRecordLayout& layout, ReadMessage read_message) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text);
  const bssl::UniquePtr<X509> root = parse_root();
  const bssl::UniquePtr<X509> signer = parse_signer(bytes + layout.certificate_at, layout.certificate_len);
  if (!root || !signer || !read_message()) return false;
  unsigned char signature[kSignatureTextLen];
  size_t signature_len = 0;
  return EVP_DecodeBase64(signature, &signature_len, sizeof signature, bytes + layout.signature_at,
                          kSignatureTextLen) == 1 &&
         verify_chain(root.get(), signer.get()) && verify_signature(signer.get(), layout.message, signature);
}

// ---- The stores ----

bool write_temporary(const StoredFile& file) {
  struct stat status;
  if (!read_chip_family() || ::stat(file.primary_folder.c_str(), &status) != 0) return false;
  if (::stat(file.backup_folder.c_str(), &status) != 0) return false;
  const Fd temporary = open_to_replace(file.temporary);
  const bool is_regular = ::fstat(temporary.get(), &status) == 0 && S_ISREG(status.st_mode);
  const bool ok = is_regular && write_all(temporary, file.content);
  ::fsync(temporary.get());
  return ok;
}

bool activate(const StoredFile& file) {
  if (!read_chip_family() || ::rename(file.temporary.c_str(), file.primary.c_str()) != 0) return false;
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

bool verify_rand(const char* response, const SignedRecordLayout& layout) {
  return verify(response, layout, [] { return true; });
}

bool get_para(Chip chip) {
  return read_chip_family() && read_build() && hash_country(chip) && read_rid(chip) && read_product() &&
         read_imei(chip) && read_mac(chip) && read_psn(chip) && ::time(nullptr) != 0;
}

bool import_aufile(Chip chip, const StoredFile& file) {
  return write_temporary(file) && verify(file.content.c_str(), file.layout, [chip] { return read_rid(chip); }) &&
         activate(file);
}

bool import_para_sign(Chip chip, const StoredFile& file) {
  return write_temporary(file) && verify(file.content.c_str(), file.layout, [] { return true; }) &&
         read_checked_fields(chip) && activate(file);
}

bool check_au_file(Chip chip, const StoredFile& file) {
  char text[kFileCap];
  return read_chip_family() && read_file(file.primary.c_str(), text, sizeof text) &&
         verify(text, file.layout, [chip] { return read_rid(chip); }) && ::access(file.backup.c_str(), F_OK) == 0;
}

bool check_para_file(Chip chip, const StoredFile& missing, const StoredFile& file) {
  char text[kFileCap];
  return read_chip_family() && is_missing(missing.primary) && is_missing(missing.backup) && read_chip_family() &&
         read_file(file.primary.c_str(), text, sizeof text) && verify(text, file.layout, [] { return true; }) &&
         read_checked_fields(chip) && ::access(file.backup.c_str(), F_OK) == 0;
}

bool repair_au_file(Chip chip, const StoredFile& file) {
  char text[kFileCap];
  return read_chip_family() && read_file(file.primary.c_str(), text, sizeof text) &&
         read_file(file.backup.c_str(), text, sizeof text) &&
         verify(text, file.layout, [chip] { return read_rid(chip); }) && copy_file(file.backup, file.primary);
}

bool get_security_report() {
  bool ok = true;
  for (const char* const name : properties) ok = read_property(name) && ok;
  return ok;
}

}  // namespace floors

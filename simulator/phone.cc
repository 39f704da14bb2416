#include "simulator/phone.h"

#include <unistd.h>

#include <charconv>
#include <stdexcept>
#include <system_error>

#include "simulator/property_file.h"

namespace phone {
namespace {

namespace fs = std::filesystem;

constexpr char kMarker[] = ".kelchk-simulated-phone";
constexpr size_t kMaxLibraryLen = size_t{64} << 20;
constexpr uid_t kSystemUser = 1000;  // "system", the user and group of a phone's own services

// |size| bytes: |content| at |offset|, and zeros around it.
std::string partition_image(size_t size, size_t offset, std::string_view content) {
  std::string bytes(size, '\0');
  return content.empty() ? bytes : bytes.replace(offset, content.size(), content).substr(0, size);
}

std::string decimal(int number, size_t width) {
  const std::string digits = std::to_string(number);
  return digits.size() < width ? std::string(width - digits.size(), '0') + digits : digits;
}

char luhn_digit(std::string_view digits) {
  int sum = 0;
  for (size_t i = 0; i < digits.size(); i++) {
    const int value = (digits[i] - '0') * (i % 2 == 0 ? 1 : 2);
    sum += value / 10 + value % 10;
  }
  return static_cast<char>('0' + (10 - sum % 10) % 10);
}

// Two digits a byte, the first in the low nibble, padded with F.
std::string swapped_bcd(std::string digits) {
  digits.resize(16, 'F');
  for (size_t i = 0; i < digits.size(); i += 2) std::swap(digits[i], digits[i + 1]);
  return bytes_from_hex(digits);
}

std::string with_colons(const std::string& mac) {
  std::string text;
  for (size_t i = 0; i < mac.size(); i += 2) text.append(i ? ":" : "").append(mac, i, 2);
  return text;
}

std::map<std::string, std::string> default_properties(Chip chip) {
  const bool is_mediatek = chip == Chip::kMediaTek;
  std::map<std::string, std::string> properties = {
      {"ro.hardware", is_mediatek ? "mt6768" : "ums512"},
      {"ro.product.brand", is_mediatek ? "Aldan_X" : "Aldan"},
      {"ro.product.device", is_mediatek ? "Aldan-KX67" : "Aldan-KU51"},
      {"ro.product.first_api_level", "31"},
      {"ro.system.build.version.incremental", "20240429V3"},
      {"ro.build.type", "user"},
      {"ro.debuggable", "0"},
      {"ro.bootmode", "normal"},
      {"ro.boot.blow_disbrom", "1"},
      {"ro.boot.otp_ver", "2"},
      {"ro.boot.sec_img_ver", "3"},
      {"ro.boot.anti_rollback_status", "1"},
      {"ro.boot.avb_img_ver", "3"},
      {"ro.boot.vbmeta.device_state", "locked"},
      {"ro.boot.sec_da_ver", "2"},
      {"ro.boot.efusemode", "hw"},
      {"ro.boot.vbmeta.digest", std::string(60, '9') + "beef"},
      {"ro.bootimage.build.date", "Mon Apr 29 10:12:44 UTC 2024"},
      {"ro.vendor.kelo.anti.crack.p7.support", "1"},
  };
  for (const char* partition : {"odm", "product", "system", "system_ext", "vendor", "vendor_dlkm"}) {
    properties["ro." + std::string(partition) + ".build.date"] = "Mon Apr 29 10:20:30 UTC 2024";
  }
  char digest = 'a';
  for (const char* partition : {"odm_dlkm", "product", "system", "system_ext", "vendor", "vendor_dlkm"}) {
    properties["partition." + std::string(partition) + ".verified.root_digest"] = std::string(64, digest++);
  }
  if (!is_mediatek) properties["ro.vendor.product.partitionpath"] = "/dev/block/by-name/";
  return properties;
}

Identity mediatek_identity(int serial) {
  Identity identity;
  identity.rid = bytes_from_hex("0123456789ABCDEF0123456789" + decimal(serial, 6));
  identity.mac = "000AF5" + decimal(serial, 6);
  identity.psn = "KX67" + decimal(serial, 12);
  identity.country = std::string("\x01\0\0\0\0\0\0\0\0", 9) + "KZ|3|QVk=_XkY=";
  return identity;
}

Identity unisoc_identity(int serial) {
  Identity identity;
  identity.rid = "AB12CD34" + decimal(serial, 8);
  identity.mac = "02c0de" + decimal(serial, 6);
  identity.psn = "KU51" + decimal(serial, 12);
  identity.country = "0|0|0|0|0|0|0|0|0|0|KZ|3|QVk=_XkY=";
  return identity;
}

void require_name(const fs::path& root) {
  if (root.empty()) throw std::invalid_argument("the name of the phone's folder is empty");
}

bool has_marker(const FileTree& phone) {
  return phone.has_file(kMarker) || (fs::equivalent(phone.root(), "/") && is_sandbox());
}

// Only a folder that is empty, and so has nothing to lose, becomes a new phone.
void claim(const FileTree& phone) {
  if (has_marker(phone)) return;
  if (fs::equivalent(phone.root(), "/")) {
    throw std::runtime_error("/ is this machine's own root: start the program with \"phone scratch\"");
  }
  if (!phone.is_empty()) {
    throw std::runtime_error(phone.root().string() + " holds other files and no phone (no " + kMarker +
                             "): nothing was changed");
  }
  phone.write(kMarker, "A simulated phone: \"phone make\" may remove what its folders hold.\n");
}

// Keeps the folders themselves, which may be mount points in a sandbox.
void empty_own_folders(const FileTree& phone) {
  for (const fs::path name : kOwnFolders) {
    if (!fs::is_directory(fs::symlink_status(phone.root() / name))) phone.remove(name);
    phone.make_folder(name);
    if (name == "proc") continue;
    phone.remove_content(name);
    phone.set_access(name, 0, 0, 0755);
  }
  phone.remove("proc/rid");
}

// What the phone's services write belongs to them: root has no right to override there.
void give_to_system(const FileTree& phone) {
  for (const char* folder : {"kelofs", "mnt/vendor/persist", "mnt/vendor/productinfo"}) {
    phone.make_folder(folder);
    phone.set_access(folder, kSystemUser, kSystemUser, 0770);
  }
  phone.set_access(fs::path(kPropertyFile).parent_path(), 0, kSystemUser, 0775);
  if (::geteuid() == 0) phone.set_access("", 0, 0, 0755);
}

void make_common(const FileTree& phone, const Identity& identity) {
  std::string properties = "# The properties of this phone. Every query reads this file.\n";
  for (const auto& [name, value] : identity.properties) properties += property_line(name, value);
  phone.write(kPropertyFile, properties);
  for (const char* name : kDevices) phone.make_link(fs::path("dev") / name, fs::path("/run/dev") / name);
}

void install_library(const FileTree& phone, const fs::path& library, const fs::path& folder) {
  phone.write(folder / library.filename(), FileTree(library.parent_path()).read(library.filename(), kMaxLibraryLen));
}

void make_mediatek(const FileTree& phone, const Identity& identity, const fs::path& vendor_libraries) {
  phone.write("proc/rid", identity.rid);
  std::string proinfo = partition_image(4096, 0, identity.psn);
  phone.write("dev/block/by-name/proinfo", proinfo.replace(64, 8, swapped_bcd(identity.imei)));
  phone.write("mnt/vendor/nvdata/APCFG/APRDEB/WIFI", partition_image(512, 4, bytes_from_hex(identity.mac)));
  phone.write("vendor/nvdata/APCFG/APRDEB/ANTI_CS", partition_image(2048, 0, identity.country));
  install_library(phone, vendor_libraries / "libnvram.so", "vendor/lib64");
}

void make_unisoc(const FileTree& phone, const Identity& identity, const fs::path& vendor_libraries) {
  phone.write("sys/kelonix/hwinfo/chip_uid", identity.rid);
  phone.write("dev/block/by-name/miscdata", partition_image(4096, 4, identity.psn));
  phone.write("mnt/vendor/wifimac.txt", with_colons(identity.mac));
  phone.write("mnt/vendor/productinfo/finstatus/finstatus.prop", identity.country);
  phone.write("vendor/modem/imei", identity.imei);
  phone.write("vendor/efuse/secure", std::to_string(identity.efuse) + "\n");
  install_library(phone, vendor_libraries / "libatci.so", "vendor/lib");
  install_library(phone, vendor_libraries / "libefuse.so", "vendor/lib");
}

}  // namespace

// Only a simulated phone's /proc has a link into the real one.
bool is_sandbox() {
  std::error_code missing;
  return fs::read_symlink("/proc/self", missing) == "/run/proc/self";
}

Identity default_identity(Chip chip, int serial) {
  const std::string imei = "35209900" + decimal((176148 + serial) % 1000000, 6);
  Identity identity = chip == Chip::kMediaTek ? mediatek_identity(serial) : unisoc_identity(serial);
  identity.chip = chip;
  identity.imei = imei + luhn_digit(imei);
  identity.properties = default_properties(chip);
  return identity;
}

std::string bytes_from_hex(std::string_view hex) {
  std::string bytes;
  for (size_t i = 0; i < hex.size(); i += 2) {
    const std::string_view pair = hex.substr(i, 2);
    unsigned char byte = 0;
    const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
    if (error != std::errc() || end != pair.data() + 2) {
      throw std::invalid_argument("\"" + std::string(hex) + "\" is not pairs of hexadecimal digits");
    }
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

void make(const fs::path& root, const Identity& identity, const fs::path& vendor_libraries) {
  require_name(root);
  fs::create_directories(root);
  const FileTree phone(root);
  claim(phone);
  empty_own_folders(phone);
  make_common(phone, identity);
  const auto make_family = identity.chip == Chip::kMediaTek ? make_mediatek : make_unisoc;
  make_family(phone, identity, vendor_libraries);
  give_to_system(phone);
}

FileTree open(const fs::path& root) {
  require_name(root);
  FileTree phone(root);
  if (!has_marker(phone)) {
    throw std::runtime_error(root.string() + " is no phone (no " + kMarker + "): make one with \"phone make\"");
  }
  return phone;
}

void set_property(const fs::path& root, const std::string& name, const std::string& value) {
  const FileTree phone = open(root);
  PropertyFile(phone).set(name, value);
}

}  // namespace phone

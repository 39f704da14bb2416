// The simulated phone: a folder that looks like a phone's root to the library.
#pragma once

#include <array>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "simulator/file_tree.h"

namespace phone {

enum class Chip { kMediaTek, kUnisoc };

// What distinguishes one phone from another. Each text has the form in which the phone stores it.
struct Identity {
  Chip chip = Chip::kMediaTek;
  std::string rid;      // MediaTek: the bytes of /proc/rid; Unisoc: the text of chip_uid
  std::string imei;     // 15 digits; MediaTek: packed into proinfo, Unisoc: the modem's answer to AT+CGSN
  std::string mac;      // 12 hexadecimal characters; MediaTek: in the WIFI record, Unisoc: wifimac.txt, with colons
  std::string psn;      // 16 characters
  std::string country;  // MediaTek: the first bytes of ANTI_CS (padded to 2048 bytes); Unisoc: finstatus.prop
  int efuse = 1;        // Unisoc: what the efuse library answers
  std::map<std::string, std::string> properties;
};

// The folders that belong to the phone alone. Of /proc, only the files that a phone's maker adds.
inline constexpr std::array kOwnFolders = {"proc", "sys", "dev", "mnt", "vendor", "system", "kelofs"};

// The devices of a phone: links into /run/dev, where a sandbox has the real ones.
inline constexpr std::array kDevices = {"null",  "zero",   "full",   "random", "urandom", "tty",
                                        "stdin", "stdout", "stderr", "fd",     "shm"};

// A complete, consistent phone of the family. |serial|, 0 to 999999, distinguishes phones of a family.
Identity default_identity(Chip chip, int serial = 0);

// Decodes hexadecimal digits. Throws when their number is odd or a character is none.
std::string bytes_from_hex(std::string_view hex);

// Makes |root| exactly this phone: every file that the library may read, the parents of the store directories, and the
// vendor libraries copied from |vendor_libraries|. Whatever else the phone's own folders hold is removed first, so
// |root| must be missing, empty or a phone already, which has a marker file, and "/" only inside the sandbox: a
// mistyped path costs nothing. Run by root, the store folders belong to the user and group "system", as on a phone.
// Throws when a step fails.
void make(const std::filesystem::path& root, const Identity& identity, const std::filesystem::path& vendor_libraries);

// The files of an existing phone. Throws when |root| is none.
FileTree open(const std::filesystem::path& root);

// Whether this process runs inside a simulated phone.
bool is_sandbox();

// Sets one property of an existing phone; an empty value removes it. Throws when that fails.
void set_property(const std::filesystem::path& root, const std::string& name, const std::string& value);

}  // namespace phone

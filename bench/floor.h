// The floors: for each operation, the calls of the crypto library and of the system that it needs, in their order and
// nothing else. A floor searches, clears, copies, compares, formats and logs nothing, because it knows beforehand where
// each text stands and what it says. It returns whether its calls succeeded, so that no floor is low because it fails.
#pragma once

#include <string>

#include "simulator/phone.h"

namespace floors {

// Where the base64 texts of a signed record stand, and the message that its signature covers.
struct SignedRecordLayout {
  size_t certificate_at;
  size_t certificate_len;
  size_t signature_at;
  std::string message;
};

// A signed file, its places on the phone and its content.
struct StoredFile {
  std::string primary_folder, backup_folder, temporary, primary, backup;
  std::string content;
  SignedRecordLayout layout;
};

// The root certificate that the library under test trusts, in PEM.
void set_root_certificate(const std::string& pem);

[[nodiscard]] bool get_rand(size_t len);
[[nodiscard]] bool verify_rand(const char* response, const SignedRecordLayout& layout);
[[nodiscard]] bool get_para(phone::Chip chip);
[[nodiscard]] bool import_aufile(phone::Chip chip, const StoredFile& file);
[[nodiscard]] bool import_para_sign(phone::Chip chip, const StoredFile& file);
// The primary copy is valid and there is a backup.
[[nodiscard]] bool check_au_file(phone::Chip chip, const StoredFile& file);
// The same, and neither copy of |missing| exists.
[[nodiscard]] bool check_para_file(phone::Chip chip, const StoredFile& missing, const StoredFile& file);
// The primary copy has no certificate and is replaced by the valid backup.
[[nodiscard]] bool repair_au_file(phone::Chip chip, const StoredFile& file);
[[nodiscard]] bool get_security_report();

}  // namespace floors

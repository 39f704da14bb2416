// The floors: for each operation the calls of the crypto library and of the system that it cannot do without, in their
// order, written straight down. What the library does between them is left out: nothing is searched, cleared, copied,
// compared, formatted or logged, since where a text stands and what it says is known beforehand. Each floor returns
// whether its calls succeeded, so that none is low because it fails.
#pragma once

#include <string>

#include "simulator/phone.h"

namespace floors {

// A signed record: where its base64 texts stand in it and what its signature covers.
struct SignedText {
  size_t certificate_at;
  size_t certificate_len;
  size_t signature_at;
  std::string message;
};

// A signed file, its places on the phone and its content.
struct StoredFile {
  std::string primary_folder, backup_folder, temporary, primary, backup;
  std::string content;
  SignedText layout;
};

// The root certificate that the library under test trusts, in PEM.
void set_root_certificate(const std::string& pem);

[[nodiscard]] bool get_rand(size_t len);
[[nodiscard]] bool verify_rand(const char* response, const SignedText& layout);
[[nodiscard]] bool get_para(phone::Chip chip);
[[nodiscard]] bool import_aufile(phone::Chip chip, const StoredFile& file);
[[nodiscard]] bool import_para_sign(phone::Chip chip, const StoredFile& file);
// Of a valid primary copy that has a backup.
[[nodiscard]] bool check_au_file(phone::Chip chip, const StoredFile& file);
// The same, and neither copy of |missing| is there.
[[nodiscard]] bool check_para_file(phone::Chip chip, const StoredFile& missing, const StoredFile& file);
// Of a primary copy without a certificate and a valid backup, which takes its place.
[[nodiscard]] bool repair_au_file(phone::Chip chip, const StoredFile& file);
[[nodiscard]] bool get_security_report();

}  // namespace floors

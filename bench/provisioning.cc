#include "bench/provisioning.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "kelchk.h"
#include "tests/support/pki.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using floors::SignedRecordLayout;
using floors::StoredFile;
using phone::Chip;

constexpr unsigned kChallengeLen = 64;  // what a provisioning tool asks for

void require(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("the phone cannot be provisioned: " + what);
}

SignedRecordLayout layout_of(const std::string& record, const std::string& message) {
  const size_t certificate = record.find("factoryCert=") + std::strlen("factoryCert=");
  return {certificate, record.find('&', certificate) - certificate, record.find("sign=") + std::strlen("sign="),
          message};
}

StoredFile make_file(Chip chip, const std::string& name, const std::string& temporary, const std::string& content,
                     const std::string& message) {
  const std::string primary = chip == Chip::kMediaTek ? KELCHK_STORE_MEDIATEK : KELCHK_STORE_UNISOC;
  const std::string backup = KELCHK_STORE_BACKUP;
  fs::create_directories(primary);
  fs::create_directories(backup);
  return {primary, backup, primary + temporary, primary + name, backup + name, content, layout_of(content, message)};
}

std::string sign(const std::string& message) {
  return test::signed_record(test::default_signer(), message);
}

void log_in(Provisioning& made) {
  char answer[KELCHK_CHALLENGE_ANSWER_CAP];
  unsigned len = kChallengeLen;
  require(kelo_get_rand(answer, &len) == 0, "challenge");
  made.challenge = g_rand_buf;
  made.response = sign(made.challenge);
  made.response_layout = layout_of(made.response, made.challenge);
  require(kelo_verify_rand(made.response.c_str(), static_cast<unsigned>(made.response.size())) == 0, "login");
}

void read_record(Provisioning& made) {
  made.request = "featureCode=F01A";
  if (made.chip == Chip::kUnisoc) made.request += "&IMEI=" + phone::default_identity(made.chip).imei;
  char record[KELCHK_RECORD_MAX];
  unsigned len = 0;
  require(kelo_get_para(made.request.c_str(), static_cast<unsigned>(made.request.size()), record, &len) == 0, "record");
  made.record.assign(record, len);
}

void sign_files(Provisioning& made) {
  const std::string content = test::signed_content(made.record);
  made.signer_fields = sign(content);
  made.parameters = make_file(made.chip, KELCHK_PARAMETER_FILE, KELCHK_PARAMETER_TEMPORARY,
                              made.record + "&" + made.signer_fields, content);
  const std::string chip_id = test::value_of(made.record, "cpuID");
  made.authorization =
      make_file(made.chip, KELCHK_AUTHORIZATION_FILE, KELCHK_AUTHORIZATION_TEMPORARY, sign(chip_id), chip_id);
}

}  // namespace

void write(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  require(static_cast<bool>(file << content << std::flush), path);
}

void store(const StoredFile& file) {
  write(file.primary, file.content);
  write(file.backup, file.content);
}

void remove(const StoredFile& file) {
  fs::remove(file.primary);
  fs::remove(file.backup);
}

Provisioning provision(Chip chip) {
  Provisioning made;
  made.chip = chip;
  log_in(made);
  read_record(made);
  sign_files(made);
  std::ifstream pem(TEST_ROOT "/root.pem");
  floors::set_root_certificate({std::istreambuf_iterator<char>(pem), {}});
  return made;
}

}  // namespace bench

#include "bench/operations.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "bench/floor.h"
#include "kelchk.h"
#include "tests/support/pki.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using floors::SignedRecordLayout;
using floors::StoredFile;
using phone::Chip;

constexpr unsigned kChallengeLen = 64;  // what a provisioning tool asks for
constexpr double kLoginGoal = 1.02;
constexpr double kAuthorizationGoal = 1.03;
constexpr double kGoal = 1.10;

void require(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("the phone cannot be provisioned: " + what);
}

unsigned length(const std::string& text) {
  return static_cast<unsigned>(text.size());
}

// |buffer| becomes |text|, as an earlier call of the library left it.
void set_state(char* buffer, const std::string& text) {
  std::memcpy(buffer, text.c_str(), text.size() + 1);
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

std::string sign(const std::string& message) {
  return test::signed_record(test::default_signer(), message);
}

// Everything that a tool and its server exchange with one phone.
struct Provisioning {
  Chip chip = Chip::kMediaTek;
  std::string challenge, response, request, record, signer_fields;
  SignedRecordLayout response_layout = {};
  StoredFile authorization, parameters;
};

void log_in(Provisioning& made) {
  char answer[KELCHK_CHALLENGE_ANSWER_CAP];
  unsigned len = kChallengeLen;
  require(kelo_get_rand(answer, &len) == 0, "challenge");
  made.challenge = g_rand_buf;
  made.response = sign(made.challenge);
  made.response_layout = layout_of(made.response, made.challenge);
  require(kelo_verify_rand(made.response.c_str(), length(made.response)) == 0, "login");
}

void read_record(Provisioning& made) {
  made.request = "featureCode=F01A";
  if (made.chip == Chip::kUnisoc) made.request += "&IMEI=" + phone::default_identity(made.chip).imei;
  char record[KELCHK_RECORD_MAX];
  unsigned len = 0;
  require(kelo_get_para(made.request.c_str(), length(made.request), record, &len) == 0, "record");
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

bool is_stored_file_correct() {
  return kelo_is_para_correct() == 0;
}

Operation make_challenge() {
  return {.name = "kelo_get_rand",
          .library =
              [] {
                char answer[KELCHK_CHALLENGE_ANSWER_CAP];
                unsigned len = kChallengeLen;
                return kelo_get_rand(answer, &len) == 0;
              },
          .floor = [] { return floors::get_rand(kChallengeLen); }};
}

Operation make_login(const Provisioning& p) {
  return {.name = "kelo_verify_rand",
          .goal = kLoginGoal,
          .arrange = [p] { set_state(g_rand_buf, p.challenge); },
          .library = [p] { return kelo_verify_rand(p.response.c_str(), length(p.response)) == 0; },
          .floor = [p] { return floors::verify_rand(p.response.c_str(), p.response_layout); }};
}

Operation make_record(const Provisioning& p) {
  return {.name = "kelo_get_para",
          .goal = kGoal,
          .library =
              [p] {
                char record[KELCHK_RECORD_MAX];
                unsigned len = 0;
                return kelo_get_para(p.request.c_str(), length(p.request), record, &len) == 0;
              },
          .floor = [chip = p.chip] { return floors::get_para(chip); }};
}

Operation make_parameter_import(const Provisioning& p) {
  return {.name = "kelo_import_para_sign",
          .goal = kGoal,
          .arrange = [p] { set_state(g_para_buf, p.record); },
          .library = [p] { return kelo_import_para_sign(p.signer_fields.c_str(), length(p.signer_fields)) == 0; },
          .floor = [p] { return floors::import_para_sign(p.chip, p.parameters); }};
}

Operation make_authorization_import(const Provisioning& p) {
  const StoredFile& file = p.authorization;
  return {.name = "kelo_import_aufile",
          .goal = kGoal,
          .library = [file] { return kelo_import_aufile(file.content.c_str(), length(file.content)) == 0; },
          .floor = [chip = p.chip, file] { return floors::import_aufile(chip, file); }};
}

Operation make_authorization_check(const Provisioning& p) {
  const StoredFile& file = p.authorization;
  return {.name = "kelo_is_para_correct, authorization file",
          .goal = kAuthorizationGoal,
          .arrange = [file] { store(file); },
          .library = is_stored_file_correct,
          .floor = [chip = p.chip, file] { return floors::check_au_file(chip, file); }};
}

Operation make_parameter_check(const Provisioning& p) {
  const auto arrange = [p] {
    remove(p.authorization);
    store(p.parameters);
  };
  return {.name = "kelo_is_para_correct, parameter file",
          .goal = kGoal,
          .arrange = arrange,
          .library = is_stored_file_correct,
          .floor = [p] { return floors::check_para_file(p.chip, p.authorization, p.parameters); }};
}

Operation make_repair(const Provisioning& p) {
  const StoredFile& file = p.authorization;
  return {.name = "kelo_is_para_correct, with a repair",
          .goal = kGoal,
          .arrange = [file] { store(file); },
          .before = [file] { write(file.primary, "damaged"); },
          .library = is_stored_file_correct,
          .floor = [chip = p.chip, file] { return floors::repair_au_file(chip, file); }};
}

Operation make_security_report() {
  return {.name = "kelo_bsp_sec_ctrl_get",
          .library =
              [] {
                char report[KELCHK_SECURITY_REPORT_CAP];
                unsigned len = 0;
                return kelo_bsp_sec_ctrl_get(report, sizeof report, &len) == 0;
              },
          .floor = [] { return floors::get_security_report(); }};
}

}  // namespace

std::vector<Operation> make_operations(Chip chip) {
  const Provisioning p = provision(chip);
  return {make_challenge(),
          make_login(p),
          make_record(p),
          make_parameter_import(p),
          make_authorization_import(p),
          make_authorization_check(p),
          make_parameter_check(p),
          make_repair(p),
          make_security_report()};
}

}  // namespace bench

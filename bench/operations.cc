#include "bench/operations.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "bench/floor.h"
#include "kelchk.h"
#include "tests/support/pki.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using floors::SignedText;
using floors::StoredFile;
using phone::Chip;

constexpr unsigned kChallengeLen = 64;
constexpr double kLoginGoal = 1.02;
constexpr double kAuthorizationGoal = 1.03;
constexpr double kGoal = 1.10;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("the phone cannot be provisioned: ") + what);
}

SignedText layout_of(const std::string& record, const std::string& message) {
  const size_t certificate = record.find("factoryCert=") + std::strlen("factoryCert=");
  return {certificate, record.find('&', certificate) - certificate, record.find("sign=") + std::strlen("sign="),
          message};
}

StoredFile make_file(Chip chip, const std::string& name, const std::string& content, const std::string& message) {
  const std::string primary =
      chip == Chip::kMediaTek ? "/mnt/vendor/persist/startPara/" : "/mnt/vendor/productinfo/startPara/";
  const std::string backup = "/kelofs/startPara/";
  fs::create_directories(primary);
  fs::create_directories(backup);
  return {primary,
          backup,
          primary + name + "_tmp.dat",
          primary + name + ".dat",
          backup + name + ".dat",
          content,
          layout_of(content, message)};
}

void write(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  require(static_cast<bool>(file << content << std::flush), path.c_str());
}

void store(const StoredFile& file) {
  write(file.primary, file.content);
  write(file.backup, file.content);
}

void remove(const StoredFile& file) {
  fs::remove(file.primary);
  fs::remove(file.backup);
}

// Everything that a tool and its server exchange with one phone.
struct Provisioning {
  std::string challenge, response, request, record, signer_fields;
  SignedText response_layout;
  StoredFile authorization, parameters;
};

std::string canonical_content(const std::string& record) {
  std::string content;
  std::istringstream fields(record);
  for (std::string field; std::getline(fields, field, '&');) content += field.substr(field.find('=') + 1);
  return content;
}

std::string chip_id(const std::string& record) {
  const size_t begin = record.find("cpuID=") + std::strlen("cpuID=");
  return record.substr(begin, record.find('&', begin) - begin);
}

Provisioning provision(Chip chip) {
  const auto sign = [](const std::string& message) { return test::signed_record(test::default_signer(), message); };
  Provisioning made;
  char answer[4095];
  unsigned len = kChallengeLen;
  require(kelo_get_rand(answer, &len) == 0, "challenge");
  made.challenge = g_rand_buf;
  made.response = sign(made.challenge);
  made.response_layout = layout_of(made.response, made.challenge);
  require(kelo_verify_rand(made.response.c_str(), static_cast<unsigned>(made.response.size())) == 0, "login");

  made.request = "featureCode=F01A";
  if (chip == Chip::kUnisoc) made.request += "&IMEI=" + phone::default_identity(chip).imei;
  require(kelo_get_para(made.request.c_str(), static_cast<unsigned>(made.request.size()), answer, &len) == 0, "record");
  made.record.assign(answer, len);
  made.signer_fields = sign(canonical_content(made.record));
  made.parameters =
      make_file(chip, "startPara", made.record + "&" + made.signer_fields, canonical_content(made.record));
  made.authorization = make_file(chip, "auFile", sign(chip_id(made.record)), chip_id(made.record));
  std::ifstream pem(TEST_ROOT "/root.pem");
  floors::set_root_certificate({std::istreambuf_iterator<char>(pem), {}});
  return made;
}

}  // namespace

std::vector<Operation> make_operations(Chip chip) {
  const Provisioning p = provision(chip);
  const auto length = [](const std::string& text) { return static_cast<unsigned>(text.size()); };
  const auto is_correct = [] { return kelo_is_para_correct() == 0; };
  const StoredFile& au = p.authorization;
  const StoredFile& para = p.parameters;

  std::vector<Operation> operations;
  operations.push_back({.name = "kelo_get_rand",
                        .library =
                            [] {
                              char answer[264];
                              unsigned len = kChallengeLen;
                              return kelo_get_rand(answer, &len) == 0;
                            },
                        .floor = [] { return floors::get_rand(kChallengeLen); }});
  operations.push_back(
      {.name = "kelo_verify_rand",
       .goal = kLoginGoal,
       .arrange = [p] { std::memcpy(g_rand_buf, p.challenge.c_str(), p.challenge.size() + 1); },
       .library = [p, length] { return kelo_verify_rand(p.response.c_str(), length(p.response)) == 0; },
       .floor = [p] { return floors::verify_rand(p.response.c_str(), p.response_layout); }});
  operations.push_back({.name = "kelo_get_para",
                        .goal = kGoal,
                        .library =
                            [p, length] {
                              char record[4095];
                              unsigned len = 0;
                              return kelo_get_para(p.request.c_str(), length(p.request), record, &len) == 0;
                            },
                        .floor = [chip] { return floors::get_para(chip); }});
  operations.push_back(
      {.name = "kelo_import_para_sign",
       .goal = kGoal,
       .arrange = [p] { std::memcpy(g_para_buf, p.record.c_str(), p.record.size() + 1); },
       .library = [p, length] { return kelo_import_para_sign(p.signer_fields.c_str(), length(p.signer_fields)) == 0; },
       .floor = [chip, para] { return floors::import_para_sign(chip, para); }});
  operations.push_back(
      {.name = "kelo_import_aufile",
       .goal = kGoal,
       .library = [au, length] { return kelo_import_aufile(au.content.c_str(), length(au.content)) == 0; },
       .floor = [chip, au] { return floors::import_aufile(chip, au); }});
  operations.push_back({.name = "kelo_is_para_correct, authorization file",
                        .goal = kAuthorizationGoal,
                        .arrange = [au] { store(au); },
                        .library = is_correct,
                        .floor = [chip, au] { return floors::check_au_file(chip, au); }});
  operations.push_back({.name = "kelo_is_para_correct, parameter file",
                        .goal = kGoal,
                        .arrange =
                            [au, para] {
                              remove(au);
                              store(para);
                            },
                        .library = is_correct,
                        .floor = [chip, au, para] { return floors::check_para_file(chip, au, para); }});
  operations.push_back({.name = "kelo_is_para_correct, with a repair",
                        .goal = kGoal,
                        .arrange = [au] { store(au); },
                        .before = [au] { write(au.primary, "damaged"); },
                        .library = is_correct,
                        .floor = [chip, au] { return floors::repair_au_file(chip, au); }});
  operations.push_back({.name = "kelo_bsp_sec_ctrl_get",
                        .library =
                            [] {
                              char report[2863];
                              unsigned len = 0;
                              return kelo_bsp_sec_ctrl_get(report, sizeof report, &len) == 0;
                            },
                        .floor = [] { return floors::get_security_report(); }});
  return operations;
}

}  // namespace bench

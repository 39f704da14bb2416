#include "bench/operations.h"

#include <cstring>

#include "bench/floor.h"
#include "kelchk.h"

namespace bench {
namespace {

using floors::StoredFile;

constexpr double kLoginGoal = 1.02;
constexpr double kAuthorizationGoal = 1.03;
constexpr double kGoal = 1.10;

unsigned length(const std::string& text) {
  return static_cast<unsigned>(text.size());
}

// |buffer| becomes |text|, as an earlier call of the library left it.
void set_state(char* buffer, const std::string& text) {
  std::memcpy(buffer, text.c_str(), text.size() + 1);
}

bool is_stored_file_correct() {
  return kelo_is_para_correct() == 0;
}

Operation make_challenge(const Provisioning& p) {
  const unsigned challenge_len = length(p.challenge);
  return {.name = "kelo_get_rand",
          .library =
              [challenge_len] {
                char answer[KELCHK_CHALLENGE_ANSWER_CAP];
                unsigned len = challenge_len;
                return kelo_get_rand(answer, &len) == 0;
              },
          .floor = [challenge_len] { return floors::get_rand(challenge_len); }};
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

std::vector<Operation> make_operations(const Provisioning& p) {
  return {make_challenge(p),
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

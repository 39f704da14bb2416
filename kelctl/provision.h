// "kelctl provision": the whole pass between a phone's session and a signer's.
#pragma once

#include <string>
#include <vector>

namespace kelctl {

struct ProvisionRequest {
  std::vector<std::string> phone_command;
  std::vector<std::string> signer_command;
  std::string feature_code;
  std::string imei;     // of a Unisoc phone; may be empty
  int timeout = 60;     // seconds, for each answer
  std::string journal;  // path; empty: none is kept
  bool as_json = false;
};

// Challenge, login, record and import. Shows each step, or the journal's object alone, and returns the exit code.
// Throws common::Error when the journal or the output cannot be written.
int provision(const ProvisionRequest& request);

}  // namespace kelctl

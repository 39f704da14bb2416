// The two sessions of a provisioning pass, the phone's and the signer's: one request and one answer a line.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "common/process.h"
#include "common/signing_policy.h"

namespace kelctl {

// A session that works refuses what it was asked.
struct Declined : std::runtime_error {
  Declined(const std::string& what, std::vector<std::string> why) : runtime_error(what), reasons(std::move(why)) {}
  std::vector<std::string> reasons;  // as they came
};

class Session {
 public:
  // |name| is how messages call it. Throws common::SessionError when |command| cannot be started.
  Session(std::string name, const std::vector<std::string>& command, std::chrono::seconds timeout)
      : name_(std::move(name)), timeout_(timeout), process_(name_, command) {}

  // Returns the text of the answer. Throws Declined when it is no, common::SessionError when none comes in time or what
  // comes is none.
  std::string ask(std::string_view verb, std::string_view text);

 private:
  std::string name_;
  std::chrono::seconds timeout_;
  common::Process process_;
};

// Has |signer| sign |text| and returns the signer record. What the policy rejects is not passed on: Declined. Throws
// common::SessionError when the answer is no signature over |text| with the key of the certificate in it.
std::string ask_signature(Session& signer, common::TextKind kind, const std::string& text);

}  // namespace kelctl

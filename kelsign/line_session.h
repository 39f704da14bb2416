// The session of a factory host: signatures over requests that come line by line, and nothing else.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "common/journal.h"
#include "common/line_protocol.h"
#include "kelsign/signer.h"

namespace kelsign {

// What a session signs, beyond what the policy allows.
struct SessionLimits {
  std::vector<std::string> feature_codes;  // of a record
  bool allows_chip_ids = false;
  std::string chip_ids_path;  // the list of the chip ids that are signed, one a line; empty for every one
};

class LineSession {
 public:
  // Throws common::Error when the list of chip ids cannot be read.
  LineSession(const Signer& signer, SessionLimits limits, common::Journal journal);

  // The answer line to |request|, which is in the journal by then. Throws common::Refusal when it is not signed.
  [[nodiscard]] std::string answer(const common::Request& request) const;

 private:
  [[nodiscard]] std::string message_of(const common::Request& request) const;
  void record(const common::Request& request, std::string_view outcome, const std::string& reason = "") const;

  const Signer& signer_;
  SessionLimits limits_;
  std::set<std::string, std::less<>> chip_ids_;
  common::Journal journal_;
};

}  // namespace kelsign

// The session of a factory host: signatures over requests that come line by line, and nothing else.
#pragma once

#include <string>
#include <vector>

#include "kelsign/signer.h"

namespace kelsign {

// What a session signs, beyond what the policy allows.
struct SessionOptions {
  std::vector<std::string> feature_codes;  // of a record
  bool allows_chip_ids = false;
  std::string chip_ids_path;  // the list of the chip ids that are signed, one a line; empty for every one
  std::string journal_path;   // empty keeps no journal
};

// Answers requests on standard input until it ends. Each is in the journal before its answer. Throws common::Error when
// a file cannot be read or written or the key cannot sign.
void serve(const Signer& signer, const SessionOptions& options);

}  // namespace kelsign

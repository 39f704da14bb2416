// Takes a stored file, a signer record or a device parameter record apart, away from any phone.
#pragma once

#include <optional>
#include <string>

namespace kelctl {

struct ExplainRequest {
  std::string path;                    // "-" is standard input
  std::string root_path;               // empty: the chain is not checked
  std::optional<std::string> message;  // what is signed; none: the canonical content of the record in the file
  bool as_json = false;
};

// Shows the file's parts and, in plain words, whether what the library would accept of it holds and why not. Returns
// the exit code. Throws Error when a file cannot be read.
int explain(const ExplainRequest& request);

}  // namespace kelctl

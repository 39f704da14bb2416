// "kelctl explain": examines files and shows what it finds.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kelctl {

struct ExplainRequest {
  std::vector<std::string> paths;      // "-" is standard input
  std::string root_path;               // empty: chains are not checked
  std::optional<std::string> message;  // what was signed; none: the canonical content of the record in the file
  bool as_json = false;                // one object a line, one line a file
};

// Returns the exit code: of several files, the gravest. Throws common::Error when the root cannot be read or the
// result cannot be written.
int explain(const ExplainRequest& request);

}  // namespace kelctl

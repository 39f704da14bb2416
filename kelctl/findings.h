// What "explain" is asked about a file, and what it finds out. Nothing of the file is executed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/outcome.h"
#include "kelctl/certificate.h"

namespace kelctl {

struct Question {
  bssl::UniquePtr<X509> root;          // null: the chain is not checked
  std::optional<std::string> message;  // what was signed; none: the canonical content of the record in the file
};

enum class State {
  kHolds,
  kFails,
  kOpen,   // not checked, because something was not given
  kWarns,  // a phone accepts it, but something is wrong with it
};

struct Check {
  const char* name;
  State state;
  std::string words;
};

// Texts are as they were found: who shows them escapes them.
struct Findings {
  std::string path;
  std::string unreadable;  // why; the rest is then empty
  std::string kind;
  std::string extent;      // "288 characters"
  bool is_longer = false;  // than what a phone reads of it
  Fields fields;
  std::optional<std::string> content;  // canonical content
  std::vector<Fields> certificates;
  std::vector<Check> checks;

  void add(const char* name, State state, std::string words) { checks.push_back({name, state, std::move(words)}); }
  // Adds a check that fails with |fault|, or holds with |words| when there is none.
  void judge(const char* name, const std::string& fault, const std::string& words) {
    add(name, fault.empty() ? State::kHolds : State::kFails, fault.empty() ? words : fault);
  }
};

struct Verdict {
  const char* words;
  common::ExitCode code;
};

Verdict verdict_of(const Findings& findings);

// Examines a stored file, a signer record, a device parameter record, certificates in PEM or the library
// itself.
Findings examine(std::string_view bytes, const Question& question);

// For people, when the file could be read, and for programs: one JSON object on a line. Whatever comes from the file is
// escaped.
std::string as_text(const Findings& file);
std::string as_json(const Findings& file);

// A line for each file: its verdict and its kind.
std::string as_table(const std::vector<Findings>& files);

}  // namespace kelctl

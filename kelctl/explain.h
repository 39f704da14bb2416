// "kelctl explain": examines files and shows what it finds. Nothing of a file is executed.
#pragma once

#include <openssl/x509.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelctl {

struct Question {
  bssl::UniquePtr<X509> root;          // null: the chain is not checked
  std::optional<std::string> message;  // what was signed; none: the canonical content of the record in the file
};

// In order of gravity. The gravest of a file's checks is its verdict.
enum class State {
  kHolds,
  kWarns,  // a phone accepts it, but something is wrong with it
  kOpen,   // not checked, because something is missing
  kFails,
  kUnreadable,
};

struct Check {
  const char* name;
  State state;
  std::string words;
};

using Fields = std::vector<std::pair<std::string, std::string>>;  // names and values

// Texts are as they were found: who shows them escapes them.
struct Findings {
  std::string path;
  std::string kind;  // of file
  size_t size = 0;   // bytes
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

// Examines a stored file, a signer record, a device parameter record, certificates in PEM or the library itself.
Findings examine(std::string_view bytes, const Question& question);

// For people, for programs as one JSON object on a line, and a table of verdicts. Whatever comes from a file is
// escaped.
std::string as_text(const Findings& file);
std::string as_json(const Findings& file);
std::string as_table(const std::vector<Findings>& files);

// Examines and shows the files |paths|, "-" for standard input. Returns the exit code: of several files, the gravest.
// Throws common::Error when the result cannot be written.
int explain(const std::vector<std::string>& paths, const Question& question, bool wants_json);

// Add what they find in a stored file, a signer record or a device parameter record; and in certificates in PEM or the
// library's ELF file. False, and no findings, when |bytes| are none of these.
bool check_record(std::string_view bytes, const Question& question, Findings& findings);
bool check_certificates(std::string_view bytes, const Question& question, Findings& findings);

// Describes |signer|, and judges as the library does whether |root| issued it. Open when either is null.
void check_chain(X509* root, X509* signer, Findings& findings);

// The certificates in PEM in |bytes|, whatever surrounds them; null where a block is damaged or cut.
std::vector<bssl::UniquePtr<X509>> find_certificates(std::string_view bytes);

// The one certificate in the PEM file |path|. Throws common::Error, naming it, when there is none or more than one.
bssl::UniquePtr<X509> load_certificate(const std::string& path);

// Why |answer| is not exactly a signer record whose signature covers |message|; empty when it is.
std::string answer_fault(std::string_view answer, const std::string& message);

}  // namespace kelctl

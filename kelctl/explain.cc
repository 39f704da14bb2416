#include "kelctl/explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "common/escape.h"
#include "common/file.h"
#include "common/outcome.h"

namespace kelctl {
namespace {

using common::escape;
using Json = nlohmann::ordered_json;

// Above every library; of records a phone reads far less.
constexpr size_t kMaxFileLen = 16 << 20;

struct Meaning {
  const char* word;     // of a check
  const char* verdict;  // on a file with no graver check
  common::ExitCode code;
};

// In the order of State.
constexpr Meaning kMeanings[] = {{"holds", "holds", common::kYes},
                                 {"warns", "holds", common::kYes},
                                 {"open", "undecided", common::kUndecided},
                                 {"fails", "does not hold", common::kNo},
                                 {"unreadable", "unreadable", common::kUnusable}};

const Meaning& meaning_of(State state) {
  return kMeanings[static_cast<size_t>(state)];
}

State verdict_of(const Findings& file) {
  State gravest = State::kHolds;
  for (const Check& check : file.checks) gravest = std::max(gravest, check.state);
  return gravest;
}

std::string painted(const std::string& words, State state) {
  const bool is_good = state == State::kHolds;
  return is_good || state >= State::kFails ? common::painted(words, is_good) : words;
}

std::string lines_of(const Fields& fields) {
  std::string lines;
  for (const auto& [name, value] : fields) {
    const bool is_long = name == "factoryCert" || name == "sign";
    lines += fmt::format("  {:<12} {}\n", escape(name),
                         is_long ? fmt::format("{} characters", value.size()) : escape(value));
  }
  return lines;
}

Findings examine_file(const std::string& path, const Question& question) {
  Findings file;
  try {
    file = examine(common::read_file(path, kMaxFileLen), question);
  } catch (const common::Error& error) {
    file.add("file", State::kUnreadable, error.what());
    common::complain("kelctl", error.what());
  }
  file.path = path;
  return file;
}

}  // namespace

Findings examine(std::string_view bytes, const Question& question) {
  Findings file;
  file.size = bytes.size();
  if (check_record(bytes, question, file) || check_certificates(bytes, question, file)) return file;
  file.kind = "unknown";
  file.add("file", State::kFails, "no record, certificate or library");
  return file;
}

std::string as_text(const Findings& file) {
  std::string text = fmt::format("{}: {}, {} bytes\n", escape(file.path), file.kind, file.size);
  if (!file.fields.empty()) text += "fields\n" + lines_of(file.fields);
  if (file.content) {
    text += fmt::format("canonical content, {} characters\n  {}\n", file.content->size(), escape(*file.content));
  }
  for (const Fields& facts : file.certificates) text += "certificate\n" + lines_of(facts);
  text += "checks\n";
  for (const auto& [name, state, words] : file.checks) {
    const std::string word = fmt::format("{:<5}", meaning_of(state).word);  // a colour's bytes take no room
    text += fmt::format("  {} {:<11} {}\n", painted(word, state), name, escape(words));
  }
  const State verdict = verdict_of(file);
  return text + fmt::format("verdict: {}\n", painted(meaning_of(verdict).verdict, verdict));
}

std::string as_json(const Findings& file) {
  Json json = {{"file", escape(file.path)}, {"verdict", meaning_of(verdict_of(file)).verdict},
               {"kind", file.kind},         {"size", file.size},
               {"fields", Json::array()},   {"certificates", Json::array()},
               {"checks", Json::array()}};
  for (const auto& [key, value] : file.fields) {
    json["fields"].push_back({{"key", escape(key)}, {"value", escape(value)}});
  }
  if (file.content) json["content"] = escape(*file.content);
  for (const Fields& facts : file.certificates) {
    Json& certificate = json["certificates"].emplace_back();
    for (const auto& [name, value] : facts) certificate[name] = escape(value);
  }
  for (const auto& [name, state, words] : file.checks) {
    json["checks"].push_back({{"name", name}, {"result", meaning_of(state).word}, {"words", escape(words)}});
  }
  return json.dump() + "\n";
}

std::string as_table(const std::vector<Findings>& files) {
  std::string table = "files\n";
  for (const Findings& file : files) {
    const State verdict = verdict_of(file);
    const std::string words = fmt::format("{:<13}", meaning_of(verdict).verdict);
    table += fmt::format("  {}  {}{}{}\n", painted(words, verdict), escape(file.path), file.kind.empty() ? "" : ": ",
                         file.kind);
  }
  return table;
}

int explain(const std::vector<std::string>& paths, const Question& question, bool wants_json) {
  std::vector<Findings> files;
  State gravest = State::kHolds;
  for (const std::string& path : paths) {
    const Findings& file = files.emplace_back(examine_file(path, question));
    gravest = std::max(gravest, verdict_of(file));
    if (wants_json) {
      common::print(as_json(file));
    } else if (verdict_of(file) != State::kUnreadable) {
      common::print(as_text(file));
    }
  }
  if (files.size() > 1 && !wants_json) common::print(as_table(files));
  return meaning_of(gravest).code;
}

}  // namespace kelctl

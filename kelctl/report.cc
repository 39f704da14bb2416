#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "common/escape.h"
#include "common/output.h"
#include "kelchk.h"
#include "kelctl/findings.h"

namespace kelctl {
namespace {

using common::escape;
using Json = nlohmann::ordered_json;

const char* word_for(State state) {
  constexpr const char* kWords[] = {"holds", "fails", "open", "warns"};
  return kWords[static_cast<size_t>(state)];
}

std::string painted(const std::string& words, bool is_good, bool is_bad) {
  return is_good ? common::good(words) : is_bad ? common::bad(words) : words;
}

std::string line_of(const Check& check) {
  const std::string word = fmt::format("{:<5}", word_for(check.state));
  return fmt::format("  {} {:<11} {}\n", painted(word, check.state == State::kHolds, check.state == State::kFails),
                     check.name, escape(check.words));
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

// Padded to |width| before it gets its colour, whose bytes take no room.
std::string verdict_words(const Findings& file, size_t width = 0) {
  const Verdict verdict = verdict_of(file);
  const bool is_bad = verdict.code == common::kNo || verdict.code == common::kUnusable;
  return painted(fmt::format("{:<{}}", verdict.words, width), verdict.code == common::kYes, is_bad);
}

Json json_of(const Fields& fields) {
  Json json = Json::object();
  for (const auto& [name, value] : fields) json[name] = escape(value);
  return json;
}

}  // namespace

std::string as_text(const Findings& file) {
  std::string text = fmt::format("{}: {}, {}\n", escape(file.path), file.kind, file.extent);
  if (file.is_longer) {
    text += fmt::format("  The file is longer; a phone reads no more than {} bytes of it.\n", KELCHK_SIGNED_FILE_MAX);
  }
  if (!file.fields.empty()) text += "fields\n" + lines_of(file.fields);
  if (file.content) {
    text += fmt::format("canonical content, {} characters\n  {}\n", file.content->size(), escape(*file.content));
  }
  for (const Fields& facts : file.certificates) text += "certificate\n" + lines_of(facts);
  text += "checks\n";
  for (const Check& check : file.checks) text += line_of(check);
  return text + fmt::format("verdict: {}\n", verdict_words(file));
}

std::string as_json(const Findings& file) {
  Json json = {{"file", escape(file.path)}, {"verdict", verdict_of(file).words}};
  if (!file.unreadable.empty()) {
    json["error"] = escape(file.unreadable);
    return json.dump() + "\n";
  }
  json.update({{"kind", file.kind}, {"extent", file.extent}, {"longer", file.is_longer}});
  for (const char* const list : {"fields", "certificates", "checks"}) json[list] = Json::array();
  for (const auto& [key, value] : file.fields)
    json["fields"].push_back({{"key", escape(key)}, {"value", escape(value)}});
  if (file.content) json["content"] = escape(*file.content);
  for (const Fields& facts : file.certificates) json["certificates"].push_back(json_of(facts));
  for (const Check& check : file.checks) {
    json["checks"].push_back({{"name", check.name}, {"result", word_for(check.state)}, {"words", escape(check.words)}});
  }
  return json.dump() + "\n";
}

std::string as_table(const std::vector<Findings>& files) {
  constexpr size_t kWidth = 13;  // of the longest verdict
  std::string table = "files\n";
  for (const Findings& file : files) {
    table += fmt::format("  {}  {}{}{}\n", verdict_words(file, kWidth), escape(file.path),
                         file.kind.empty() ? "" : ": ", file.kind);
  }
  return table;
}

}  // namespace kelctl

#include "kelphone/check.h"

#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "common/outcome.h"
#include "kelchk.h"
#include "kelphone/lock.h"

namespace kelphone {
namespace {

constexpr File kFiles[] = {kAuthorization, kParameters};
constexpr Copy kCopies[] = {kPrimary, kBackup};
constexpr const char* kFileNames[] = {"authorization file", "parameter file"};

struct StoredCopy {
  Look look;                   // as it was before the check
  std::vector<Message> about;  // what the library said about it; of the valid one, with its repair of the other
  bool has_failed = false;
};

using Copies = StoredCopy[2][2];  // by file and copy

// The library looks at one copy after the other. A failing one ends with a "_path err", the first file with its "ret=".
void follow_messages(Copies& copies) {
  File file = kAuthorization;
  Copy copy = kPrimary;
  for (const Message& message : messages()) {
    const bool ends_file = message.text.starts_with("check_au_file_path ret=");
    const bool has_failed = message.text.starts_with("check_au_file_path ret=-1") ||
                            message.text.starts_with("check_au_file_path err") ||
                            message.text.starts_with("check_para_file_path err");
    copies[file][copy].about.push_back(message);
    copies[file][copy].has_failed = copies[file][copy].has_failed || has_failed;
    if (ends_file) file = kParameters;
    if (ends_file || has_failed) copy = ends_file ? kPrimary : kBackup;
  }
}

std::string repair_error(const std::vector<Message>& messages) {
  constexpr std::string_view kDestination = "cannot open destination file=";
  for (const Message& message : messages) {
    if (message.text == "write error") return "it could not be written completely";
    if (!message.text.starts_with(kDestination)) continue;
    int error = 0;
    std::from_chars(message.text.data() + kDestination.size(), message.text.data() + message.text.size(), error);
    return std::strerror(error);
  }
  return "it still differs";
}

class Report {
 public:
  explicit Report(const Copies& copies) : copies_(copies) {}

  Verdict valid() {
    const File file = copies_[kAuthorization][kBackup].has_failed ? kParameters : kAuthorization;
    const Copy copy = copies_[file][kPrimary].has_failed ? kBackup : kPrimary;
    verdict_.is_valid = true;
    verdict_.words = {std::string(kFileNames[file]) + ": valid, from the " + kCopyNames[copy] + other_copy(file, copy)};
    add_failed_copies();
    verdict_.is_decided = true;
    return verdict_;
  }

  Verdict not_valid() {
    for (const Copy copy : kCopies) {
      const std::string trouble = store_trouble(copy);
      if (trouble.empty()) continue;
      verdict_.is_decided = false;
      verdict_.words.push_back(std::string("the ") + kCopyNames[copy] + " store cannot be used: " + trouble);
    }
    add_failed_copies();
    if (verdict_.words.empty()) verdict_.words = {"this phone was never provisioned"};
    return verdict_;
  }

 private:
  // What became of the other copy than the valid one.
  [[nodiscard]] std::string other_copy(File file, Copy copy) const {
    const Copy other = copy == kPrimary ? kBackup : kPrimary;
    const Look& before = copies_[file][other].look;
    const bool is_same = look_at(file, other).content == look_at(file, copy).content;
    const std::string words = std::string("; the ") + kCopyNames[other];
    if (copy == kPrimary && !before.is_missing) {
      if (!before.error.empty()) return words + " cannot be read: " + before.error;
      return is_same ? "" : words + " differs from it";
    }
    if (is_same) return words + (before.is_missing ? " was missing and was made again" : " was repaired");
    return words + " could not be repaired: " + repair_error(copies_[file][copy].about);
  }

  // A copy that is only missing counts where the other one was there and failed.
  void add_failed_copies() {
    for (const File file : kFiles) {
      const auto& [primary, backup] = copies_[file];
      const bool is_other_missing = verdict_.is_valid || (primary.look.is_missing && backup.look.is_missing);
      for (const Copy copy : kCopies) {
        const StoredCopy& stored = copies_[file][copy];
        if (stored.has_failed && !(stored.look.is_missing && is_other_missing)) add_copy(file, copy);
      }
    }
  }

  void add_copy(File file, Copy copy) {
    const Reason reason = explain(copies_[file][copy].about, file, copies_[file][copy].look);
    verdict_.is_decided = verdict_.is_decided && reason.is_decided;
    if (verdict_.mismatch.field.empty()) verdict_.mismatch = reason;
    const std::string name = kFileNames[file];
    std::string line = name + ", " + kCopyNames[copy] + ": " + reason.words;
    if (copy == kBackup && !verdict_.words.empty() && verdict_.words.back() == name + ", primary: " + reason.words) {
      line = name + ": " + reason.words;
      verdict_.words.pop_back();
    }
    verdict_.words.push_back(line);
  }

  const Copies& copies_;
  Verdict verdict_;
};

}  // namespace

Verdict check_stored_files(unsigned wait) {
  std::string unlocked;
  std::optional<Lock> lock;
  try {
    lock.emplace(wait);
  } catch (const common::Error& error) {
    unlocked = error.what();
  }
  Copies copies;
  for (const File file : kFiles) {
    for (const Copy copy : kCopies) copies[file][copy].look = look_at(file, copy);
  }
  begin_operation();
  const bool is_valid = kelo_is_para_correct() == 0;
  follow_messages(copies);
  Verdict verdict = is_valid ? Report(copies).valid() : Report(copies).not_valid();
  verdict.unlocked = unlocked;
  return verdict;
}

}  // namespace kelphone

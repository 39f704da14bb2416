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

using Looks = Look[2][2];  // by file and copy

void look_at_all(Looks& looks) {
  for (const File file : kFiles) {
    for (const Copy copy : kCopies) looks[file][copy] = look_at(file, copy);
  }
}

// What the library said about each copy that it looked at, in its order: a failing copy ends with a "_path err".
struct Course {
  std::vector<Message> about[2][2];
  bool has_failed[2][2] = {};
};

Course follow(const std::vector<Message>& all) {
  Course course;
  File file = kAuthorization;
  Copy copy = kPrimary;
  for (const Message& message : all) {
    const bool ends_authorization = message.text.starts_with("check_au_file_path ret=");
    const bool ends_copy = message.text.find("_file_path err ") != std::string::npos;
    if (!ends_authorization && !ends_copy) course.about[file][copy].push_back(message);
    if (!ends_authorization && !ends_copy) continue;
    course.has_failed[file][copy] = ends_copy || !message.text.starts_with("check_au_file_path ret=0");
    file = ends_authorization ? kParameters : file;
    copy = ends_authorization ? kPrimary : kBackup;
  }
  return course;
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
  Report(const Looks& before, const Course& course) : before_(before), course_(course) {}

  Verdict valid() {
    const File file = course_.has_failed[kAuthorization][kBackup] ? kParameters : kAuthorization;
    const Copy copy = course_.has_failed[file][kPrimary] ? kBackup : kPrimary;
    verdict_.is_valid = true;
    verdict_.words = {std::string(kFileNames[file]) + ": valid, from the " + kCopyNames[copy] + other_copy(file, copy)};
    add_failed_copies();
    verdict_.is_decided = true;
    return verdict_;
  }

  Verdict not_valid() {
    for (const Copy copy : kCopies) add_store(copy);
    add_failed_copies();
    if (verdict_.words.empty()) verdict_.words = {"this phone was never provisioned"};
    return verdict_;
  }

 private:
  // What became of the other copy than the valid one.
  std::string other_copy(File file, Copy copy) const {
    const Copy other = copy == kPrimary ? kBackup : kPrimary;
    const Look& before = before_[file][other];
    const bool was_repaired = look_at(file, other).is_same_as(look_at(file, copy));
    if (copy == kPrimary && before.is_same_as(before_[file][copy])) return "";
    const std::string words = std::string("; the ") + kCopyNames[other];
    if (copy == kPrimary && !before.error.empty()) return words + " cannot be read: " + before.error;
    if (copy == kPrimary && !before.is_missing) return words + " differs from it";
    if (was_repaired) return words + (before.is_missing ? " was missing and was made again" : " was repaired");
    return words + " could not be repaired: " + repair_error(course_.about[file][copy]);
  }

  void add_store(Copy copy) {
    const std::string trouble = store_trouble(copy);
    if (trouble.empty()) return;
    is_unusable_[copy] = true;
    verdict_.is_decided = false;
    verdict_.words.push_back(std::string("the ") + kCopyNames[copy] + " store cannot be used: " + trouble);
  }

  // A file of which there is no copy at all need not be mentioned.
  void add_failed_copies() {
    for (const File file : kFiles) {
      if (before_[file][kPrimary].is_missing && before_[file][kBackup].is_missing) continue;
      for (const Copy copy : kCopies) {
        if (course_.has_failed[file][copy] && !is_unusable_[copy]) add_copy(file, copy);
      }
    }
  }

  void add_copy(File file, Copy copy) {
    const Reason reason = explain(course_.about[file][copy], file, before_[file][copy]);
    verdict_.is_decided = verdict_.is_decided && reason.is_decided;
    if (verdict_.mismatch.field.empty()) verdict_.mismatch = reason;
    const std::string name = kFileNames[file];
    const bool is_repeated = copy == kBackup && verdict_.words.back() == name + ", primary: " + reason.words;
    if (is_repeated) {
      verdict_.words.back() = name + ": " + reason.words;
    } else {
      verdict_.words.push_back(name + ", " + kCopyNames[copy] + ": " + reason.words);
    }
  }

  const Looks& before_;
  const Course& course_;
  bool is_unusable_[2] = {};
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
  Looks before;
  look_at_all(before);
  begin_operation();
  const bool is_valid = kelo_is_para_correct() == 0;
  const Course course = follow(messages());
  Report report(before, course);
  Verdict verdict = is_valid ? report.valid() : report.not_valid();
  verdict.unlocked = unlocked;
  return verdict;
}

}  // namespace kelphone

// The check of the stored files and its two commands.
#include "kelphone/check.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>
#include <thread>

#include "common/escape.h"
#include "common/outcome.h"
#include "kelchk.h"
#include "kelphone/commands.h"
#include "kelphone/lock.h"

namespace kelphone {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kVerdictProperty[] = "ro.vendor.kelchk.verdict";
constexpr const char* kFileNames[] = {"authorization file", "parameter file"};
constexpr const char* kCopyNames[] = {"primary", "backup"};

struct Verdict {
  bool is_valid = false;
  bool is_decided = true;
  Lines words = {};  // what decided
};

struct StoredCopy {
  Look look;    // as it was before the check
  Lines about;  // what the library said about it; of the valid one, with its repair of the other
  bool has_failed = false;
};

using StoredFiles = StoredCopy[2][2];  // by file and copy

Copy other_than(Copy copy) {
  return copy == kPrimary ? kBackup : kPrimary;
}

// The library looks at one copy after the other. A failing one ends with a "_path err", the first file with its "ret=".
void follow_messages(StoredFiles& files) {
  File file = kAuthorization;
  Copy copy = kPrimary;
  for (const std::string& message : messages().all) {
    const bool ends_file = message.starts_with("check_au_file_path ret=");
    const bool has_failed = message.starts_with("check_au_file_path ret=-1") ||
                            message.starts_with("check_au_file_path err") ||
                            message.starts_with("check_para_file_path err");
    StoredCopy& stored = files[file][copy];
    stored.about.push_back(message);
    stored.has_failed = stored.has_failed || has_failed;
    if (ends_file) file = kParameters;
    if (ends_file || has_failed) copy = ends_file ? kPrimary : kBackup;
  }
}

std::string repair_error(const Lines& messages) {
  const std::string error = rest_of(messages, "cannot open destination file=");
  return error.empty() ? "it could not be written completely" : std::strerror(std::stoi(error));
}

// What became of the other copy than the valid one.
std::string other_copy(const StoredFiles& files, File file, Copy copy) {
  const Copy other = other_than(copy);
  const Look& before = files[file][other].look;
  const bool is_same = look_at(file, other).content == look_at(file, copy).content;
  const std::string name = std::string("; the ") + kCopyNames[other];
  const bool is_repaired = copy == kBackup || before.is_missing;  // the library looks no further
  if (!is_repaired && !before.error.empty()) return name + " cannot be read: " + before.error;
  if (!is_repaired) return is_same ? "" : name + " differs from it";
  if (!is_same) return name + " could not be repaired: " + repair_error(files[file][copy].about);
  return name + (before.is_missing ? " was missing and was made again" : " was repaired");
}

std::string valid_words(const StoredFiles& files) {
  const File file = files[kAuthorization][kBackup].has_failed ? kParameters : kAuthorization;
  const Copy copy = files[file][kPrimary].has_failed ? kBackup : kPrimary;
  return std::string(kFileNames[file]) + ": valid, from the " + kCopyNames[copy] + other_copy(files, file, copy);
}

void add_store_troubles(Verdict& verdict) {
  for (const Copy copy : kCopies) {
    const std::string trouble = store_trouble(copy);
    if (trouble.empty()) continue;
    verdict.is_decided = false;
    verdict.words.push_back(std::string("the ") + kCopyNames[copy] + " store cannot be used: " + trouble);
  }
}

// A copy that is only missing counts where the other one was there and failed.
void add_failed_copies(const StoredFiles& files, File file, Verdict& verdict) {
  std::string words[2];
  for (const Copy copy : kCopies) {
    const StoredCopy& stored = files[file][copy];
    const bool is_other_missing = verdict.is_valid || files[file][other_than(copy)].look.is_missing;
    if (!stored.has_failed || (stored.look.is_missing && is_other_missing)) continue;
    const Reason reason = explain(stored.about, file, stored.look);
    verdict.is_decided = verdict.is_decided && reason.is_decided;
    words[copy] = reason.words;
  }
  const std::string name = kFileNames[file];
  if (words[kPrimary] == words[kBackup]) {
    if (!words[kPrimary].empty()) verdict.words.push_back(name + ": " + words[kPrimary]);
    return;
  }
  for (const Copy copy : kCopies) {
    if (!words[copy].empty()) verdict.words.push_back(name + ", " + kCopyNames[copy] + ": " + words[copy]);
  }
}

Verdict verdict_on(const StoredFiles& files, bool is_valid) {
  Verdict verdict = {.is_valid = is_valid};
  if (is_valid) verdict.words = {valid_words(files)};
  if (!is_valid) add_store_troubles(verdict);
  for (const File file : kFiles) add_failed_copies(files, file, verdict);
  if (verdict.words.empty()) verdict.words = {"this phone was never provisioned"};
  verdict.is_decided = verdict.is_decided || is_valid;
  return verdict;
}

Verdict check_stored_files(unsigned wait) {
  const common::Fd lock = lock_phone(wait);
  const std::string unlocked =
      lock ? "" : std::string("checked without the lock: /kelofs: cannot be opened: ") + std::strerror(errno);
  StoredFiles files;
  for (const File file : kFiles) {
    for (const Copy copy : kCopies) files[file][copy].look = look_at(file, copy);
  }
  begin_operation();
  const bool is_valid = kelo_is_para_correct() == 0;
  follow_messages(files);
  Verdict verdict = verdict_on(files, is_valid);
  if (!unlocked.empty()) verdict.words.push_back(unlocked);
  return verdict;
}

std::string as_json(const Verdict& verdict) {
  return common::json_line({{"valid", verdict.is_valid ? "true" : "false"},
                            {"reason", common::json_string(joined(verdict.words))},
                            {"messages", common::json_string(verdict.is_valid ? "" : joined(messages().all))}});
}

std::string as_text(const Verdict& verdict) {
  std::string text = common::painted(verdict.is_valid ? "valid" : "not valid", verdict.is_valid) + "\n";
  for (const std::string& line : verdict.words) text += common::escape(line) + "\n";
  return verdict.is_valid ? text : text + listed(messages().all);
}

void log_line(int priority, const std::string& text) {
  __android_log_write(priority, "kelphone", common::escape(text).c_str());
}

// Tries until it is decided, at the last with whatever there is. Until then both stores must be there, or a damaged
// copy could not be repaired.
Verdict decide(Clock::time_point end) {
  for (;; std::this_thread::sleep_for(std::chrono::milliseconds(200))) {
    const bool is_last = Clock::now() >= end;
    if (!is_last && !(store_trouble(kPrimary).empty() && store_trouble(kBackup).empty())) continue;
    try {
      const Verdict verdict = check_stored_files(0);
      if (verdict.is_decided || is_last) return verdict;
    } catch (const std::exception& error) {
      if (is_last) return {.is_decided = false, .words = {error.what()}};
    }
  }
}

// The property is written once in a boot: a phone that was only too slow keeps it for the next check.
int publish(const Verdict& verdict) {
  std::string line = !verdict.is_decided ? "undecided" : verdict.is_valid ? "valid" : "not valid";
  line += "; " + joined(verdict.words);
  const char* const value = verdict.is_valid ? "1" : "0";
  if (verdict.is_decided && ::property_set(kVerdictProperty, value) != 0)
    line.append("; cannot set ").append(kVerdictProperty);
  log_line(verdict.is_valid ? ANDROID_LOG_INFO : ANDROID_LOG_ERROR, line);
  if (!verdict.is_decided) return common::kSessionFailed;
  return verdict.is_valid ? common::kYes : common::kNo;
}

}  // namespace

int check(const Options& options) {
  const unsigned wait = options.wait.value_or(kLockWait);
  expect("answer from this phone", wait + kAnswerLimit);
  const Verdict verdict = check_stored_files(wait);
  common::print(options.json ? as_json(verdict) : as_text(verdict));
  return verdict.is_valid ? common::kYes : common::kNo;
}

int check_at_boot(const Options& options) {
  const unsigned wait = options.wait.value_or(kBootWait);
  // For a vendor library or a device that hangs.
  std::thread([wait] {
    std::this_thread::sleep_for(std::chrono::seconds(wait + 1));
    log_line(ANDROID_LOG_ERROR, "undecided; no answer from this phone within " + std::to_string(wait) + " seconds");
    ::_exit(common::kSessionFailed);
  }).detach();
  return publish(decide(Clock::now() + std::chrono::seconds(wait)));
}

}  // namespace kelphone

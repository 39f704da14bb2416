// The check at boot.
#include <android/log.h>
#include <cutils/properties.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "common/file.h"
#include "common/outcome.h"
#include "kelphone/check.h"
#include "kelphone/commands.h"
#include "kelphone/lock.h"
#include "kelphone/messages.h"

namespace kelphone {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kVerdictProperty[] = "ro.vendor.kelchk.verdict";

Verdict try_check() {
  try {
    return check_stored_files(0);
  } catch (const common::SessionError& error) {
    return {.is_decided = false, .words = {error.what()}};
  }
}

// Tries until it is decided, at the last with whatever there is. Until then both stores must be there, or a damaged
// copy could not be repaired.
Verdict decide(Clock::time_point end) {
  for (;;) {
    const bool is_last = Clock::now() >= end;
    const bool is_ready = store_trouble(kPrimary).empty() && store_trouble(kBackup).empty();
    if (is_ready || is_last) {
      Verdict verdict = try_check();
      if (verdict.is_decided || is_last) return verdict;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
}

// The property is written once in a boot: a phone that was only too slow keeps it for the next check.
int publish(const Verdict& verdict) {
  std::string line = !verdict.is_decided ? "undecided" : verdict.is_valid ? "valid" : "not valid";
  for (const std::string& words : verdict.words) line += "; " + words;
  const bool is_set = verdict.is_decided && ::property_set(kVerdictProperty, verdict.is_valid ? "1" : "0") == 0;
  if (verdict.is_decided && !is_set) line.append("; cannot set ").append(kVerdictProperty);
  log_line(verdict.is_valid ? ANDROID_LOG_INFO : ANDROID_LOG_ERROR, line);
  if (!verdict.is_decided) return common::kSessionFailed;
  return verdict.is_valid ? common::kYes : common::kNo;
}

}  // namespace

// A child does it, so that a vendor library that hangs or crashes leaves somebody to say so.
int check_at_boot(const Options& options) {
  const unsigned wait = options.wait.value_or(kBootWait);
  const pid_t child = ::fork();
  if (child < 0) common::throw_errno("the check", "cannot be started");
  if (child == 0) {
    ::alarm(wait + 1);
    ::_exit(publish(decide(Clock::now() + std::chrono::seconds(wait))));
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  log_line(ANDROID_LOG_ERROR, "undecided; no answer from this phone within " + std::to_string(wait) +
                                  " seconds: signal " + std::to_string(WTERMSIG(status)));
  return common::kSessionFailed;
}

}  // namespace kelphone

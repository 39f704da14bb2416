#include "kelphone/commands.h"

#include <cutils/properties.h>

#include <iterator>
#include <string_view>
#include <utility>

#include "common/escape.h"
#include "common/file.h"
#include "common/outcome.h"
#include "common/output.h"
#include "kelchk.h"
#include "kelphone/check.h"
#include "kelphone/lock.h"
#include "kelphone/messages.h"

namespace kelphone {
namespace {

constexpr char kHelp[] = R"(usage: kelphone [--log] [--wait SECONDS] COMMAND

  check [--json]      "valid" or "not valid", and why; repairs a damaged copy
  check --service     the same for init: waits until it can decide, logs one line and
                      sets ro.vendor.kelchk.verdict
  security [--json]   the security state report, 24 properties
  efuse               "efused" or "not efused"
  authorize FILE      import an authorization file; "-" is standard input
  line                serve a factory host, a request and an answer a line
  version

  --log               show the library's messages on standard error as they come
  --wait SECONDS      for another process that uses this phone (10), or with --service
                      for all that the verdict needs (60)

Exit codes: 0 yes or done; 1 no or refused; 2 wrong usage, or something unreadable or
not writable; 4 timed out: nothing is known to be wrong with the phone, try again.
)";

constexpr char kHiddenRemark[] =
    "\nNo vendor process may read the six partition.*.verified.root_digest: their \"false\" says nothing.\n";

// Names and JSON values.
using Members = std::vector<std::pair<std::string, std::string>>;

std::string json_object(const Members& members) {
  std::string text;
  for (const auto& [name, value] : members) {
    text.append(text.empty() ? "{\n  " : ",\n  ").append(common::json_string(name)).append(": ").append(value);
  }
  return text + "\n}\n";
}

std::string as_json(const Verdict& verdict) {
  const auto yes_or_no = [](bool value) { return value ? "true" : "false"; };
  return json_object({{"valid", yes_or_no(verdict.is_valid)},
                      {"reason", common::json_string(joined(verdict.words))},
                      {"field", common::json_string(verdict.mismatch.field)},
                      {"stored", common::json_string(verdict.mismatch.stored)},
                      {"present", common::json_string(verdict.mismatch.present)},
                      {"locked", yes_or_no(verdict.unlocked.empty())},
                      {"messages", common::json_string(verdict.is_valid ? "" : joined(texts()))}});
}

std::string as_text(const Verdict& verdict) {
  std::string text = (verdict.is_valid ? common::good("valid") : common::bad("not valid")) + "\n";
  for (const std::string& line : verdict.words) text += common::escape(line) + "\n";
  if (!verdict.unlocked.empty()) text += "checked without the lock: " + common::escape(verdict.unlocked) + "\n";
  return verdict.is_valid ? text : text + listed(texts());
}

// The values of the report, in the order of |properties|. A value may hold an "&", so it ends where the next name
// begins.
Members values_of(std::string_view report) {
  Members values;
  for (size_t i = 0; i < std::size(properties); ++i) {
    const std::string name = properties[i];
    std::string next("&");
    if (i + 1 < std::size(properties)) next.append(properties[i + 1]).append("=");
    const size_t begin = name.size() + 1;
    const size_t end = i + 1 < std::size(properties) ? report.find(next, begin) : report.size() - 1;
    values.emplace_back(name, report.substr(begin, end - begin));
    report.remove_prefix(end + 1);
  }
  return values;
}

std::string as_table(const Members& values) {
  constexpr size_t kNameWidth = 43;
  std::string text;
  bool is_hidden = false;
  for (const auto& [name, value] : values) {
    text.append(name).append(kNameWidth - name.size(), ' ').append(common::escape(value)).append("\n");
    is_hidden = is_hidden || (name.ends_with(".verified.root_digest") && value == "false");
  }
  return is_hidden ? text + kHiddenRemark : text;
}

// Why the answer is only the one for doubt; empty when the phone gave it.
std::string efuse_doubt() {
  char value[PROPERTY_VALUE_MAX];
  if (is_mt_chip() == 1) return ::property_get("ro.boot.efusemode", value, "") > 0 ? "" : "no ro.boot.efusemode";
  for (const Message& message : messages()) {
    const bool is_last_try = message.text.starts_with("dlsym ") || message.text.starts_with("dlopen /vendor/lib64/");
    if (is_last_try) return message.text;
  }
  return "";
}

// Readies this process for one operation of the library.
Lock begin(const Options& options) {
  const unsigned wait = options.wait.value_or(kLockWait);
  expect("answer from this phone", wait + kAnswerLimit);
  Lock lock(wait);
  begin_operation();
  return lock;
}

}  // namespace

int check(const Options& options) {
  if (options.service) return check_at_boot(options);
  const unsigned wait = options.wait.value_or(kLockWait);
  expect("answer from this phone", wait + kAnswerLimit);
  const Verdict verdict = check_stored_files(wait);
  common::print(options.json ? as_json(verdict) : as_text(verdict));
  return verdict.is_valid ? common::kYes : common::kNo;
}

int security(const Options& options) {
  const Lock lock = begin(options);
  char report[KELCHK_SECURITY_REPORT_CAP];
  unsigned len = 0;
  if (kelo_bsp_sec_ctrl_get(report, sizeof report, &len) != 0) throw common::Refusal(joined(reasons()));
  Members values = values_of({report, len});
  if (!options.json) {
    common::print(as_table(values));
    return common::kYes;
  }
  for (auto& [name, value] : values) value = common::json_string(value);
  common::print(json_object(values));
  return common::kYes;
}

int efuse(const Options& options) {
  const Lock lock = begin(options);
  const bool is_efused = is_device_efused() == 1;
  const std::string doubt = efuse_doubt();
  common::print(is_efused ? "efused\n" : "not efused\n");
  if (!doubt.empty()) common::print("the phone cannot tell, which counts as efused: " + common::escape(doubt) + "\n");
  return is_efused ? common::kYes : common::kNo;
}

int authorize(const Options& options) {
  expect("end of the authorization file", kInputLimit);
  const std::string content = common::read_file(options.file, KELCHK_SIGNED_FILE_MAX);
  if (content.empty()) throw common::Error(options.file + ": is empty; 1 to 4096 bytes were expected");
  const Lock lock = begin(options);
  make_store_folders();
  const bool is_done = kelo_import_aufile(content.data(), static_cast<unsigned>(content.size())) == 0;
  common::print(is_done ? common::good("ok") + "\n" : common::bad("failed") + "\n" + listed(reasons()));
  return is_done ? common::kYes : common::kNo;
}

int show_version(const Options& /*options*/) {
  common::print("kelphone " KELCHK_VERSION "\n");
  return common::kYes;
}

int show_help(const Options& /*options*/) {
  common::print(kHelp);
  return common::kYes;
}

}  // namespace kelphone

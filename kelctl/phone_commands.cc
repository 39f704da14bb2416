#include "kelctl/phone_commands.h"

#include <fmt/core.h>

#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

#include "kelchk.h"
#include "kelctl/files.h"
#include "kelctl/log.h"
#include "kelctl/outcome.h"
#include "kelctl/text.h"

namespace kelctl {
namespace {

int answer(bool yes, const char* words, const char* other_words) {
  fmt::print("{}\n", yes ? good(words) : bad(other_words));
  return yes ? kYes : kNo;
}

// The values of the report, in the order of |properties|. A value may hold an "&", so it ends where the next name
// begins.
nlohmann::ordered_json values_of(std::string_view report) {
  nlohmann::ordered_json values;
  for (size_t i = 0; i < std::size(properties); ++i) {
    const std::string name = properties[i];
    const bool is_last = i + 1 == std::size(properties);
    const size_t begin = name.size() + 1;
    const size_t end = is_last ? report.size() - 1 : report.find(fmt::format("&{}=", properties[i + 1]), begin);
    values[name] = report.substr(begin, end - begin);
    report.remove_prefix(end + 1);
  }
  return values;
}

}  // namespace

int check() {
  begin_operation();
  const bool valid = kelo_is_para_correct() == 0;
  const int result = answer(valid, "valid", "not valid");
  if (!valid) report_failure();
  return result;
}

int security(bool as_json) {
  begin_operation();
  char report[KELCHK_SECURITY_REPORT_CAP];
  unsigned len = 0;
  if (kelo_bsp_sec_ctrl_get(report, sizeof report, &len) != 0) {
    fmt::print("{}\n", bad("failed"));
    report_failure();
    return kNo;
  }
  const nlohmann::ordered_json values = values_of({report, len});
  if (as_json) {
    fmt::print("{}\n", values.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return kYes;
  }
  for (const auto& [name, value] : values.items()) fmt::print("{:<42} {}\n", name, value.get<std::string>());
  return kYes;
}

int efuse() {
  begin_operation();
  const int result = answer(is_device_efused() == 1, "efused", "not efused");
  report_failure();  // the answer is "efused" also when it cannot be had
  return result;
}

std::string read_authorization(const std::string& path) {
  std::string content = read_file(path, KELCHK_SIGNED_FILE_MAX + 1);
  if (content.empty() || content.size() > KELCHK_SIGNED_FILE_MAX) {
    throw Error(fmt::format("{}: 1 to {} bytes were expected", path, KELCHK_SIGNED_FILE_MAX));
  }
  return content;
}

int authorize(const std::string& content) {
  begin_operation();
  const bool done = kelo_import_aufile(content.data(), static_cast<unsigned>(content.size())) == 0;
  const int result = answer(done, "ok", "failed");
  if (!done) report_failure();
  return result;
}

}  // namespace kelctl

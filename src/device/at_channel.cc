#include "device/at_channel.h"

#include "core/log.h"
#include "device/vendor_library.h"

namespace kelchk {
namespace {

constexpr char kLibrary[] = "/vendor/lib/libatci.so";
constexpr char kLibrary64[] = "/vendor/lib64/libatci.so";

using SendAtCommand = int(int channel, const char* command, char* response, int capacity);

[[nodiscard]] int send_command(const char* command, char (&response)[kAtResponseCap]) noexcept {
  // The messages name the libraries without their leading "/".
  VendorLibrary library(kLibrary);
  if (!library) {
    log_error("dlopen %s fail reson =%s, try lib64\n", kLibrary + 1, loader_error());
    library.load(kLibrary64);
  }
  if (!library) return log_dlopen_failure(kLibrary64 + 1);
  auto* const send = library.find<SendAtCommand>("sendATCmd", "sendATCmd");
  if (send == nullptr) return -1;
  const int result = send(0, command, response, kAtResponseCap);
  // Once asked, the modem library stays loaded: its threads may outlive the command.
  library.keep_loaded();
  response[kAtResponseCap - 1] = '\0';
  log_info("==spd_send_at_cmd end %d== \n", result);
  return result;
}

}  // namespace

int spd_send_at_cmd(const char* command, char (&response)[kAtResponseCap]) noexcept {
  log_info("==spd_send_at_cmd start ==\n");
  const int result = send_command(command, response);
  if (result < 0) log_error("spd_send_at_cmd error:=%d", result);
  return result;
}

}  // namespace kelchk

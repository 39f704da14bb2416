#include "device/at_channel.h"

#include "core/log.h"
#include "device/vendor_library.h"

namespace kelchk {
namespace {

constexpr char kLibrary[] = "/vendor/lib/libatci.so";
constexpr char kLibrary64[] = "/vendor/lib64/libatci.so";

using SendAtCommand = int(int channel, const char* command, char* response, int capacity);

}  // namespace

int spd_send_at_cmd(const char* command, char (&response)[kAtResponseCap]) noexcept {
  log_info("==spd_send_at_cmd start ==\n");
  // The messages name the libraries without their leading "/".
  VendorLibrary library(kLibrary);
  if (!library) {
    log_error("dlopen %s fail reson =%s, try lib64\n", kLibrary + 1, loader_error());
    library.load(kLibrary64);
  }
  if (!library) {
    log_load_failure(kLibrary64 + 1);
    log_error("spd_send_at_cmd error:=%d", -1);
    return -1;
  }
  auto* const send = library.find<SendAtCommand>("sendATCmd", "sendATCmd");
  if (send == nullptr) {
    library.reset();
    log_error("spd_send_at_cmd error:=%d", -1);
    return -1;
  }
  const int result = send(0, command, response, kAtResponseCap);
  // From here on the modem library stays loaded: its threads may outlive the command.
  library.keep_loaded();
  response[kAtResponseCap - 1] = '\0';
  log_info("==spd_send_at_cmd end %d== \n", result);
  if (result < 0) log_error("spd_send_at_cmd error:=%d", result);
  return result;
}

}  // namespace kelchk

#include <errno.h>
#include <string.h>

#include "core/file.h"
#include "core/hex.h"
#include "core/log.h"
#include "device/identifiers.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr size_t kUnisocReadMax = 257;  // one more than any chip id, so that a longer one shows
constexpr size_t kMediaTekIdLen = 16;

[[nodiscard]] int open_rid(const char* path) noexcept {
  const int fd = open_to_read(path);
  if (fd < 0) log_error("Failed to open chip rid file %s, errno=%d", path, errno);
  return fd;
}

[[nodiscard]] int read_mediatek_rid(ValueBuffer& rid) noexcept {
  const Fd file(open_rid("/proc/rid"));
  if (!file) return -1;
  unsigned char raw[2 * kMediaTekIdLen];
  size_t gathered = 0;
  while (gathered < kMediaTekIdLen) {
    const ssize_t count = ::read(file.get(), raw + gathered, kMediaTekIdLen);
    if (count <= 0) break;
    gathered += static_cast<size_t>(count);
  }
  memcpy(rid, "mt", 2);
  write_hex(rid + 2, raw, 2 * gathered);
  return 0;
}

[[nodiscard]] int read_unisoc_rid(ValueBuffer& rid) noexcept {
  constexpr char kPath[] = "/sys/kelonix/hwinfo/chip_uid";
  const Fd file(open_rid(kPath));
  if (!file) return -1;
  char raw[kUnisocReadMax] = {};
  if (::read(file.get(), raw, sizeof raw) < 1) {
    log_error("Failed to read chip rid file %s \n", kPath);
    return -1;
  }
  const std::string_view id = text_of(raw);
  memcpy(rid, "sp", 2);
  memcpy(rid + 2, id.data(), id.size());
  return 0;
}

}  // namespace

int read_rid(ValueBuffer& out) noexcept {
  if ((is_mt_chip() ? read_mediatek_rid(out) : read_unisoc_rid(out)) != 0) return -1;
  size_t len = 0;
  for (; out[len] != '\0'; ++len) {
    if (out[len] >= 'A' && out[len] <= 'Z') out[len] = static_cast<char>(out[len] - 'A' + 'a');
  }
  if (len > kRidMax) {
    log_error("rid is too long, len=%zu", len);
    return -1;
  }
  return 0;
}

}  // namespace kelchk

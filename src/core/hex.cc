#include "core/hex.h"

#include "core/log.h"
#include "core/text.h"
#include "kelchk.h"

namespace kelchk {

void write_hex(char* out, const unsigned char* in, size_t digits) noexcept {
  for (size_t i = 0; i < digits; ++i) {
    const unsigned nibble = i % 2 == 0 ? in[i / 2] >> 4 : in[i / 2] & 0xFU;
    out[i] = "0123456789ABCDEF"[nibble];
  }
}

namespace {

unsigned digit_value(unsigned char c) noexcept {
  if (c >= '0' && c <= '?') return c - static_cast<unsigned>('0');
  if (c >= 'A' && c <= 'F') return c - static_cast<unsigned>('A') + 10;
  if (c >= 'a' && c <= 'f') return c - static_cast<unsigned>('a') + 10;
  return 15;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

void AscToBcd(unsigned char* out, unsigned char* in, int len) noexcept {
  const size_t digits = len > 0 ? static_cast<size_t>(len) : 0;
  for (size_t i = 0; i < digits; i += 2) {
    const unsigned high = digit_value(in[i]);
    const unsigned low = i + 1 < digits ? digit_value(in[i + 1]) : 0;
    out[i / 2] = static_cast<unsigned char>(high << 4 | low);
  }
}

void BcdToAsc(unsigned char* out, unsigned char* in, unsigned int len) noexcept {
  write_hex(reinterpret_cast<char*>(out), in, len);
}

void LogHex(char* prefix, unsigned char* data, unsigned int len) noexcept {
  constexpr size_t kUncutLen = 1024;
  constexpr size_t kCutLen = 1000;
  const char* const shown_prefix = prefix != nullptr ? prefix : "";
  const size_t prefix_len = strlen(shown_prefix);
  size_t shown = data != nullptr ? len : 0;
  if (shown > kCutLen && (prefix_len > kUncutLen || shown > kUncutLen - prefix_len)) shown = kCutLen;

  memset(g_log_buf, 0, sizeof g_log_buf);
  TextWriter line(g_log_buf);
  line.append({shown_prefix, "==>"});
  const size_t room = (sizeof g_log_buf - 1 - line.length()) / 2;
  if (shown > room) shown = room;
  write_hex(g_log_buf + line.length(), data, 2 * shown);
  log_debug("%s\n", g_log_buf);
}

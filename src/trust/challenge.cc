// The login of the provisioning tool: it answers a challenge with a signature over it.
#include <errno.h>
#include <string.h>

#include "core/file.h"
#include "core/hex.h"
#include "core/log.h"
#include "kelchk.h"
#include "trust/signed_message.h"

namespace kelchk {
namespace {

constexpr char kAnswerKey[] = "randomNumber=";
constexpr unsigned kAnswerKeyLen = sizeof kAnswerKey - 1;
static_assert(kAnswerKeyLen + KELCHK_CHALLENGE_MAX + 1 == KELCHK_CHALLENGE_ANSWER_CAP);
static_assert(KELCHK_CHALLENGE_MAX < sizeof g_rand_buf);

// Draws a challenge of |len| characters into g_rand_buf.
[[nodiscard]] int draw_challenge(unsigned len) noexcept {
  unsigned char random[sizeof g_rand_buf] = {};
  const Fd device(open_to_read("/dev/urandom"));
  if (!device) {
    log_error("kelo_get_rand open /dev/urandom error=%d", errno);
    return -1;
  }
  memset(g_rand_buf, 0, sizeof g_rand_buf);
  if (::read(device.get(), random, len) < 0) {
    log_error("kelo_get_rand read /dev/urandom error=%d", errno);
    return -1;
  }
  write_hex(g_rand_buf, random, len);
  return 0;
}

int write_challenge(ValueBuffer& message) noexcept {
  const std::string_view challenge = text_of(g_rand_buf);
  memcpy(message, challenge.data(), challenge.size());
  return 0;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int kelo_get_rand(char* out, unsigned int* len) noexcept {
  if (out == nullptr || len == nullptr || *len > KELCHK_CHALLENGE_MAX) return log_failure("kelo_get_rand input error");
  const unsigned challenge_len = *len;
  memcpy(out, kAnswerKey, sizeof kAnswerKey);
  if (draw_challenge(challenge_len) != 0) return -1;
  memcpy(out + kAnswerKeyLen, g_rand_buf, challenge_len + 1);
  *len = kAnswerKeyLen + challenge_len;
  return 0;
}

int kelo_verify_rand(const char* in, unsigned int in_len) noexcept {
  // Reads at most one character beyond |in_len|: enough to notice longer text. Where UINT_MAX + 1 wraps to 0, nothing
  // is read, and the length 0 differs as well.
  if (in == nullptr || strnlen(in, size_t{in_len} + 1) != in_len) return log_failure("in_len != strlen(in)");
  if (verify_signed_message({in, in_len}, Purpose::kLogin, write_challenge) != 0) return -1;
  g_is_authed = 1;
  return 0;
}

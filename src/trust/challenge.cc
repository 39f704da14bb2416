// The login of the provisioning tool: it answers a challenge with a signature over it.
#include <errno.h>
#include <limits.h>
#include <string.h>

#include "core/file.h"
#include "core/hex.h"
#include "core/log.h"
#include "kelchk.h"
#include "trust/signed_message.h"

namespace kelchk {
namespace {

constexpr unsigned kChallengeLimit = 251;
constexpr char kAnswerKey[] = "randomNumber=";
constexpr size_t kAnswerKeyLen = sizeof kAnswerKey - 1;

int write_challenge(Text& message) noexcept {
  const std::string_view challenge = text_of(g_rand_buf);
  memcpy(message, challenge.data(), challenge.size());
  return 0;
}

}  // namespace
}  // namespace kelchk

using namespace kelchk;

int kelo_get_rand(char* out, unsigned int* len) noexcept {
  unsigned char random[256] = {};
  static_assert(kChallengeLimit < sizeof random && kChallengeLimit < sizeof g_rand_buf);
  if (out == nullptr || len == nullptr || *len >= kChallengeLimit) return fail("kelo_get_rand input error");
  const unsigned challenge_len = *len;
  memcpy(out, kAnswerKey, sizeof kAnswerKey);

  Fd device(open_to_read("/dev/urandom"));
  if (!device) {
    log_error("kelo_get_rand open /dev/urandom error=%d", errno);
    return -1;
  }
  memset(g_rand_buf, 0, sizeof g_rand_buf);
  if (::read(device.get(), random, challenge_len) < 0) {
    const int error = errno;
    device.reset();
    log_error("kelo_get_rand read /dev/urandom error=%d", error);
    return -1;
  }
  write_hex(g_rand_buf, random, challenge_len);
  memcpy(out + kAnswerKeyLen, g_rand_buf, challenge_len + 1);
  *len = kAnswerKeyLen + challenge_len;
  return 0;
}

int kelo_verify_rand(const char* in, unsigned int in_len) noexcept {
  // One character more than promised is looked at, so that a longer text shows without being read to its end.
  if (in == nullptr || in_len == UINT_MAX || strnlen(in, size_t{in_len} + 1) != in_len) {
    return fail("in_len != strlen(in)");
  }
  const SignedMessage challenge = {.write = write_challenge, .chain_report = ChainReport::kDetailed};
  if (verify_signed_message({in, in_len}, challenge) != 0) return -1;
  g_is_authed = 1;
  return 0;
}

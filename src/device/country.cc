// The hash of the country configuration, which says where the phone may be sold.
#include <openssl/sha.h>
#include <string.h>

#include "core/file.h"
#include "core/hex.h"
#include "core/log.h"
#include "device/attributes.h"
#include "device/nvram.h"
#include "kelchk.h"

namespace kelchk {
namespace {

constexpr size_t kConfigurationLen = 1509;
constexpr size_t kShaTextLen = size_t{2} * SHA256_DIGEST_LENGTH;
constexpr char kConfigurationFile[] = "/mnt/vendor/productinfo/finstatus/finstatus.prop";
constexpr char kDefaultConfiguration[] = "0|0|0|0|0|0|0|0|0|0|IN|2|QVk=_XkY=_SVI=";
// The bytes of MediaTek's record that the hash does not cover.
constexpr size_t kUncoveredOffset = 1;
constexpr size_t kUncoveredLen = 8;

struct Configuration {
  char bytes[kConfigurationLen + 1] = {};
  size_t hashed_len = 0;
};

[[nodiscard]] int read_mediatek(Configuration& configuration) noexcept {
  auto* const record = reinterpret_cast<unsigned char*>(configuration.bytes);
  if (nvram_read_by_name("/vendor/nvdata/APCFG/APRDEB/ANTI_CS", kConfigurationLen, record) != 0) {
    return log_failure("get_black_country_sha nvram_read_by_name fail\n");
  }
  memset(record + kUncoveredOffset, 0, kUncoveredLen);
  configuration.hashed_len = kConfigurationLen;
  return 0;
}

[[nodiscard]] int read_finstatus(Configuration& configuration) noexcept {
  const Fd file(open_to_read(kConfigurationFile));
  if (!file) {
    log_error("open %s fail\n", kConfigurationFile);
    memcpy(configuration.bytes, kDefaultConfiguration, sizeof kDefaultConfiguration);
    return 0;
  }
  if (::read(file.get(), configuration.bytes, kConfigurationLen) < 0) {
    log_error("read %s fail\n", kConfigurationFile);
    return -1;
  }
  return 0;
}

// Replaces the text by its last three tokens, concatenated.
[[nodiscard]] int keep_last_tokens(Configuration& configuration) noexcept {
  const char* tokens[3] = {};
  char* rest = configuration.bytes;
  while (const char* const token = ::strtok_r(rest, "|", &rest)) {
    tokens[0] = tokens[1];
    tokens[1] = tokens[2];
    tokens[2] = token;
  }
  if (tokens[0] == nullptr) return log_failure("get_black_country_sha token err\n");
  char joined[kConfigurationLen];
  TextWriter writer(joined);
  writer.append({tokens[0], tokens[1], tokens[2]});
  memcpy(configuration.bytes, joined, writer.length() + 1);
  configuration.hashed_len = writer.length();
  log_info("country_code=%s", joined);
  log_info("t_len=%d", static_cast<int>(writer.length()));
  return 0;
}

[[nodiscard]] int read_unisoc(Configuration& configuration) noexcept {
  return read_finstatus(configuration) == 0 ? keep_last_tokens(configuration) : -1;
}

}  // namespace

int get_black_country_sha(ValueBuffer& out) noexcept {
  Configuration configuration;
  if ((is_mt_chip() ? read_mediatek(configuration) : read_unisoc(configuration)) != 0) return -1;

  SHA256_CTX sha;
  unsigned char digest[SHA256_DIGEST_LENGTH];
  SHA256_Init(&sha);
  SHA256_Update(&sha, configuration.bytes, configuration.hashed_len);
  SHA256_Final(digest, &sha);
  write_hex(out, digest, kShaTextLen);
  // Longer only when the caller has not zeroed the buffer.
  const size_t len = text_of(out).size();
  if (len != kShaTextLen) {
    log_error("get_black_country_sha fail strlen(out_put) =%zu\n", len);
    log_error("get_black_country_sha fail out_put =%s\n", out);
    return -1;
  }
  return 0;
}

}  // namespace kelchk

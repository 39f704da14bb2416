#include "kelsign/signer.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "common/escape.h"
#include "common/file.h"
#include "common/journal.h"
#include "common/line_protocol.h"
#include "common/outcome.h"
#include "kelchk.h"
#include "kelsign/certificates.h"
#include "kelsign/keys.h"

namespace kelsign {
namespace {

using common::Refusal;
using common::Request;
using common::TextKind;
using ChipIds = std::set<std::string>;

ChipIds load_chip_ids(const std::string& path) {
  constexpr size_t kMaxListLen = size_t{64} << 20;
  ChipIds chip_ids;
  std::istringstream list(path.empty() ? "" : common::read_file(path, kMaxListLen));
  for (std::string line; std::getline(list, line);) chip_ids.insert(without_line_break(line));
  return chip_ids;
}

std::string message_of(const Request& request, const SessionOptions& options, const ChipIds& chip_ids) {
  const TextKind kind = kind_of(request.verb);
  if (kind == TextKind::kChipId && options.allowed != "chip-id") throw Refusal("this session signs no chip id");
  std::string message = common::message_to_sign(kind, request.text);
  if (kind == TextKind::kChipId && !options.chip_ids_path.empty() &&
      !chip_ids.contains(without_line_break(request.text))) {
    throw Refusal("the chip id is not on the list");
  }
  const auto& codes = options.feature_codes;
  if (kind == TextKind::kRecord &&
      std::find(codes.begin(), codes.end(), common::value_of(request.text, "featureCode")) == codes.end()) {
    throw Refusal("this session signs no record with that featureCode");
  }
  return message;
}

}  // namespace

Signer::Signer(const std::string& key_name, const std::string& certificate_path) : key_(load_key(key_name)) {
  if (certificate_path.empty()) return;
  const CertificateHandle certificate = load_certificate(certificate_path);
  require_pair(key_.get(), certificate.get(), certificate_path);
  certificate_text_ = certificate_text(certificate.get(), certificate_path);
}

std::string Signer::sign(std::string_view message) const {
  const Handle<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  unsigned char signature[KELCHK_SIGNATURE_LEN];
  size_t len = sizeof signature;
  require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key_.get()) == 1 &&
              EVP_DigestSign(context.get(), signature, &len, bytes_of(message), message.size()) == 1,
          "the key cannot sign");
  return base64({reinterpret_cast<char*>(signature), len});
}

std::string Signer::signed_record(std::string_view message) const {
  return "factoryCert=" + certificate_text_ + "&sign=" + sign(message);
}

common::TextKind kind_of(std::string_view word) {
  if (word == "challenge") return common::TextKind::kChallenge;
  if (word == "record") return common::TextKind::kRecord;
  if (word == "chip-id") return common::TextKind::kChipId;
  throw common::Refusal(fmt::format("unknown request \"{}\": challenge, record or chip-id was expected", word));
}

void serve(const Signer& signer, const SessionOptions& options) {
  const ChipIds chip_ids = load_chip_ids(options.chip_ids_path);
  const auto record = [&](const Request& request, std::string_view outcome, std::string_view reason) {
    common::add_to_journal(options.journal_path, {{"time", common::json_string(common::journal_time())},
                                                  {"verb", common::json_string(request.verb)},
                                                  {"text", common::json_string(request.text)},
                                                  {"outcome", common::json_string(outcome)},
                                                  {"reason", common::json_string(reason)}});
  };
  // What cannot be recorded is not signed, so the record comes before the signature.
  common::serve_lines(STDIN_FILENO, STDOUT_FILENO, [&](const Request& request) {
    try {
      const std::string message = message_of(request, options, chip_ids);
      record(request, "signed", "");
      return common::ok_line(signer.signed_record(message));
    } catch (const Refusal& refusal) {
      record(request, "refused", refusal.what());
      throw;
    } catch (const common::Error& error) {
      record(request, "failed", error.what());
      throw;
    }
  });
}

}  // namespace kelsign

#include "kelctl/verification.h"

#include "core/log.h"
#include "kelctl/log.h"
#include "trust/certificate.h"
#include "trust/signature.h"

// What trust/ calls of core/log. There is no phone here: what would go to the log file stands in the messages as well.
namespace kelchk {

int fail(const char* text) noexcept {
  log_error("%s", text);
  return -1;
}

void logToFile(const char*) noexcept {}

void log_file_line(const char*, ...) noexcept {}

}  // namespace kelchk

namespace kelctl {

ChainVerdict check_chain(X509* root, X509* signer) {
  begin_operation();
  ChainVerdict verdict;
  verdict.holds = kelchk::verify_certificate(root, signer) == 1;
  constexpr std::string_view kOutcome = "kelo_X509_verify_cert ret = ";
  for (const Message& message : messages()) {
    if (message.text.starts_with(kOutcome)) verdict.text = message.text.substr(kOutcome.size());
  }
  return verdict;
}

bool signature_holds(X509* signer, std::string_view message, std::string_view signature) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(message.data());
  const auto* const signature_bytes = reinterpret_cast<const unsigned char*>(signature.data());
  return kelchk::verify_signature(signer, bytes, static_cast<unsigned>(message.size()), signature_bytes,
                                  static_cast<unsigned>(signature.size())) == 1;
}

}  // namespace kelctl

// "kelctl explain" over any bytes: stored files, certificates in PEM and the library's file. Needs no phone.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "kelctl/explain.h"
#include "trust/root_certificate.h"

namespace {

// Whatever came in, this reaches a terminal.
void require_plain(const std::string& shown) {
  if (!std::all_of(shown.begin(), shown.end(), [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); }))
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  kelctl::Question question;
  if (input.ConsumeBool()) question.root = std::move(kelctl::find_certificates(kelchk::kRootCertificatePem)[0]);
  if (input.ConsumeBool()) question.message = input.ConsumeRandomLengthString(64);
  const std::string bytes = input.ConsumeRemainingBytesAsString();
  kelctl::Findings findings = kelctl::examine(bytes, question);
  findings.path = bytes.substr(0, 64);
  require_plain(kelctl::as_text(findings));
  require_plain(kelctl::as_json(findings));
  require_plain(kelctl::as_table({std::move(findings)}));
  return 0;
}

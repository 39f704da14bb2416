// The whole provisioning pass.
#pragma once

#include <functional>
#include <string>

#include "kelctl/signing.h"

namespace kelctl {

// Sends one request of the line mode to the phone and returns the answer.
using Ask = std::function<std::string(const std::string& line)>;

struct Provisioning {
  std::string certificate;  // base64, as a signed record carries it
  Signer signer;
  std::string feature_code;
  std::string imei;  // of a Unisoc phone; else empty
};

// Challenge, login, record and import, telling each step on standard output. Returns whether the phone is provisioned;
// when not, standard error tells why. Throws what the signer throws.
bool provision(const Provisioning& provisioning, const Ask& ask);

}  // namespace kelctl

// Private keys: a PEM file, or a PKCS #11 URI (RFC 7512) that names a key in a module.
#pragma once

#include <string>

#include "kelsign/crypto.h"

namespace kelsign {

// Loads the RSA-2048 key |name|. The PIN of a key in a module comes from the file that "pin-source" in the URI names,
// else from the environment variable KELSIGN_PIN, else from the terminal; one line break at its end does not count.
// "module-path" names the module, else the engine's default is used. Throws common::Error, which never shows a PIN.
KeyHandle load_key(const std::string& name);

}  // namespace kelsign

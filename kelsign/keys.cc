#include "kelsign/keys.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/rsa.h>
#include <openssl/ui.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "common/escape.h"
#include "common/fd.h"
#include "common/file.h"
#include "common/outcome.h"

namespace kelsign {
namespace {

using common::Error;

constexpr std::string_view kScheme = "pkcs11:";
constexpr size_t kMaxPinLen = 255;
constexpr char kUnusableModule[] = "the PKCS #11 module cannot be used";

// Return values of a module (PKCS #11), which its engine uses as reasons.
constexpr int kPinIncorrect = 0xA0;
constexpr int kPinLenRange = 0xA2;
constexpr int kPinLocked = 0xA4;

using EngineHandle = Handle<ENGINE, ENGINE_free>;

struct Uri {
  std::string key;  // without the query
  std::string pin_source;
  std::string module_path;
};

std::string decode_percent(std::string text) {
  for (size_t at = 0; (at = text.find('%', at)) != std::string::npos; ++at) {
    const std::string digits = text.substr(at + 1, 2);
    const bool is_code = digits.size() == 2 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (is_code) text.replace(at, 3, 1, static_cast<char>(std::stoi(digits, nullptr, 16)));
  }
  return text;
}

Uri parse_uri(const std::string& name) {
  std::istringstream path(name.substr(kScheme.size(), name.find('?') - kScheme.size()));
  std::istringstream query(name.substr(std::min(name.find('?'), name.size() - 1) + 1));
  Uri uri{std::string(kScheme) + path.str(), "", ""};
  bool names_token = false;
  for (std::string attribute; std::getline(path, attribute, ';');) {
    names_token |= (attribute.starts_with("token=") || attribute.starts_with("serial=")) && !attribute.ends_with('=');
    if (attribute.starts_with("pin-")) throw Error(uri.key + ": pin-source was expected after \"?\"");
  }
  // The PIN must not be tried on other tokens.
  if (!names_token) throw Error(uri.key + ": token or serial was expected");
  for (std::string attribute; std::getline(query, attribute, '&');) {
    const std::string value = decode_percent(attribute.substr(attribute.find('=') + 1));
    if (attribute.starts_with("pin-source=")) {
      uri.pin_source = value.starts_with("file:") ? value.substr(5) : value;
    } else if (attribute.starts_with("module-path=")) {
      uri.module_path = value;
    } else {
      throw Error(uri.key + ": after \"?\", only pin-source and module-path were expected");
    }
  }
  return uri;
}

std::string ask_pin(const Uri& uri) {
  // A background process would be stopped by its question.
  const common::Fd terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal || ::tcgetpgrp(terminal.get()) != ::getpgrp()) {
    throw Error(uri.key + ": no PIN: there is no terminal, so pin-source or KELSIGN_PIN was expected");
  }
  UI_set_default_method(UI_OpenSSL());
  const std::string prompt = fmt::format("PIN of {}: ", common::escape(uri.key));
  char pin[kMaxPinLen + 1];
  require(EVP_read_pw_string(pin, sizeof pin, prompt.c_str(), 0) == 0, uri.key + ": no PIN was entered");
  return pin;
}

std::string read_pin(const Uri& uri) {
  if (!uri.pin_source.empty()) return common::read_file(uri.pin_source, kMaxPinLen);
  const char* const variable = std::getenv("KELSIGN_PIN");
  return variable != nullptr ? variable : ask_pin(uri);
}

EngineHandle make_engine(const Uri& uri) {
  const std::string pin = without_line_break(read_pin(uri));
  if (pin.empty()) throw Error(uri.key + ": the PIN is empty");
  if (pin.find('\0') != std::string::npos) throw Error(uri.key + ": the PIN has a NUL inside");

  EngineHandle engine(ENGINE_by_id("pkcs11"));
  require(engine != nullptr, "OpenSSL's engine \"pkcs11\", Debian's libengine-pkcs11-openssl, cannot be loaded");
  // Its own messages would show the URI and the PIN's file.
  require(ENGINE_ctrl_cmd_string(engine.get(), "QUIET", nullptr, 0) == 1 &&
              (uri.module_path.empty() ||
               ENGINE_ctrl_cmd_string(engine.get(), "MODULE_PATH", uri.module_path.c_str(), 0) == 1) &&
              ENGINE_ctrl_cmd_string(engine.get(), "PIN", pin.c_str(), 0) == 1,
          kUnusableModule);
  return engine;
}

[[noreturn]] void throw_missing_key(const Uri& uri) {
  for (unsigned long code = 0; (code = ERR_get_error()) != 0;) {
    const int reason = ERR_GET_REASON(code);
    if (ERR_GET_LIB(code) < ERR_LIB_USER) continue;
    if (reason == kPinIncorrect || reason == kPinLenRange) throw Error(uri.key + ": the PIN is wrong");
    if (reason == kPinLocked) throw Error(uri.key + ": the PIN is locked, after too many wrong ones");
  }
  throw Error(uri.key + ": no such private key in the module, or no such module");
}

KeyHandle load_from_module(const Uri& uri) {
  const EngineHandle engine = make_engine(uri);
  require(ENGINE_init(engine.get()) == 1, kUnusableModule);
  const Handle<ENGINE, ENGINE_finish> running(engine.get());  // the key keeps it running
  UI_set_default_method(UI_null());                           // the engine must not ask for another PIN
  KeyHandle key(ENGINE_load_private_key(engine.get(), uri.key.c_str(), nullptr, nullptr));
  if (key == nullptr) throw_missing_key(uri);
  require_rsa_2048(key.get(), uri.key);
  return key;
}

}  // namespace

KeyHandle load_key(const std::string& name) {
  if (::strncasecmp(name.c_str(), kScheme.data(), kScheme.size()) == 0) return load_from_module(parse_uri(name));
  auto key = load_pem<KeyHandle>(name, PEM_read_bio_PrivateKey, "a private key in PEM, without a passphrase,");
  require_rsa_2048(key.get(), name);
  return key;
}

}  // namespace kelsign

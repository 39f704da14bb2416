#include "common/escape.h"

namespace common {

std::string escape(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string escaped;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\\') {
      escaped += "\\\\";
    } else if (byte >= 0x20 && byte < 0x7F) {
      escaped += c;
    } else {
      escaped += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
  }
  return escaped;
}

std::string json_string(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : escape(text)) {
    if (c == '\\' || c == '"') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string json_line(const Members& members) {
  std::string object;
  for (const auto& [name, value] : members) object += (object.empty() ? "{" : ", ") + json_string(name) + ": " + value;
  return object + "}\n";
}

}  // namespace common

// libcutils.so of the simulated phone. Every query reads the phone's property file, so that a property can be changed
// while a program runs.
#include <cutils/properties.h>

#include <algorithm>
#include <exception>
#include <fstream>
#include <string>
#include <string_view>

#include "simulator/property_file.h"

namespace {

constexpr size_t kMaxValueLen = PROPERTY_VALUE_MAX - 1;

// The first of several lines for one key counts, as on a phone.
std::string find_value(std::string_view key) {
  std::ifstream file(std::string("/") + phone::kPropertyFile);
  for (std::string line; std::getline(file, line);) {
    const size_t equals = line.find('=');
    if (line.starts_with('#') || equals == std::string::npos) continue;
    if (std::string_view(line).substr(0, equals) == key) return line.substr(equals + 1);
  }
  return {};
}

}  // namespace

int property_get(const char* key, char* value, const char* default_value) {
  std::string text = key ? find_value(key) : "";
  if (text.empty() && default_value) text = default_value;
  const size_t len = std::min(text.size(), kMaxValueLen);
  value[text.copy(value, len)] = '\0';
  return static_cast<int>(len);
}

int property_set(const char* key, const char* value) try {
  const std::string name = key != nullptr ? key : "";
  const std::string text = value != nullptr ? value : "";
  const bool is_read_only = name.starts_with("ro.");
  if (!is_read_only && text.size() > kMaxValueLen) return -1;

  const phone::FileTree phone("/");
  phone::PropertyFile file(phone);
  if (is_read_only && file.has(name)) return -1;
  file.set(name, text);
  return 0;
} catch (const std::exception&) {
  return -1;
}

// libcutils.so of the simulated phone: its properties are the lines "key=value" of one file, where "#" begins a comment
// line. Every query reads the file, so that a property can be changed while a program runs.
#include <cutils/properties.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>

namespace {

constexpr char kPropertyFile[] = "/system/build.prop";
constexpr size_t kMaxValueLen = PROPERTY_VALUE_MAX - 1;

// As on a phone, the first of several lines for one key counts.
std::string find_value(std::string_view key) {
  std::ifstream file(kPropertyFile);
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

int property_set(const char* key, const char* value) {
  const std::string_view name = key ? key : "";
  if (name.empty() || (name.starts_with("ro.") && !find(name).empty())) return -1;
  std::ofstream file(kPropertyFile, std::ios::app);
  file << name << '=' << (value ? value : "") << std::endl;
  return file ? 0 : -1;
}

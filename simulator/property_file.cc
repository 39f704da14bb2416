#include "simulator/property_file.h"

#include <sys/file.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace phone {
namespace {

constexpr size_t kMaxFileLen = 1 << 20;

}  // namespace

PropertyFile::PropertyFile(const FileTree& phone)
    : phone_(phone), lock_(phone.open_folder(std::filesystem::path(kPropertyFile).parent_path())) {
  if (::flock(lock_.get(), LOCK_EX) != 0) throw std::runtime_error("cannot lock the phone's properties");
  content_ = phone.read(kPropertyFile, kMaxFileLen);
}

bool PropertyFile::has(std::string_view name) const {
  return ("\n" + content_).find("\n" + std::string(name) + "=") != std::string::npos;
}

void PropertyFile::set(const std::string& name, const std::string& value) {
  const std::string added = value.empty() ? "" : property_line(name, value);
  std::string kept;
  std::istringstream lines(content_);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(name + "=")) kept += line + "\n";
  }
  content_ = kept + added;
  phone_.write(kPropertyFile, content_);
}

std::string property_line(const std::string& name, const std::string& value) {
  if (name.empty() || name.starts_with('#') || name.find_first_of("=\n") != std::string::npos) {
    throw std::invalid_argument("\"" + name + "\" cannot be the name of a property");
  }
  if (value.find('\n') != std::string::npos) {
    throw std::invalid_argument("the value of " + name + " has more than one line");
  }
  return name + "=" + value + "\n";
}

}  // namespace phone

// The file that holds a phone's properties: lines "key=value", where "#" begins a comment line.
#pragma once

#include <string>
#include <string_view>

#include "common/fd.h"
#include "simulator/file_tree.h"

namespace phone {

inline constexpr char kPropertyFile[] = "system/build.prop";

// Opened for a change, which excludes other changes until the object is gone. All functions throw when a step fails.
class PropertyFile {
 public:
  explicit PropertyFile(const FileTree& phone);

  [[nodiscard]] bool has(std::string_view name) const;

  // Replaces or appends the property; an empty value removes it. Throws also when a text does not fit a line.
  void set(const std::string& name, const std::string& value);

 private:
  const FileTree& phone_;
  common::Fd lock_;
  std::string content_;
};

// The line of a property. Throws when it would be none or more than one.
std::string property_line(const std::string& name, const std::string& value);

}  // namespace phone

// Files below one folder, reached without following any link: a phone's files may come from anywhere, and a link among
// them may lead anywhere.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "common/fd.h"

namespace phone {

// Paths are relative to the tree's root. Every function throws, naming the path, when a step fails or when a link
// stands in place of a folder of the path.
class FileTree {
 public:
  // |root| itself may be a link: its user chose it.
  explicit FileTree(const std::filesystem::path& root);

  [[nodiscard]] const std::filesystem::path& root() const { return root_; }
  [[nodiscard]] bool is_empty() const;

  // Opens a folder for reading.
  [[nodiscard]] common::Fd open_folder(const std::filesystem::path& path) const;

  // Whether the regular file exists.
  [[nodiscard]] bool has_file(const std::filesystem::path& path) const;

  // At most |max| bytes; more are an error.
  [[nodiscard]] std::string read(const std::filesystem::path& path, size_t max) const;

  // Replaces the file as a whole, or leaves it as it was.
  void write(const std::filesystem::path& path, std::string_view content) const;

  // With its parents, as far as they do not exist.
  void make_folder(const std::filesystem::path& path) const;
  void make_link(const std::filesystem::path& path, const std::filesystem::path& target) const;

  // Whatever |path| is; a link is removed, not what it leads to. Missing is no error.
  void remove(const std::filesystem::path& path) const;
  void remove_content(const std::filesystem::path& folder) const;

  // Sets owner and mode of a folder. Only root can set the owner; others set the mode alone.
  void set_access(const std::filesystem::path& folder, uid_t user, gid_t group, mode_t mode) const;

  // Throws when |path|, or a folder that it leads through, exists and is a link.
  void require_no_links(const std::filesystem::path& path) const;

 private:
  std::filesystem::path root_;
  common::Fd fd_;
};

}  // namespace phone

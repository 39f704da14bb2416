// A journal: one JSON object a line, appended and flushed to storage before add() returns.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace common {

class Journal {
 public:
  // An empty |path| keeps no journal.
  explicit Journal(std::string path) : path_(std::move(path)) {}

  // A name and a JSON value, such as json_string() makes.
  using Field = std::pair<std::string_view, std::string>;

  // The fields as one JSON object.
  static std::string object_of(const std::vector<Field>& fields);

  // Appends one object, in one write. The file is opened again for each, so that it can be rotated by renaming. A line
  // that an earlier full disk left unfinished is ended first. Throws Error, naming the file, when any of it fails.
  void add(const std::vector<Field>& fields) const;

 private:
  std::string path_;
};

// Now, in UTC, as "2026-11-23T08:15:00.123Z".
std::string journal_time();

}  // namespace common

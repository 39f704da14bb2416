#include "tests/support/forgeries.h"

#include <sstream>

namespace test {

std::vector<Lines> forgeries(const std::string& heading) {
  std::istringstream page(read_file(TEST_FORGERIES));
  std::vector<Lines> rows;
  std::string line, cell;
  while (std::getline(page, line) && line != "## " + heading) continue;
  while (std::getline(page, line) && !line.starts_with("## ")) {
    if (!line.starts_with("| ")) continue;
    std::istringstream cells(line.substr(2));
    rows.emplace_back();
    while (std::getline(cells, cell, '|')) {
      std::erase(cell, '`');
      const size_t begin = std::min(cell.find_first_not_of(' '), cell.size());
      rows.back().push_back(cell.substr(begin, cell.find_last_not_of(' ') + 1 - begin));
    }
  }
  EXPECT_GT(rows.size(), 1U) << heading;
  if (!rows.empty()) rows.erase(rows.begin());  // the column titles
  return rows;
}

}  // namespace test

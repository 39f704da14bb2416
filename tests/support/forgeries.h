// Reads the tables of tests/forgeries.md: what is forged and the library's verdict.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "tests/support/phone_test.h"

namespace test {

// Returns the rows of the table under |heading|, each as its cells without backticks.
std::vector<Lines> forgeries(const std::string& heading);

// Calls |judge| for each row under |heading| with the forgery of that name in |made|. Every row needs a forgery and
// every forgery a row.
template <typename Made, typename Judge>
void judge_forgeries(const std::string& heading, std::map<std::string, Made> made, const Judge& judge) {
  for (const Lines& row : forgeries(heading)) {
    SCOPED_TRACE(row[0]);
    if (const auto forged = made.extract(row[0]))
      judge(forged.mapped(), row);
    else
      ADD_FAILURE() << "no test builds it";
  }
  for (const auto& [name, forged] : made) ADD_FAILURE() << name << " has no row";
}

}  // namespace test

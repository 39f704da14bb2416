// The tables of tests/forgeries.md: what is forged and how it is judged.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "tests/support/phone_test.h"

namespace test {

// The rows of the table below |heading|, each with its cells, without the marks of code.
std::vector<Lines> forgeries(const std::string& heading);

// Has |judge| look at each row below |heading| and what bears its name in |made|. Each must have the other.
template <typename Made, typename Judge>
void judge_forgeries(const std::string& heading, std::map<std::string, Made> made, const Judge& judge) {
  for (const Lines& row : forgeries(heading)) {
    SCOPED_TRACE(row[0]);
    if (const auto forged = made.extract(row[0]))
      judge(forged.mapped(), row);
    else
      ADD_FAILURE() << "nobody makes it";
  }
  for (const auto& [name, forged] : made) ADD_FAILURE() << name << " stands in no row";
}

// Puts the pieces in braces into a cell, the inner ones first: {x*20} is twenty times x, of others |piece| knows.
std::string expand(std::string cell, const std::function<std::string(const std::string& name)>& piece);

}  // namespace test
